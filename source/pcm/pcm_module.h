#ifndef PCM_MODULE_H
#define PCM_MODULE_H

/** @file
 * The library as a whole: start-up, shut-down and what it tells of its build. A host starts it once, before all else,
 * and shuts it down once, behind all else.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** The library as a `kit` module. */
PCM_API extern KIT_MODULE pcm___module;

/** What the library tells of itself and of its build. */
PCM_API extern const KIT_MODULE_RECORD pcm___module_record;

/** One line with product, version, platform, build flavour and module, behind a marker that tools search for. */
PCM_API extern const char *const pcm___module_version_string;

/**
 * The address of `pcm___module`, the same at every call. A host begins with `kitModuleStartup( pcmModule() )` and
 * ends with `kitModuleShutdown( pcmModule() )`; between the two every function of the library may be called.
 */
PCM_API KIT_MODULE *pcmModule( void );

KIT_C_END

#endif
