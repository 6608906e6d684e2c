#ifndef KIT_MODULE_H
#define KIT_MODULE_H

#include "kit_object.h"

KIT_C_BEGIN

/** What a library tells of itself, of the product it belongs to and of its build. No string is null. */
typedef struct KIT_MODULE_RECORD {
    int64_t recordVersion;
    const char *productId;
    const char *productName;
    int64_t productVersionMajor;
    int64_t productVersionMinor;
    int64_t productVersionPatch;
    const char *buildTime; /**< "UTC 2026-07-21 13:01:14 (Tuesday)" */
    const char *makerName;
    const char *noticeLine;
    const char *moduleName;
    const char *moduleTitle;
    const char *moduleVersion;
    const char *moduleDependencies;
    const char *moduleTrailer;
} KIT_MODULE_RECORD;

/** A library as an object: a static record through which `kit` starts and stops it. */
struct KIT_MODULE {
    KIT_OBJ header;
    const KIT_MODULE_RECORD *record;
    int32_t ( *startup )( void ); /**< returns 1 */
    void *unused;                 /**< null */
    void ( *shutdown )( void );
};

/** Runs the start-up function that the module names. Call it once before the module's other functions. */
KIT_API void kitModuleStartup( KIT_MODULE *module );

/** Runs the shut-down function; afterwards the module can be started again. */
KIT_API void kitModuleShutdown( KIT_MODULE *module );

KIT_C_END

#endif
