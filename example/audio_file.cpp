#include "audio_file.h"

#include <bit>
#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

static constexpr int64_t headerRoom = 4096;
static constexpr int64_t size32 = UINT32_MAX - headerRoom;
static constexpr Container containers[] = {
    { "wav", nullptr, SF_FORMAT_WAV, size32 },
    { "au", nullptr, SF_FORMAT_AU, INT64_MAX }, // longer ones tell no length
    { "aiff", "aif", SF_FORMAT_AIFF, size32 },
    { "w64", nullptr, SF_FORMAT_W64, INT64_MAX },
    { "rf64", nullptr, SF_FORMAT_RF64, INT64_MAX },
    { "caf", nullptr, SF_FORMAT_CAF, INT64_MAX },
    { "raw", nullptr, 0, INT64_MAX },
};

static const Container *findContainer( const std::string &name )
{
    for ( const Container &each : containers )
        if ( name == each.name || ( each.otherName && name == each.otherName ) ) return &each;
    return nullptr;
}

static std::string extension( const std::string &path )
{
    size_t slash = path.rfind( '/' ), dot = path.rfind( '.' );
    return dot == path.npos || ( slash != path.npos && dot < slash ) ? "" : lower( path.substr( dot + 1 ) );
}

const Container &containerFor( const std::string &path, const std::string &name )
{
    const Container *found = findContainer( name.empty() ? extension( path ) : lower( name ) );
    if ( !found && name.empty() && isSpecialFile( path ) ) found = findContainer( "raw" );
    if ( found ) return *found;
    std::string known;
    for ( const Container &each : containers ) known += ( known.empty() ? "" : ", " ) + std::string( each.name );
    fail( name.empty() ? "cannot tell the container from the name " + path + "; extensions are " + known
                       : "unknown container \"" + name + "\"; known are " + known );
}

// libsndfile's word for samples of an encoding; 0 if it has none.
static int subtype( pcm::Encoding encoding )
{
    encoding = encoding.normalized();
    if ( encoding.sizeofSample() != encoding.base().sizeofSample() ) return 0; // padded
    bool isUnsigned( encoding & pcm::Encoding::unsignedCodes );
    int order = encoding & pcm::Encoding::bigEndian      ? SF_ENDIAN_BIG
                : encoding & pcm::Encoding::littleEndian ? SF_ENDIAN_LITTLE
                                                         : SF_ENDIAN_FILE;
    switch ( encoding.base().word() ) {
    case PCM_ENCODING_G711_ALAW: return SF_FORMAT_ALAW;
    case PCM_ENCODING_G711_MULAW: return SF_FORMAT_ULAW;
    case PCM_ENCODING_INT_8: return isUnsigned ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_S8;
    case PCM_ENCODING_INT_16: return isUnsigned ? 0 : SF_FORMAT_PCM_16 | order;
    case PCM_ENCODING_INT_24: return isUnsigned ? 0 : SF_FORMAT_PCM_24 | order;
    case PCM_ENCODING_INT_32: return isUnsigned ? 0 : SF_FORMAT_PCM_32 | order;
    case PCM_ENCODING_FLOAT_32: return SF_FORMAT_FLOAT | order;
    default: return encoding ? SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE : SF_FORMAT_FLOAT;
    }
}

static SF_INFO soundInfo( const Container &container, const AudioFormat &format )
{
    SF_INFO info = {};
    info.samplerate = int( format.rate );
    info.channels = int( format.channels );
    info.format = container.major | subtype( format.encoding );
    return info;
}

bool containerHolds( const Container &container, const AudioFormat &format )
{
    SF_INFO info = soundInfo( container, format );
    return !container.major || ( subtype( format.encoding ) && sf_format_check( &info ) );
}

static void needHolding( const std::string &path, const Container &container, const AudioFormat &format )
{
    if ( containerHolds( container, format ) ) return;
    std::string held;
    for ( const EncodingName &each : encodingNames )
        if ( containerHolds( container, { each.encoding, format.rate, format.channels } ) )
            held += ( held.empty() ? "" : ", " ) + std::string( each.name );
    std::string wanted =
        format.encoding & byteOrders ? to_string( format.encoding ) : encodingName( format.encoding );
    fail( path + ": the container " + container.name + " cannot hold " + wanted + " in " +
          std::to_string( format.channels ) + " channel(s); it can hold " + ( held.empty() ? "nothing" : held ) );
}

// What libsndfile calls: exceptions must not pass through it.
static SoundStream *streamOf( void *user ) { return static_cast<SoundStream *>( user ); }

static sf_count_t noted( SoundStream *stream, sf_count_t result, bool failed )
{
    if ( failed && !stream->error ) stream->error = errno;
    return result;
}

