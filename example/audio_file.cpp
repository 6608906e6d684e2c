#include "audio_file.h"

#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

static constexpr int64_t headerReserve = 4096;
static constexpr int64_t maxBytes32 = UINT32_MAX - headerReserve;
static constexpr Container containers[] = {
    { "wav", nullptr, SF_FORMAT_WAV, maxBytes32 },
    { "au", nullptr, SF_FORMAT_AU, INT64_MAX }, // the header of a longer file does not specify a length
    { "aiff", "aif", SF_FORMAT_AIFF, maxBytes32 },
    { "w64", nullptr, SF_FORMAT_W64, INT64_MAX },
    { "rf64", nullptr, SF_FORMAT_RF64, INT64_MAX },
    { "caf", nullptr, SF_FORMAT_CAF, INT64_MAX },
    { "raw", nullptr, 0, INT64_MAX },
};

static const Container *findContainer( const std::string &name )
{
    for ( const Container &container : containers )
        if ( name == container.name || ( container.alias && name == container.alias ) ) return &container;
    return nullptr;
}

static std::string extension( const std::string &path )
{
    size_t slash = path.rfind( '/' ), dot = path.rfind( '.' );
    return dot == path.npos || ( slash != path.npos && dot < slash ) ? "" : lower( path.substr( dot + 1 ) );
}

bool hasContainer( const std::string &path ) { return findContainer( extension( path ) ); }

const Container &selectContainer( const std::string &path, const std::string &name )
{
    const Container *found = findContainer( name.empty() ? extension( path ) : lower( name ) );
    if ( !found && name.empty() && isSpecialFile( path ) ) found = findContainer( "raw" );
    if ( name.empty() && path == standardStream ) found = findContainer( "wav" );
    if ( found ) return *found;
    std::string names;
    for ( const Container &container : containers )
        names += ( names.empty() ? "" : ", " ) + std::string( container.name );
    fail( name.empty() ? "cannot write " + path + ": unknown file extension; use one of " + names + ", or --container"
                       : "unknown container \"" + name + "\"; use one of " + names );
}

// Returns libsndfile's SF_FORMAT_* subtype and byte order for an encoding, or 0 if it has none.
static int sndfileSubtype( pcm::Encoding encoding )
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

static SF_INFO sndfileInfo( const Container &container, const AudioFormat &format )
{
    SF_INFO info = {};
    info.samplerate = int( format.rate );
    info.channels = int( format.channels );
    info.format = container.majorFormat | sndfileSubtype( format.encoding );
    // libsndfile writes big-endian floats to AIFF files, but only if no byte order is requested.
    if ( info.format == ( SF_FORMAT_AIFF | SF_FORMAT_FLOAT | SF_ENDIAN_BIG ) ) info.format &= ~SF_FORMAT_ENDMASK;
    return info;
}

bool supportsFormat( const Container &container, const AudioFormat &format )
{
    SF_INFO info = sndfileInfo( container, format );
    return !container.majorFormat || ( sndfileSubtype( format.encoding ) && sf_format_check( &info ) );
}

static void checkFormat( const std::string &path, const Container &container, const AudioFormat &format )
{
    if ( supportsFormat( container, format ) ) return;
    std::string supported;
    for ( const EncodingName &entry : encodingNames )
        if ( supportsFormat( container, { entry.encoding, format.rate, format.channels } ) )
            supported += ( supported.empty() ? "" : ", " ) + std::string( entry.name );
    std::string requested =
        format.encoding & byteOrderFlags ? to_string( format.encoding ) : encodingName( format.encoding );
    fail( "cannot write " + path + ": " + container.name + " files do not support " + requested + " with " +
          std::to_string( format.channels ) +
          " channel(s); supported encodings: " + ( supported.empty() ? "none" : supported ) );
}

// The virtual I/O functions, which libsndfile calls. They must not throw.
static VirtualIo *ioFrom( void *user ) { return static_cast<VirtualIo *>( user ); }

static sf_count_t recordError( VirtualIo *io, sf_count_t result, bool failed )
{
    if ( failed && !io->error ) io->error = errno;
    return result;
}

