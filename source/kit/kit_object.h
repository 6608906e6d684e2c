#ifndef KIT_OBJECT_H
#define KIT_OBJECT_H

/** @file
 * Counted objects. Every object begins with a KIT_OBJ; its sort tells what it is and how it ends.
 *
 * A handle is a pointer to an object and stands for one reference. Counts change atomically, so holders of one
 * object may sit on different threads; one handle variable serves one thread at a time.
 */

#include "kit_api.h"

KIT_C_BEGIN

typedef struct KIT_OBJ KIT_OBJ;       /**< the header of any object */
typedef struct KIT_SORT KIT_SORT;     /**< the record of a type */
typedef struct KIT_MODULE KIT_MODULE; /**< a library, see kit_module.h */
typedef struct KIT_STRING KIT_STRING; /**< a text, see kit_string.h */

enum { KIT_KIND_OBJECT = 0, KIT_KIND_SORT = 1, KIT_KIND_MODULE = 2 };

/** The header of all objects, five words of 8 bytes on every platform. Hosts read `refCount` and nothing else. */
struct KIT_OBJ {
    int64_t kind; /**< KIT_KIND_...: sort records and modules are objects too */
    union {
        KIT_SORT *record;
        int64_t word;
    } sort;           /**< of an object of KIT_KIND_OBJECT; null in static records */
    int64_t storage;  /**< bytes of the object itself; -1: static, never freed */
    int32_t refCount; /**< references held; changed atomically, by the functions below alone */
    int32_t unused;   /**< 0 */
    int64_t noted;    /**< heap bytes that the object owns, see kit___ObjDbgSetAllocationSize */
};

/** The header of a static record: an object with one reference that nobody drops. */
#define KIT_STATIC_HEADER( kind ) \
    {                             \
        kind, { 0 }, -1, 1, 0, 0  \
    }

/** What the objects of one type have in common. */
struct KIT_SORT {
    KIT_OBJ header;                                 /**< of KIT_KIND_SORT, static */
    KIT_MODULE *module;                             /**< where the type comes from; null in `kit` itself */
    const char *name;                               /**< of the type, such as "PCM_PACKET" */
    void ( *destructor )( KIT_OBJ *obj );           /**< releases what the object holds; or null */
    int64_t ( *compare )( KIT_OBJ *a, KIT_OBJ *b ); /**< order within the sort; null: by identity */
    KIT_STRING *( *toString )( KIT_OBJ *obj );      /**< null: the sort's name and the object's address */
};

/**
 * Declares the handle type of an object type and its eight standard functions. KIT_OBJECT_DEFINE defines them.
 *
 * For `PCM_OBJECT_DECLARE( PCM_PACKET, pcmPacket )`, the names are:
 *
 * | Function            | Purpose                                                            |
 * |---------------------|--------------------------------------------------------------------|
 * | `pcmPacketSort`     | returns the sort record of the type                                |
 * | `pcmPacketObj`      | converts a handle to an untyped handle; null gives null            |
 * | `pcmPacketFrom`     | converts an untyped handle of this type back; null gives null      |
 * | `pcmPacketRetain`   | adds a reference and returns the handle                            |
 * | `pcmPacketRelease`  | drops a reference; the last one frees the object                   |
 * | `pcmPacketCompare`  | orders two objects: negative, 0 or positive                        |
 * | `pcmPacketEquals`   | returns 1 if kitObjCompare gives 0 for two handles, which may be null |
 * | `pcmPacketToString` | returns a text for a log, which the caller owns                    |
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

/** Takes one more reference and returns @p obj. Ends the process at null ("obj"). */
KIT_API KIT_OBJ *kitObjRetain( KIT_OBJ *obj );

/** Drops one reference; the last one frees the object. Ends the process at null ("obj"). */
KIT_API void kitObjRelease( KIT_OBJ *obj );

/** The sort record of an object; records and modules have one as well. */
KIT_API KIT_SORT *kitObjSort( KIT_OBJ *obj );

/**
 * Orders any two objects: negative, 0 (equal) or positive. Null comes first, objects of one sort stand together,
 * and within a sort its own order holds, or else that of the addresses.
 */
KIT_API int64_t kitObjCompare( KIT_OBJ *a, KIT_OBJ *b );

/** A text for a log, never null; the caller owns the string. */
KIT_API KIT_STRING *kitObjToString( KIT_OBJ *obj );

/** A new object of @p size bytes with one reference; what lies behind the header is zero. Never null. */
KIT_API KIT_OBJ *kit___ObjCreate( int64_t size, KIT_SORT *sort );

/** Runs the destructor and frees the object. Called by whoever drops the last reference. Static records stay. */
KIT_API void kit___ObjFree( KIT_OBJ *obj );

/** Notes the heap bytes that an object owns beside itself: a figure for debugging, on which nothing depends. */
KIT_API void kit___ObjDbgSetAllocationSize( KIT_OBJ *obj, int64_t bytes );

/** The same as a product; one that does not fit is noted as the largest integer. */
KIT_API void kit___ObjDbgSetAllocationSizeN( KIT_OBJ *obj, int64_t count, int64_t size );

/** What was noted last. */
KIT_API int64_t kit___ObjDbgAllocationSize( KIT_OBJ *obj );

/** Objects created and not yet freed, in the whole process; always 0 if the library was built with NDEBUG. */
KIT_API int64_t kit___ObjDbgLiveObjects( void );

KIT_C_END

#endif