extern "C" {
static sf_count_t streamTell( void *user ) { return ftello( streamOf( user )->file ); }

static sf_count_t streamSeek( sf_count_t offset, int whence, void *user )
{
    bool failed = fseeko( streamOf( user )->file, offset, whence );
    return noted( streamOf( user ), failed ? -1 : streamTell( user ), failed );
}

static sf_count_t streamLength( void *user )
{
    sf_count_t position = streamTell( user ), length = streamSeek( 0, SEEK_END, user );
    streamSeek( position, SEEK_SET, user );
    return length;
}

static sf_count_t streamRead( void *dest, sf_count_t bytes, void *user )
{
    std::FILE *file = streamOf( user )->file;
    sf_count_t done = sf_count_t( std::fread( dest, 1, size_t( bytes ), file ) );
    return noted( streamOf( user ), done, done < bytes && std::ferror( file ) );
}

static sf_count_t streamWrite( const void *source, sf_count_t bytes, void *user )
{
    sf_count_t done = sf_count_t( std::fwrite( source, 1, size_t( bytes ), streamOf( user )->file ) );
    return noted( streamOf( user ), done, done < bytes );
}
}

static SNDFILE *openSound( SoundStream &stream, int mode, SF_INFO &info )
{
    SF_VIRTUAL_IO calls = { streamLength, streamSeek, streamRead, streamWrite, streamTell };
    return sf_open_virtual( &calls, mode, &info, &stream );
}

// Raw bytes of most containers lie in the file's own order, which libsndfile tells only by way of this processor's.
static pcm::Encoding byteOrder( SNDFILE *sound, pcm::Encoding encoding )
{
    if ( encoding.sizeofSample() == 1 ) return {};
    bool swapped = sf_command( sound, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0 );
    bool big = swapped != ( std::endian::native == std::endian::big );
    return big ? pcm::Encoding::bigEndian : pcm::Encoding::littleEndian;
}

// The encoding of the bytes that raw reading gives, without byte order; 0 where libsndfile has to decode.
static pcm::Encoding rawEncoding( int format )
{
    static constexpr int plain[] = { SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_AU, SF_FORMAT_AIFF, SF_FORMAT_W64,
        SF_FORMAT_RF64, SF_FORMAT_CAF };
    for ( int major : plain ) {
        if ( ( format & SF_FORMAT_TYPEMASK ) != major ) continue;
        for ( const EncodingName &each : encodingNames )
            if ( ( format & SF_FORMAT_SUBMASK ) == subtype( each.encoding ) ) return each.encoding;
    }
    return {};
}

static pcm::Encoding nearestEncoding( int format )
{
    switch ( format & SF_FORMAT_SUBMASK ) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8: return pcm::Encoding::int8;
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_PCM_24: return pcm::Encoding::int24;
    case SF_FORMAT_ALAC_32:
    case SF_FORMAT_PCM_32: return pcm::Encoding::int32;
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_FLOAT: return pcm::Encoding::float32;
    default: return pcm::Encoding::int16;
    }
}

static std::string soundName( int format )
{
    SF_FORMAT_INFO major = {}, minor = {};
    major.format = format & SF_FORMAT_TYPEMASK;
    minor.format = format & SF_FORMAT_SUBMASK;
    bool known = !sf_command( nullptr, SFC_GET_FORMAT_INFO, &major, sizeof major ) &&
                 !sf_command( nullptr, SFC_GET_FORMAT_INFO, &minor, sizeof minor );
    return known ? std::string( major.name ) + ", " + minor.name : "decoded by libsndfile";
}

void AudioReader::openFile()
{
    file.reset( std::fopen( path.c_str(), "rb" ) );
    struct stat info;
    if ( !file || fstat( fileno( file.get() ), &info ) ) failSystem( "cannot open " + path, errno );
    if ( !S_ISREG( info.st_mode ) ) fail( "cannot open " + path + ": not a regular file" );
    length = info.st_size;
}

AudioReader::AudioReader( const std::string &path ) : path( path )
{
    if ( isSpecialFile( path ) ) fail( "cannot open " + path + ": not a regular file" ); // a pipe would wait
    openFile();
    stream.file = file.get();
    SF_INFO info = {};
    sound.reset( openSound( stream, SFM_READ, info ) );
    if ( stream.error ) failSystem( "cannot read " + path, stream.error );
    if ( !sound ) fail( path + " is not audio that can be read: " + sf_strerror( nullptr ) );
    describe( info );
}

void AudioReader::describe( const SF_INFO &info )
{
    if ( info.samplerate < 1 || info.samplerate > highestRate || info.channels < 1 || info.channels > mostChannels )
        fail( path + " is not audio that can be read: rate " + std::to_string( info.samplerate ) + ", channels " +
              std::to_string( info.channels ) );
    layout = { rawEncoding( info.format ), info.samplerate, info.channels };
    near = layout.encoding ? layout.encoding : nearestEncoding( info.format );
    if ( layout.encoding ) layout.encoding |= byteOrder( sound.get(), layout.encoding );
    name = layout.encoding ? encodingName( layout.encoding ) : soundName( info.format );
    length = info.frames;
}

