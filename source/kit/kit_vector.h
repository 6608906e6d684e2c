#ifndef KIT_VECTOR_H
#define KIT_VECTOR_H

/** @file
 * Vectors: sequences of objects. Threads may share a vector if each holds its own reference. Use a handle variable
 * from only one thread at a time. Null ends the process.
 */

#include "kit_object.h"

KIT_C_BEGIN

/**
 * A sequence of objects. The vector holds one reference to each. Vectors are copy-on-write: a change through a handle
 * to a shared vector stores a private copy in that handle, and other holders see no change.
 */
typedef struct KIT_VECTOR KIT_VECTOR;

/** Creates an empty vector. The caller owns it. */
KIT_API KIT_VECTOR *kitVectorCreate( void );

/** Returns the number of objects. */
KIT_API int64_t kitVectorLength( const KIT_VECTOR *vector );

/** Appends an object in amortised constant time. The vector adds a reference, and the caller keeps its own. */
KIT_API void kitVectorAppendObj( KIT_VECTOR **vector, KIT_OBJ *obj );

/**
 * Removes the first object in constant time and returns it. The caller owns the reference. Returns null if the vector
 * is empty.
 */
KIT_API KIT_OBJ *kitVectorUnshift( KIT_VECTOR **vector );

/** Removes all objects. */
KIT_API void kitVectorClear( KIT_VECTOR **vector );

KIT_C_END

#endif
