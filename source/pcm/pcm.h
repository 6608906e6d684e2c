#ifndef PCM_H
#define PCM_H

/** @file
 * All of `pcm`: PCM audio in memory, as packets of interleaved 32-bit float frames.
 */

#include "pcm_convert.h"
#include "pcm_decibel.h"
#include "pcm_encoding.h"
#include "pcm_level.h"
#include "pcm_module.h"
#include "pcm_packet.h"
#include "pcm_packet_queue.h"
#include "pcm_samples_stdc.h"
#include "pcm_src.h"
#include "pcm_src_type.h"

#endif
