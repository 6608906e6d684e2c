#ifndef PCM_H
#define PCM_H

/** @file
 * Includes all headers of `pcm`: PCM audio in memory, as packets of interleaved 32-bit float frames.
 */

#include "pcm_channels.h"
#include "pcm_convert.h"
#include "pcm_decibel.h"
#include "pcm_dual_tone.h"
#include "pcm_encoding.h"
#include "pcm_filter.h"
#include "pcm_filter_coefficients.h"
#include "pcm_filter_type.h"
#include "pcm_frames.h"
#include "pcm_level.h"
#include "pcm_modulated_tone.h"
#include "pcm_module.h"
#include "pcm_noise.h"
#include "pcm_packet.h"
#include "pcm_packet_queue.h"
#include "pcm_samples_stdc.h"
#include "pcm_silence.h"
#include "pcm_src.h"
#include "pcm_src_type.h"
#include "pcm_tone.h"

#endif
