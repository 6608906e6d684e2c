#ifndef KIT_MODULE_H
#define KIT_MODULE_H

/** @file
 * Libraries as objects: what they tell of themselves, start-up and shut-down. Both serve one thread, while no other
 * uses the library.
 */

#include "kit_object.h"

KIT_C_BEGIN

/** What a library tells of itself, of the product it belongs to and of its build. No string is null. */
typedef struct KIT_MODULE_RECORD {
    int64_t recordVersion;          /**< of this structure */
    const char *productId;          /**< for programs */
    const char *productName;        /**< for people */
    int64_t productVersionMajor;    /**< changes with the interface */
    int64_t productVersionMinor;    /**< grows with the interface */
    int64_t productVersionPatch;    /**< grows with each release */
    const char *buildTime;          /**< "UTC 2026-07-21 13:01:14 (Tuesday)" */
    const char *makerName;          /**< who made the product */
    const char *noticeLine;         /**< of rights */
    const char *moduleName;         /**< for programs */
    const char *moduleTitle;        /**< for people */
    const char *moduleVersion;      /**< of the module within the product, such as "0.0" */
    const char *moduleDependencies; /**< name of the module that this one requires, such as "kit" */
    const char *moduleTrailer;      /**< anything else, or empty */
} KIT_MODULE_RECORD;

/** A library as an object: a static record through which `kit` starts and stops it. */
struct KIT_MODULE {
    KIT_OBJ header;                  /**< of KIT_KIND_MODULE, static */
    const KIT_MODULE_RECORD *record; /**< what it tells of itself */
    int32_t ( *startup )( void );    /**< returns 1 */
    void *unused;                    /**< null */
    void ( *shutdown )( void );      /**< drops what startup made */
};

/**
 * Calls the start-up function of the module. Call this before any other function of the module.
 *
 * The modules of this product count their starts: only the first one has an effect, and each needs one
 * kitModuleShutdown.
 */
KIT_API void kitModuleStartup( KIT_MODULE *module );

/** Calls the shut-down function of the module, once for each start. Then the module can be started again. */
KIT_API void kitModuleShutdown( KIT_MODULE *module );

KIT_C_END

#endif
