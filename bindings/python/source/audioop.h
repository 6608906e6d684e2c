#ifndef PCM_PYTHON_AUDIOOP_H
#define PCM_PYTHON_AUDIOOP_H

#include <Python.h>

/// Creates the module pcm._pcm.audioop. Returns a new reference, or null with an exception set.
PyObject *createAudioop();

#endif
