#include "encoding_name.h"

#include <sstream>

namespace host {

static std::string trimmed( const std::string &text )
{
    size_t first = text.find_first_not_of( " \t" );
    return first == text.npos ? "" : text.substr( first, text.find_last_not_of( " \t" ) - first + 1 );
}

// The library passes over names that it doesn't know, so each is asked for by itself.
static bool isFlag( const std::string &name )
{
    if ( name == "0" ) return true;
    return name.find_first_of( " \t\n" ) == name.npos && pcm::Encoding::fromString( name );
}

static bool areFlags( const std::string &text )
{
    std::istringstream names( text + "|" );
    for ( std::string name; std::getline( names, name, '|' ); )
        if ( !isFlag( trimmed( name ) ) ) return false;
    return true;
}

pcm::Encoding encodingFromName( const std::string &text )
{
    std::string known;
    for ( const EncodingName &each : encodingNames ) {
        if ( lower( text ) == each.name ) return each.encoding;
        known += std::string( each.name ) + ", ";
    }
    if ( !areFlags( text ) )
        fail( "unknown encoding \"" + text + "\"; known are " + known +
              "and flags such as \"PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN\"" );
    return pcm::Encoding::fromString( text );
}

std::string encodingName( pcm::Encoding encoding )
{
    for ( const EncodingName &each : encodingNames )
        if ( ( encoding & ~byteOrders ) == each.encoding )
            return each.name + std::string( encoding & pcm::Encoding::bigEndian ? " (big endian)" : "" );
    return to_string( encoding );
}

} // namespace host
