#ifndef FUZZ_H
#define FUZZ_H

// A reader of the bytes that fuzz targets get.

#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <vector>

namespace fuzz {

/// Takes choices and data from the bytes of an input; behind their end all is 0.
class Reader {
public:
    Reader( const uint8_t *data, size_t size ) : at( data ), end( data + size ) {}
    size_t left() const { return size_t( end - at ); }
    uint8_t byte() { return left() ? *at++ : 0; }
    int64_t upTo( int64_t highest ) { return byte() % ( highest + 1 ); }
    template <class T> auto &oneOf( T &list ) { return list[size_t( upTo( int64_t( std::size( list ) ) - 1 ) )]; }
    std::vector<uint8_t> bytes( size_t most )
    {
        const uint8_t *begin = at;
        at += most < left() ? most : left();
        return { begin, at };
    }
    uint64_t word( int bytes )
    {
        uint64_t sum = 0;
        for ( int i = 0; i < bytes; ++i ) sum |= uint64_t{ byte() } << 8 * i;
        return sum;
    }
    /// From a little below 0 to a little above the count, or where sums and products break.
    int64_t number( int64_t count )
    {
        static constexpr int64_t extremes[] = { INT64_MIN, INT64_MIN + 1, INT64_MAX, INT64_MAX - 1, INT64_MAX - 5,
            int64_t{ 1 } << 61, ( int64_t{ 1 } << 61 ) - 1, int64_t{ 1 } << 62 };
        uint8_t choice = byte();
        return choice < 240 ? choice % ( count + 3 ) - 1 : extremes[choice % 8];
    }
    /// Rounded in sums and products, so that their order shows.
    float sample()
    {
        static const float unusual[] = { -0.0f, 1e-45f, 3e38f, -INFINITY, NAN, std::bit_cast<float>( 0xFF812345 ) };
        uint8_t choice = byte();
        return choice < 250 ? float( choice - 125 ) * 0x1.02468Ap-6f : unusual[choice - 250];
    }

private:
    const uint8_t *at, *end;
};

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput( const uint8_t *data, size_t size );
extern "C" int LLVMFuzzerInitialize( int *argc, char ***argv );

#endif
