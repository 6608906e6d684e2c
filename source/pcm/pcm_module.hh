#ifndef PCM_MODULE_HH
#define PCM_MODULE_HH

// Private to the library: the state of the module.

namespace pcm {

/// Returns true if the module has been started more often than shut down. The tables exist only then.
bool moduleIsStarted();

} // namespace pcm

#endif
