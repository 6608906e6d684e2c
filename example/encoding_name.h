#ifndef ENCODING_NAME_H
#define ENCODING_NAME_H

#include "host.h"

namespace host {

/// Short names of encodings, in the order in which they are listed for the user.
struct EncodingName {
    const char *name;
    PCM_ENCODING encoding;
};
inline constexpr EncodingName encodingNames[] = {
    { "int8", PCM_ENCODING_INT_8 },
    { "uint8", PCM_ENCODING_INT_8 | PCM_ENCODING_UNSIGNED },
    { "int16", PCM_ENCODING_INT_16 },
    { "int24", PCM_ENCODING_INT_24 },
    { "int32", PCM_ENCODING_INT_32 },
    { "float32", PCM_ENCODING_FLOAT_32 },
    { "alaw", PCM_ENCODING_G711_ALAW },
    { "mulaw", PCM_ENCODING_G711_MULAW },
};

inline constexpr PCM_ENCODING byteOrders = PCM_ENCODING_BIG_ENDIAN | PCM_ENCODING_LITTLE_ENDIAN;

/// The word of a short name, or of flag names with bars between them; fails if there is any that isn't known.
PCM_ENCODING encodingFromName( const std::string &text );

/// The flag names of a word.
std::string encodingFlags( PCM_ENCODING encoding );

/// The short name of a word, with its byte order where it has an unusual one, or else its flag names.
std::string encodingName( PCM_ENCODING encoding );

} // namespace host

#endif