extern "C" {
static sf_count_t ioTell( void *user ) { return ftello( ioFrom( user )->file ); }

static sf_count_t ioSeek( sf_count_t offset, int whence, void *user )
{
    bool failed = fseeko( ioFrom( user )->file, offset, whence );
    return recordError( ioFrom( user ), failed ? -1 : ioTell( user ), failed );
}

static sf_count_t ioLength( void *user )
{
    sf_count_t position = ioTell( user ), length = ioSeek( 0, SEEK_END, user );
    ioSeek( position, SEEK_SET, user );
    return length;
}

static sf_count_t ioRead( void *dest, sf_count_t bytes, void *user )
{
    std::FILE *file = ioFrom( user )->file;
    sf_count_t done = sf_count_t( std::fread( dest, 1, size_t( bytes ), file ) );
    return recordError( ioFrom( user ), done, done < bytes && std::ferror( file ) );
}

static sf_count_t ioWrite( const void *source, sf_count_t bytes, void *user )
{
    sf_count_t done = sf_count_t( std::fwrite( source, 1, size_t( bytes ), ioFrom( user )->file ) );
    return recordError( ioFrom( user ), done, done < bytes );
}
}

static SNDFILE *openVirtual( VirtualIo &io, int mode, SF_INFO &info )
{
    SF_VIRTUAL_IO functions = { ioLength, ioSeek, ioRead, ioWrite, ioTell };
    return sf_open_virtual( &functions, mode, &info, &io );
}

// Returns the byte order of raw data, which is that of the file in most containers. libsndfile reports it only
// relative to the byte order of the processor.
static pcm::Encoding rawByteOrder( SNDFILE *sndfile, pcm::Encoding encoding )
{
    if ( encoding.sizeofSample() == 1 ) return {};
    bool swapped = sf_command( sndfile, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0 );
    bool big = swapped != ( std::endian::native == std::endian::big );
    return big ? pcm::Encoding::bigEndian : pcm::Encoding::littleEndian;
}

// Returns the encoding of raw data without byte order, or 0 if libsndfile has to decode the file.
static pcm::Encoding rawEncoding( int format )
{
    static constexpr int rawFormats[] = { SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_AU, SF_FORMAT_AIFF, SF_FORMAT_W64,
        SF_FORMAT_RF64, SF_FORMAT_CAF };
    for ( int majorFormat : rawFormats ) {
        if ( ( format & SF_FORMAT_TYPEMASK ) != majorFormat ) continue;
        for ( const EncodingName &entry : encodingNames )
            if ( ( format & SF_FORMAT_SUBMASK ) == sndfileSubtype( entry.encoding ) ) return entry.encoding;
    }
    return {};
}

static pcm::Encoding closestEncoding( int format )
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

static std::string formatDescription( int format )
{
    SF_FORMAT_INFO majorInfo = {}, subtypeInfo = {};
    majorInfo.format = format & SF_FORMAT_TYPEMASK;
    subtypeInfo.format = format & SF_FORMAT_SUBMASK;
    bool found = !sf_command( nullptr, SFC_GET_FORMAT_INFO, &majorInfo, sizeof majorInfo ) &&
                 !sf_command( nullptr, SFC_GET_FORMAT_INFO, &subtypeInfo, sizeof subtypeInfo );
    return found ? std::string( majorInfo.name ) + ", " + subtypeInfo.name : "decoded by libsndfile";
}

// Returns the size in bytes.
int64_t AudioReader::openFile()
{
    file.reset( path == standardStream ? fdopen( fcntl( STDIN_FILENO, F_DUPFD_CLOEXEC, 3 ), "rb" )
                                       : std::fopen( path.c_str(), "rbe" ) );
    struct stat info;
    if ( !file || fstat( fileno( file.get() ), &info ) ) failWithErrno( "cannot open " + path, errno );
    if ( S_ISFIFO( info.st_mode ) || S_ISSOCK( info.st_mode ) ) {
        // Headers are read with seeks, and the length of headerless input is needed first.
        FilePtr copy( std::tmpfile(), std::fclose );
        if ( copy ) copyStream( file.get(), copy.get() );
        if ( !copy || std::ferror( file.get() ) || std::fflush( copy.get() ) ||
             std::fseek( copy.get(), 0, SEEK_SET ) )
            failWithErrno( "cannot read " + path, errno );
        file = std::move( copy );
        fstat( fileno( file.get() ), &info );
    }
    if ( !S_ISREG( info.st_mode ) ) fail( "cannot open " + path + ": not a regular file or a pipe" );
    return info.st_size;
}

