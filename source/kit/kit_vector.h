#ifndef KIT_VECTOR_H
#define KIT_VECTOR_H

/** @file
 * Sequences of objects. A shared vector may be held by several threads; one handle variable serves one at a time.
 */

#include "kit_object.h"

KIT_C_BEGIN

/**
 * A sequence of objects, each held by one reference. Copy-on-write: a change through a handle to a shared vector
 * gives that handle a vector of its own and leaves every other holder's as it was.
 */
typedef struct KIT_VECTOR KIT_VECTOR;

/** An empty vector with one reference for the caller. */
KIT_API KIT_VECTOR *kitVectorCreate( void );

/** The number of objects. */
KIT_API int64_t kitVectorLength( const KIT_VECTOR *vector );

/** Adds an object at the end and takes a reference to it, in constant amortised time. */
KIT_API void kitVectorAppendObj( KIT_VECTOR **vector, KIT_OBJ *obj );

/** Removes the first object and hands its reference to the caller, in constant time; null from an empty vector. */
KIT_API KIT_OBJ *kitVectorUnshift( KIT_VECTOR **vector );

/** Removes all objects. */
KIT_API void kitVectorClear( KIT_VECTOR **vector );

KIT_C_END

#endif
