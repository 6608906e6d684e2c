#ifndef PCM_MODULE_H
#define PCM_MODULE_H

/** @file
 * The library as a module: start-up, shut-down, and the record of its version and build.
 *
 * Call `kitModuleStartup( pcmModule() )` before any other function. Starts are counted: a second start has no effect,
 * and the library keeps its tables until each start has been matched by a `kitModuleShutdown( pcmModule() )`. A
 * shut-down without a start ends the process ("starts > 0"). Call both while no other thread uses the library.
 */

#include "pcm_api.h"

KIT_C_BEGIN

/** The library as a `kit` module. */
PCM_API extern KIT_MODULE pcm___module;

/** The product, version and build of the library. */
PCM_API extern const KIT_MODULE_RECORD pcm___module_record;

/**
 * One line with the product, its version, the platform, the build flavour and the module, such as
 * `###QM_VERSION### velmorix-4.14.19 (Linux, x86 (64 bit), Release), pcm 0.0`. It starts with a marker that tools
 * search for in binary files. "0.0" is the version of the module within the product (`moduleVersion`), which is
 * always 0.0 because the product's version counts for its modules.
 */
PCM_API extern const char *const pcm___module_version_string;

/** Returns the address of `pcm___module`. May be called before start-up. */
PCM_API KIT_MODULE *pcmModule( void );

KIT_C_END

#endif
