#ifndef KIT_MODULE_H
#define KIT_MODULE_H

/** @file
 * Modules: libraries as objects with a version record, a start-up function and a shut-down function. Call both
 * functions from one thread, while no other thread uses the library.
 */

#include "kit_object.h"

KIT_C_BEGIN

/** Describes a library, the product that it belongs to and its build. No string is null. */
typedef struct KIT_MODULE_RECORD {
    int64_t recordVersion;          /**< version of this structure */
    const char *productId;          /**< name of the product for programs */
    const char *productName;        /**< name of the product for people */
    int64_t productVersionMajor;    /**< changes when the interface becomes incompatible */
    int64_t productVersionMinor;    /**< increases when the interface is extended */
    int64_t productVersionPatch;    /**< increases with each release */
    const char *buildTime;          /**< build time, such as "UTC 2026-07-21 13:01:14 (Tuesday)" */
    const char *makerName;          /**< maker of the product */
    const char *noticeLine;         /**< copyright notice */
    const char *moduleName;         /**< name of the module for programs */
    const char *moduleTitle;        /**< name of the module for people */
    const char *moduleVersion;      /**< version of the module within the product, such as "0.0" */
    const char *moduleDependencies; /**< name of the required module, such as "kit" */
    const char *moduleTrailer;      /**< additional text, or an empty string */
} KIT_MODULE_RECORD;

/** A library as an object: a static record with the functions that start it and shut it down. */
struct KIT_MODULE {
    KIT_OBJ header;                  /**< static, of KIT_KIND_MODULE */
    const KIT_MODULE_RECORD *record; /**< product, version and build */
    int32_t ( *startup )( void );    /**< returns 1 */
    void *unused;                    /**< null */
    void ( *shutdown )( void );      /**< releases what `startup` created */
};

/**
 * Calls the start-up function of a module. Call this before any other function of the module. Ends the process
 * if @p module is null ("module").
 *
 * The modules of this product count their starts: only the first one has an effect, and each one needs a matching
 * call of kitModuleShutdown().
 */
KIT_API void kitModuleStartup( KIT_MODULE *module );

/**
 * Calls the shut-down function of a module. Call this once for each start. After the last shut-down, the module can
 * be started again. Ends the process if @p module is null ("module").
 */
KIT_API void kitModuleShutdown( KIT_MODULE *module );

KIT_C_END

#endif
