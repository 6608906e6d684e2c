// A line's A-law bytes, 6 dB softer, as 16-bit ones: the ten lines of a C++ host.
#include <pcm/pcm.hpp>

#include <iostream>
#include <vector>

int main()
{
    pcm::Module module;
    std::vector<std::byte> line( 400, std::byte( 0xD5 ) );
    pcm::Packet pkt = pcm::Packet::tryDecode( pcm::Buffer( line ), pcm::Encoding::alaw, 1 ).value();
    pkt.levelAdjust( -6 );
    pcm::Encoding encoding = pcm::Encoding::int16 | pcm::Encoding::littleEndian;
    std::cout << pkt.encode( encoding ).length() << " bytes of " << encoding << '\n';
}
