#ifndef CHOICES_H
#define CHOICES_H

// The source of the choices and data of the tests: a seeded generator, or the bytes of a fuzz input.

#include <cstdint>
#include <cstring>
#include <iterator>
#include <vector>

namespace test {

class Choices {
public:
    virtual ~Choices() = default;

    /// Random bits. `bytes` is the number of bytes to take from a fuzz input.
    virtual uint64_t word( int bytes = 8 ) = 0;

    /// A choice that must not change the results, such as whether a packet is shared. golden always gets 0.
    virtual int64_t variant( int64_t highest ) { return upTo( highest ); }

    /// A number from 0 to `highest`.
    int64_t upTo( int64_t highest ) { return int64_t( word( highest < 256 ? 1 : 8 ) % ( uint64_t( highest ) + 1 ) ); }

    template <class T> auto &oneOf( T &list ) { return list[size_t( upTo( int64_t( std::size( list ) ) - 1 ) )]; }

    std::vector<uint8_t> bytes( int64_t count )
    {
        std::vector<uint8_t> all( static_cast<size_t>( count ) );
        for ( uint8_t &byte : all ) byte = uint8_t( word( 1 ) >> 32 );
        return all;
    }

    /// A number within the scale, a power of two. One in four is any bit pattern or one of the special ones.
    float sample( float scale = 1 )
    {
        static const uint32_t special[] = { 0x80000000, 0, 1, 0x80200000, 0x3F800000, 0xBF800000, 0x3F800001,
            0x7F7FFFFF, 0x7F800000, 0xFF800000, 0x7FC00000, 0x7F800001, 0xFF812345, 0x4F000000, 0xCF000001 };
        float x = float( int32_t( word( 2 ) >> 32 ) ) * 0x1p-31f * scale;
        uint64_t choice = word( 1 ) % 8;
        uint32_t pattern = choice ? uint32_t( word( choice < 2 ? 4 : 0 ) ) : oneOf( special );
        if ( choice < 2 ) std::memcpy( &x, &pattern, sizeof x );
        return x;
    }

    std::vector<float> samples( int64_t count, float scale = 1 )
    {
        std::vector<float> all( static_cast<size_t>( count ) );
        for ( float &x : all ) x = sample( scale );
        return all;
    }
};

/// SplitMix64, which uses integers only: the choices are the same on every processor.
class Seeded : public Choices {
public:
    explicit Seeded( uint64_t seed ) : state( seed ) {}
    uint64_t word( int = 8 ) override
    {
        uint64_t z = state += 0x9E3779B97F4A7C15;
        z = ( z ^ z >> 30 ) * 0xBF58476D1CE4E5B9;
        z = ( z ^ z >> 27 ) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }

private:
    uint64_t state;
};

/// The bytes of a fuzz input, repeated to fill a word. Zeros at the end of the input.
class FuzzInput : public Choices {
public:
    FuzzInput( const uint8_t *data, size_t size ) : next( data ), end( data + size ) {}
    size_t left() const { return size_t( end - next ); }
    /// At most `count` bytes of the input itself.
    std::vector<uint8_t> take( size_t count )
    {
        const uint8_t *begin = next;
        next += count < left() ? count : left();
        return { begin, next };
    }
    uint64_t word( int bytes = 8 ) override
    {
        uint64_t value = 0;
        for ( int i = 0; i < bytes && next < end; ++i ) value |= uint64_t{ *next++ } << 8 * i;
        for ( int bits = 8 * bytes; bits && bits < 64; bits *= 2 ) value |= value << bits;
        return value;
    }

private:
    const uint8_t *next, *end;
};

} // namespace test

#endif