AudioReader::AudioReader( const std::string &path ) : path( path )
{
    openFile();
    io.file = file.get();
    SF_INFO info = {};
    sndfile.reset( openVirtual( io, SFM_READ, info ) );
    if ( io.error ) failWithErrno( "cannot read " + path, io.error );
    if ( !sndfile )
        fail( "cannot read " + path + ": not a supported audio file; for headerless audio, use --raw (" +
              std::string( sf_strerror( nullptr ) ) + ")" );
    readHeader( info );
}

// Returns the number of frames in the COMM chunk of an AIFF file. libsndfile (1.2.0) counts the padding byte after an
// odd number of bytes as a sample.
static std::optional<int64_t> aiffFrames( std::FILE *file )
{
    const off_t position = ftello( file );
    std::optional<int64_t> frames;
    uint8_t chunk[14];
    for ( off_t at = 12;
          !frames && !fseeko( file, at, SEEK_SET ) && std::fread( chunk, sizeof chunk, 1, file ) == 1; ) {
        const auto number = [&]( int first ) {
            return int64_t{ chunk[first] } << 24 | chunk[first + 1] << 16 | chunk[first + 2] << 8 | chunk[first + 3];
        };
        if ( !std::memcmp( chunk, "COMM", 4 ) ) frames = number( 10 );
        at += 8 + number( 4 ) + number( 4 ) % 2;
    }
    std::clearerr( file );
    fseeko( file, position, SEEK_SET );
    return frames;
}

void AudioReader::readHeader( const SF_INFO &info )
{
    if ( info.samplerate < 1 || info.samplerate > maxRate || info.channels < 1 || info.channels > maxChannels )
        fail( "cannot read " + path + ": unsupported sample rate or number of channels: " +
              std::to_string( info.samplerate ) + " Hz, " + std::to_string( info.channels ) + " channel(s)" );
    fileFormat = { rawEncoding( info.format ), info.samplerate, info.channels };
    frameCount = info.frames;
    if ( ( info.format & SF_FORMAT_TYPEMASK ) == SF_FORMAT_AIFF )
        frameCount = std::min( frameCount, aiffFrames( file.get() ).value_or( frameCount ) );
    nearest = fileFormat.encoding ? fileFormat.encoding : closestEncoding( info.format );
    if ( fileFormat.encoding ) fileFormat.encoding |= rawByteOrder( sndfile.get(), fileFormat.encoding );
    description = fileFormat.encoding ? encodingName( fileFormat.encoding ) : formatDescription( info.format );
}

// Returns the size of the audio data in bytes from libsndfile's log of a header, or 0 if there is none.
static int64_t dataSizeInLog( const char *log )
{
    std::istringstream lines( log );
    for ( std::string line; std::getline( lines, line ); ) {
        line.erase( 0, line.find_first_not_of( ' ' ) );
        for ( const std::string name : { "data", "SSND", "Data Size", "Data size" } ) {
            const size_t colon = line.find_first_not_of( ' ', name.size() );
            if ( line.starts_with( name ) && colon != line.npos && line[colon] == ':' )
                return std::strtoll( line.c_str() + colon + 1, nullptr, 10 );
        }
    }
    return 0;
}

