#ifndef PCM_MODULE_HH
#define PCM_MODULE_HH

// Private to the library: whether its tables exist.

namespace pcm {

/// Whether there were more start-ups than shut-downs.
bool moduleIsStarted();

} // namespace pcm

#endif
