#include "audioop.h"
PyObject *createAudioop() { return PyModule_New( "pcm._pcm.audioop" ); }
