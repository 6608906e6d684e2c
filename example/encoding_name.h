#ifndef ENCODING_NAME_H
#define ENCODING_NAME_H

#include "host.h"

namespace host {

/// The short names of encodings, in the order in which messages list them.
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

inline constexpr pcm::Encoding byteOrderFlags = pcm::Encoding::bigEndian | pcm::Encoding::littleEndian;

/// Parses a short name, or flag names separated by bars. Fails if a name is unknown.
pcm::Encoding parseEncoding( const std::string &text );

/// Returns the short name of an encoding, marked if it is big-endian, or its flag names if it has no short name.
std::string encodingName( pcm::Encoding encoding );

} // namespace host

#endif
