#include "encoding_name.h"

#include <sstream>

namespace host {

static std::string trim( const std::string &text )
{
    size_t first = text.find_first_not_of( " \t" );
    return first == text.npos ? "" : text.substr( first, text.find_last_not_of( " \t" ) - first + 1 );
}

// The library ignores unknown names in a list, so each name is looked up separately.
static bool isFlagName( const std::string &name )
{
    if ( name == "0" ) return true;
    return name.find_first_of( " \t\n" ) == name.npos && pcm::Encoding::fromString( name );
}

static bool isFlagList( const std::string &text )
{
    std::istringstream names( text + "|" );
    for ( std::string name; std::getline( names, name, '|' ); )
        if ( !isFlagName( trim( name ) ) ) return false;
    return true;
}

pcm::Encoding parseEncoding( const std::string &text )
{
    std::string names;
    for ( const EncodingName &entry : encodingNames ) {
        if ( lower( text ) == entry.name ) return entry.encoding;
        names += std::string( entry.name ) + ", ";
    }
    if ( !isFlagList( text ) )
        fail( "unknown encoding \"" + text + "\"; use one of " + names +
              "or flags such as \"PCM_ENCODING_INT_16 | PCM_ENCODING_BIG_ENDIAN\"" );
    return pcm::Encoding::fromString( text );
}

std::string encodingName( pcm::Encoding encoding )
{
    for ( const EncodingName &entry : encodingNames )
        if ( ( encoding & ~byteOrderFlags ) == entry.encoding )
            return entry.name + std::string( encoding & pcm::Encoding::bigEndian ? " (big-endian)" : "" );
    return to_string( encoding );
}

} // namespace host