void AudioReader::checkLength( bool strict ) const
{
    if ( !sndfile || !fileFormat.encoding ) return;
    // libsndfile corrects the size of the audio data, but its log contains the one in the header.
    char log[16384] = {};
    sf_command( sndfile.get(), SFC_GET_LOG_INFO, log, sizeof log );
    constexpr int64_t unknown = 0x7FFFF000; // programs that write to a pipe use this size or a larger one
    const int64_t bytes = dataSizeInLog( log );
    SF_INFO info = {};
    sf_command( sndfile.get(), SFC_GET_CURRENT_SF_INFO, &info, sizeof info );
    const int type = info.format & SF_FORMAT_TYPEMASK; // some sizes include a part of the header
    const int64_t header = type == SF_FORMAT_W64 ? 24 : type == SF_FORMAT_AIFF ? 8 : type == SF_FORMAT_CAF ? 4 : 0;
    const int64_t padding = type == SF_FORMAT_W64 ? 7 : 0,
                  size = fileFormat.encoding.sizeofFrame( fileFormat.channels );
    const int64_t promised = ( bytes - header ) / size;
    if ( bytes >= unknown || ( bytes - header - padding ) / size <= frameCount ) return;
    const std::string message = path + " is truncated: its header promises " + std::to_string( promised ) +
                                " frames, but it contains " + std::to_string( frameCount );
    if ( strict ) fail( message );
    warn( message );
}

AudioReader::AudioReader( const std::string &path, const AudioFormat &format )
    : path( path ), fileFormat( format ), nearest( format.encoding ), description( encodingName( format.encoding ) )
{
    int64_t size = openFile(), frameSize = format.encoding.sizeofFrame( format.channels );
    if ( size % frameSize )
        fail( "cannot read " + path + ": its size, " + std::to_string( size ) +
              " bytes, is not a multiple of the frame size, " + std::to_string( frameSize ) +
              " bytes; check --input-encoding and --input-channels" );
    frameCount = size / frameSize;
}

int64_t AudioReader::readBytes( void *dest, int64_t frames, int64_t bytes )
{
    if ( !sndfile ) {
        size_t done = std::fread( dest, 1, size_t( bytes ), file.get() );
        if ( std::ferror( file.get() ) ) failWithErrno( "cannot read " + path, errno );
        return int64_t( done );
    }
    int64_t done = fileFormat.encoding
                       ? sf_read_raw( sndfile.get(), dest, bytes )
                       : sf_readf_float( sndfile.get(), static_cast<float *>( dest ), frames ) * ( bytes / frames );
    if ( io.error ) failWithErrno( "cannot read " + path, io.error );
    if ( sf_error( sndfile.get() ) )
        fail( "cannot read " + path + ": the file is damaged; try to repair it with the program that wrote it (" +
              sf_strerror( sndfile.get() ) + ")" );
    return done;
}

pcm::Buffer AudioReader::read( int64_t maxFrames )
{
    maxFrames = std::min( maxFrames, frameCount - position );
    if ( maxFrames <= 0 ) return pcm::Buffer::use( nullptr, 0 );
    int64_t frameSize = fileFormat.encoding.sizeofFrame( fileFormat.channels );
    auto block = pcm::allocate<std::byte>( maxFrames * frameSize );
    int64_t frames = readBytes( block.get(), maxFrames, maxFrames * frameSize ) / frameSize; // whole frames only
    if ( frames <= 0 ) return pcm::Buffer::use( nullptr, 0 );
    position += frames;
    return pcm::Buffer::use( std::move( block ), frames * frameSize );
}

int64_t AudioReader::skip( int64_t maxFrames )
{
    maxFrames = std::min( maxFrames, frameCount - position );
    int64_t frameSize = fileFormat.encoding.sizeofFrame( fileFormat.channels );
    if ( sndfile && !fileFormat.encoding ) return 0;
    bool failed = sndfile ? sf_seek( sndfile.get(), position + maxFrames, SEEK_SET ) < 0
                          : fseeko( file.get(), ( position + maxFrames ) * frameSize, SEEK_SET ) != 0;
    if ( failed ) fail( "cannot read " + path + ": cannot seek to frame " + std::to_string( position + maxFrames ) );
    position += maxFrames;
    return maxFrames;
}

