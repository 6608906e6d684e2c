#ifndef KIT_OBJECT_H
#define KIT_OBJECT_H

/** @file
 * Reference-counted objects.
 *
 * Every object begins with a KIT_OBJ. Its sort record describes its type and how to free it.
 *
 * A handle is a pointer to an object and represents one reference. Reference counts change atomically, so several
 * threads may hold references to the same object. Use a handle variable from only one thread at a time.
 */

#include "kit_api.h"

KIT_C_BEGIN

typedef struct KIT_OBJ KIT_OBJ;       /**< the header of any object */
typedef struct KIT_SORT KIT_SORT;     /**< the record of a type */
typedef struct KIT_MODULE KIT_MODULE; /**< a library; see kit_module.h */
typedef struct KIT_STRING KIT_STRING; /**< a string; see kit_string.h */

enum { KIT_KIND_OBJECT = 0, KIT_KIND_SORT = 1, KIT_KIND_MODULE = 2 };

/** The header of all objects: five words of 8 bytes on every platform. Hosts may read `refCount` and nothing else. */
struct KIT_OBJ {
    int64_t kind; /**< one of KIT_KIND_...; sort records and modules are objects too */
    union {
        KIT_SORT *record;
        int64_t word;
    } sort;           /**< sort record of an object of KIT_KIND_OBJECT; null in static records */
    int64_t storage;  /**< size of the object in bytes; -1 if it is static and never freed */
    int32_t refCount; /**< number of references; changed atomically, only by the functions below */
    int32_t unused;   /**< 0 */
    int64_t noted;    /**< heap bytes that the object owns, for debugging; see kit___ObjDbgSetAllocationSize() */
};

/** Initialises the header of a static record: an object that is never freed. */
#define KIT_STATIC_HEADER( kind ) \
    {                             \
        kind, { 0 }, -1, 1, 0, 0  \
    }

/** Describes one object type. */
struct KIT_SORT {
    KIT_OBJ header;                                 /**< static, of KIT_KIND_SORT */
    KIT_MODULE *module;                             /**< module that defines the type; null in `kit` itself */
    const char *name;                               /**< name of the type, such as "PCM_PACKET" */
    void ( *destructor )( KIT_OBJ *obj );           /**< releases what an object owns, or null */
    int64_t ( *compare )( KIT_OBJ *a, KIT_OBJ *b ); /**< orders objects of this type; null: by address */
    KIT_STRING *( *toString )( KIT_OBJ *obj );      /**< null: name of the type and address */
};

/**
 * Declares the handle type of an object type and its eight standard functions. KIT_OBJECT_DEFINE defines them.
 *
 * For `PCM_OBJECT_DECLARE( PCM_PACKET, pcmPacket )`, the names are:
 *
 * | Function            | Purpose                                                                       |
 * |---------------------|-------------------------------------------------------------------------------|
 * | `pcmPacketSort`     | returns the sort record of the type                                           |
 * | `pcmPacketObj`      | converts a handle to an untyped handle; returns null for null                 |
 * | `pcmPacketFrom`     | converts an untyped handle of this type back; returns null for null           |
 * | `pcmPacketRetain`   | adds a reference and returns the handle                                       |
 * | `pcmPacketRelease`  | releases a reference; releasing the last one frees the object                 |
 * | `pcmPacketCompare`  | orders two objects: returns a negative value, 0 or a positive value           |
 * | `pcmPacketEquals`   | returns 1 if kitObjCompare() returns 0 for two handles, which may be null     |
 * | `pcmPacketToString` | returns a string for logging, which the caller owns                           |
 */
#define KIT_OBJECT_DECLARE( API, TYPE, prefix )            \
    typedef struct TYPE TYPE;                              \
    API KIT_SORT *prefix##Sort( void );                    \
    API KIT_OBJ *prefix##Obj( TYPE *obj );                 \
    API TYPE *prefix##From( KIT_OBJ *obj );                \
    API TYPE *prefix##Retain( TYPE *obj );                 \
    API void prefix##Release( TYPE *obj );                 \
    API int64_t prefix##Compare( TYPE *objA, TYPE *objB ); \
    API int32_t prefix##Equals( TYPE *objA, TYPE *objB );  \
    API KIT_STRING *prefix##ToString( TYPE *obj )

/** Adds a reference, which the caller owns, and returns @p obj. Ends the process if @p obj is null ("obj"). */
KIT_API KIT_OBJ *kitObjRetain( KIT_OBJ *obj );

/** Releases a reference. Releasing the last one frees the object. Ends the process if @p obj is null ("obj"). */
KIT_API void kitObjRelease( KIT_OBJ *obj );

/** Returns the sort record of an object. Sort records and modules have one too. */
KIT_API KIT_SORT *kitObjSort( KIT_OBJ *obj );

/**
 * Orders any two objects. Returns a negative value, 0 (equal) or a positive value. Null precedes all objects, and
 * objects of the same type are adjacent. The order within a type is the one that its sort record defines, or else
 * that of the addresses.
 */
KIT_API int64_t kitObjCompare( KIT_OBJ *a, KIT_OBJ *b );

/** Returns a string for logging, never null. The caller owns the string. */
KIT_API KIT_STRING *kitObjToString( KIT_OBJ *obj );

/** Creates an object of @p size bytes with one reference. The bytes after the header are 0. Never returns null. */
KIT_API KIT_OBJ *kit___ObjCreate( int64_t size, KIT_SORT *sort );

/**
 * Runs the destructor and frees the object. Called when the last reference is released. Does not free static records.
 */
KIT_API void kit___ObjFree( KIT_OBJ *obj );

/**
 * Records the heap bytes an object owns, for debugging. The object itself is not included, and nothing depends on the
 * number.
 */
KIT_API void kit___ObjDbgSetAllocationSize( KIT_OBJ *obj, int64_t bytes );

/** Records @p count x @p size bytes, or INT64_MAX if the product does not fit in 64 bits. */
KIT_API void kit___ObjDbgSetAllocationSizeN( KIT_OBJ *obj, int64_t count, int64_t size );

/** Returns the number of bytes that was recorded last. */
KIT_API int64_t kit___ObjDbgAllocationSize( KIT_OBJ *obj );

/**
 * Returns the number of objects in the process that have been created and not yet freed. Always returns 0 if the
 * library was built with NDEBUG.
 */
KIT_API int64_t kit___ObjDbgLiveObjects( void );

KIT_C_END

#endif