AudioReader::AudioReader( const std::string &path, const AudioFormat &format )
    : path( path ), layout( format ), near( format.encoding ), name( encodingName( format.encoding ) )
{
    if ( isSpecialFile( path ) ) fail( "cannot open " + path + ": not a regular file" );
    openFile();
    int64_t frameSize = format.encoding.sizeofFrame( format.channels );
    if ( length % frameSize )
        fail( path + " holds no whole number of frames: " + std::to_string( length ) + " bytes, " +
              std::to_string( frameSize ) + " a frame" );
    length /= frameSize;
}

int64_t AudioReader::readBytes( void *dest, int64_t frames, int64_t bytes )
{
    if ( !sound ) {
        size_t done = std::fread( dest, 1, size_t( bytes ), file.get() );
        if ( std::ferror( file.get() ) ) failSystem( "cannot read " + path, errno );
        return int64_t( done );
    }
    int64_t done = layout.encoding
                       ? sf_read_raw( sound.get(), dest, bytes )
                       : sf_readf_float( sound.get(), static_cast<float *>( dest ), frames ) * ( bytes / frames );
    if ( stream.error ) failSystem( "cannot read " + path, stream.error );
    if ( sf_error( sound.get() ) ) fail( path + " is damaged: " + sf_strerror( sound.get() ) );
    return done;
}

pcm::Buffer AudioReader::read( int64_t wanted )
{
    wanted = std::min( wanted, length - position );
    if ( wanted <= 0 ) return pcm::Buffer::use( nullptr, 0 );
    int64_t frameSize = layout.encoding.sizeofFrame( layout.channels );
    auto block = pcm::allocate<std::byte>( wanted * frameSize );
    int64_t frames = readBytes( block.get(), wanted, wanted * frameSize ) / frameSize; // part of a frame is dropped
    if ( frames <= 0 ) return pcm::Buffer::use( nullptr, 0 );
    position += frames;
    return pcm::Buffer::use( std::move( block ), frames * frameSize );
}

int64_t AudioReader::skip( int64_t wanted )
{
    wanted = std::min( wanted, length - position );
    int64_t frameSize = layout.encoding.sizeofFrame( layout.channels );
    if ( sound && !layout.encoding ) return 0;
    bool failed = sound ? sf_seek( sound.get(), position + wanted, SEEK_SET ) < 0
                        : fseeko( file.get(), ( position + wanted ) * frameSize, SEEK_SET ) != 0;
    if ( failed ) fail( "cannot read " + path + " from frame " + std::to_string( position + wanted ) + " on" );
    position += wanted;
    return wanted;
}

AudioWriter::AudioWriter( const std::string &path, const Container &container, const AudioFormat &format )
    : container( container ), layout( format ), output( ( needHolding( path, container, format ), path ) )
{
    if ( !container.major ) return;
    stream.file = output.file();
    SF_INFO info = soundInfo( container, format );
    sound.reset( openSound( stream, SFM_WRITE, info ) );
    check( sound != nullptr );
    sf_command( sound.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE ); // libsndfile sees no samples, only bytes
    // The header is shorter now: what is left of the longer one would stand behind a few samples. It is written again
    // at the end.
    if ( std::fflush( stream.file ) || ( !isSpecialFile( path ) && ftruncate( fileno( stream.file ), 0 ) ) )
        output.failWriting( errno );
    layout.encoding = ( format.encoding & ~byteOrders ) | byteOrder( sound.get(), format.encoding );
}

void AudioWriter::check( bool good )
{
    if ( stream.error ) output.failWriting( stream.error );
    if ( !good ) fail( "cannot write " + output.path() + ": " + sf_strerror( sound.get() ) );
}

void AudioWriter::needRoom( double bytes ) const
{
    if ( double( written ) + bytes > double( container.mostBytes ) )
        fail( "cannot write " + output.path() + ": too long for the container " + container.name +
              ", which holds 4 GiB; w64, rf64 and caf hold more" );
}

void AudioWriter::write( const pcm::Buffer &bytes )
{
    int64_t length = bytes.length();
    needRoom( double( length ) );
    if ( sound )
        check( sf_write_raw( sound.get(), bytes.bytes().data(), length ) == length );
    else
        output.write( bytes.bytes().data(), length );
    written += length;
}

void AudioWriter::finish()
{
    if ( sound ) {
        int error = sf_close( sound.release() );
        if ( stream.error ) output.failWriting( stream.error );
        if ( error ) fail( "cannot write " + output.path() + ": " + sf_error_number( error ) );
    }
    output.commit();
}

} // namespace host