AudioWriter::AudioWriter( const std::string &path, const Container &container, const AudioFormat &format )
    : container( container ), fileFormat( format ),
      output( ( checkFormat( path, container, format ), path ), container.majorFormat != 0 )
{
    if ( !container.majorFormat ) return;
    io.file = output.file();
    SF_INFO info = sndfileInfo( container, format );
    sndfile.reset( openVirtual( io, SFM_WRITE, info ) );
    check( sndfile != nullptr );
    // libsndfile sees only encoded bytes, so it cannot compute the peak.
    sf_command( sndfile.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE );
    // Without the PEAK chunk, the header is shorter. Truncate the file, or the end of the first header would remain
    // after a very short stream. libsndfile writes the header again when it closes the file.
    if ( std::fflush( io.file ) || ( output.isRegular() && ftruncate( fileno( io.file ), 0 ) ) )
        output.failWriting( errno );
    fileFormat.encoding = ( format.encoding & ~byteOrderFlags ) | rawByteOrder( sndfile.get(), format.encoding );
}

void AudioWriter::check( bool success )
{
    if ( io.error ) output.failWriting( io.error );
    if ( !success )
        fail( "cannot write " + output.path() + ": libsndfile rejects this " + container.name +
              " file; try another --container (" + sf_strerror( sndfile.get() ) + ")" );
}

void AudioWriter::checkSpace( double bytes ) const
{
    if ( double( bytesWritten ) + bytes > double( container.maxBytes ) )
        fail( "cannot write " + output.path() + ": too long for a file of type " + container.name +
              ", which is limited to 4 GiB; use w64, rf64 or caf" );
}

void AudioWriter::write( const pcm::Buffer &bytes )
{
    int64_t length = bytes.length();
    checkSpace( double( length ) );
    if ( sndfile )
        check( sf_write_raw( sndfile.get(), bytes.bytes().data(), length ) == length );
    else
        output.write( bytes.bytes().data(), length );
    bytesWritten += length;
}

// Overwrites bytes of a header.
static bool patch( std::FILE *file, size_t position, const std::string &bytes )
{
    return !fseeko( file, off_t( position ), SEEK_SET ) && std::fwrite( bytes.data(), bytes.size(), 1, file ) == 1;
}

static std::string bigEndian32( int64_t number )
{
    return { char( number >> 24 ), char( number >> 16 ), char( number >> 8 ), char( number ) };
}

// Corrects two faults of libsndfile (1.2.0). It writes a PEAK chunk to RF64 files of floats even after
// SFC_SET_ADD_PEAK_CHUNK has disabled it. The chunk contains the time of day and no peak, because libsndfile sees
// only encoded bytes; it becomes a chunk that readers ignore. In AIFF files with an odd number of bytes, libsndfile
// counts the padding byte as a sample.
bool AudioWriter::correctHeader()
{
    std::FILE *file = output.file();
    char bytes[512];
    if ( !output.isRegular() ) return true;
    if ( fseeko( file, 0, SEEK_SET ) ) return false;
    const std::string_view header( bytes, std::fread( bytes, 1, sizeof bytes, file ) );
    const size_t peak = header.find( "PEAK" ), comm = header.find( "COMM" ), ssnd = header.find( "SSND" );
    if ( container.majorFormat == SF_FORMAT_RF64 && peak < header.find( "data" ) )
        return patch( file, peak, "JUNK" ) &&
               patch( file, peak + 8, std::string( uint8_t( bytes[peak + 4] ), '\0' ) );
    if ( container.majorFormat == SF_FORMAT_AIFF && bytesWritten % 2 && comm < ssnd && ssnd < header.size() )
        return patch( file, comm + 10, bigEndian32( bytesWritten / fileFormat.channels ) ) &&
               patch( file, ssnd + 4, bigEndian32( 8 + bytesWritten ) );
    return true;
}

void AudioWriter::finish()
{
    if ( sndfile ) {
        // libsndfile computes sizes from the length of the file before it writes the header. Without samples, the
        // file is still empty then, and the sizes of the first header are wrong.
        for ( int i = 0; i < 2 && !bytesWritten; ++i ) sf_command( sndfile.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0 );
        int error = sf_close( sndfile.release() );
        if ( io.error ) output.failWriting( io.error );
        if ( error )
            fail( "cannot write " + output.path() +
                  ": libsndfile cannot complete its header; try another --container (" + sf_error_number( error ) +
                  ")" );
        if ( !correctHeader() ) output.failWriting( errno );
    }
    output.commit();
}

} // namespace host
