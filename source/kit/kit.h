#ifndef KIT_H
#define KIT_H

/** @file
 * Includes all headers of `kit`, the base library of `pcm`: reference-counted objects, memory and small helpers.
 */

#include "kit_abort.h"
#include "kit_buffer.h"
#include "kit_enum.h"
#include "kit_flagset.h"
#include "kit_int.h"
#include "kit_memory.h"
#include "kit_module.h"
#include "kit_object.h"
#include "kit_random.h"
#include "kit_real.h"
#include "kit_string.h"
#include "kit_vector.h"

#endif
