#ifndef SUPPORT_H
#define SUPPORT_H

// Shared by all tests: the started module, an abort that death tests can match, and expectations about packets.

#include "choices.h"

#include <gtest/gtest.h>
#include <pcm/pcm.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace test {

using Samples = std::vector<float>;

/// An object of a type without a class in pcm.hpp.
template <class T> using Object = pcm::Handle<T, pcm::retainObject<T>, pcm::releaseObject<T>>;

/// A packet whose samples are `first`, `first` + 1, and so on.
pcm::Packet packet( int64_t frames, int64_t channels, float first = 1 );

Samples samples( const pcm::Packet &pkt );

/// The bit patterns of samples. All NaNs are equal, because the processor chooses among NaNs in arithmetic.
std::vector<uint32_t> bits( const Samples &samples );

/// The names of the encoding flags. Flag number i has bit i.
inline const std::string flagNames[] = { "PCM_ENCODING_G711_ALAW", "PCM_ENCODING_G711_MULAW", "PCM_ENCODING_INT_8",
    "PCM_ENCODING_INT_16", "PCM_ENCODING_INT_24", "PCM_ENCODING_INT_32", "PCM_ENCODING_FLOAT_32",
    "PCM_ENCODING_UNSIGNED", "PCM_ENCODING_BIG_ENDIAN", "PCM_ENCODING_LITTLE_ENDIAN", "PCM_ENCODING_PAD_BEFORE",
    "PCM_ENCODING_PAD_AFTER", "PCM_ENCODING_PACK_16", "PCM_ENCODING_PACK_24", "PCM_ENCODING_PACK_32",
    "PCM_ENCODING_PACK_40", "PCM_ENCODING_PACK_48", "PCM_ENCODING_PACK_56", "PCM_ENCODING_PACK_64" };

void expectPacket( const pcm::Packet &pkt, int64_t channels, const Samples &samples, int32_t references = 1 );

/// Fails at the end of the scope if the number of live objects changed. Counts in builds without NDEBUG.
class NoLeaks {
public:
    ~NoLeaks() { EXPECT_EQ( kit___ObjDbgLiveObjects(), before ); }

private:
    int64_t before = kit___ObjDbgLiveObjects();
};

/// PCM_TEST_SEED, or the given seed.
uint64_t seed( uint64_t usual );

/// Runs the work in threads that start at once, with the number of each thread.
void together( int threads, const std::function<void( int )> &work );

} // namespace test

#endif
