#ifndef ENCODING_NAME_H
#define ENCODING_NAME_H

#include "host.h"

namespace host {

/// Short names of encodings, in the order in which they are listed for the user.
struct EncodingName {
    const char *name;
    pcm::Encoding encoding;
};
inline constexpr EncodingName encodingNames[] = {
    { "int8", pcm::Encoding::int8 },
    { "uint8", pcm::Encoding::int8 | pcm::Encoding::unsignedCodes },
    { "int16", pcm::Encoding::int16 },
    { "int24", pcm::Encoding::int24 },
    { "int32", pcm::Encoding::int32 },
    { "float32", pcm::Encoding::float32 },
    { "alaw", pcm::Encoding::alaw },
    { "mulaw", pcm::Encoding::mulaw },
};

inline constexpr pcm::Encoding byteOrders = pcm::Encoding::bigEndian | pcm::Encoding::littleEndian;

/// The word of a short name, or of flag names with bars between them; fails if there is any that isn't known.
pcm::Encoding encodingFromName( const std::string &text );

/// The short name of a word, with its byte order where it has an unusual one, or else its flag names.
std::string encodingName( pcm::Encoding encoding );

} // namespace host

#endif
