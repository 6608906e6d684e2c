#ifndef OPERATIONS_H
#define OPERATIONS_H

// One table of the library's operations, each with its model. Three drivers run it: random walks in pcm_test, a fuzz
// target, and golden, which compares checksums of the results with those in golden.txt.

#include "choices.h"
#include "reference.h"

#include <pcm/pcm.hpp>
#include <samplerate.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace operations {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<float>;
using test::Choices;

Samples samplesOf( const pcm::Packet &pkt );
Bytes bytesOf( const pcm::Buffer &buffer );
pcm::Buffer bufferOf( const Bytes &bytes );

/// The results of an operation and of its model.
class Results {
public:
    Bytes got, wanted;
    std::string failures; ///< violated rules other than equal results, one per line

    bool areRight() const { return got == wanted && failures.empty(); }
    void require( bool holds, const std::string &rule )
    {
        if ( !holds ) failures += rule + "\n";
    }
    /// Requires that a packet, unless it is null, has these samples.
    void requireSame( const pcm::Packet &pkt, const Samples &samples, const std::string &rule );
    /// Adds the result of the library, then that of the model.
    void add( const Bytes &g, const Bytes &w );
    /// Where samples are only moved, NaNs keep their bits. In arithmetic, the processor chooses among NaNs.
    void add( Samples g, Samples w, bool onlyMoved = false );
    void add( int64_t g, int64_t w );
    /// Also checks the size that the packet records.
    void add( const pcm::Packet &g, int64_t channels, const Samples &w, bool onlyMoved = false );
};

struct Operation {
    std::string name;
    std::string suite;
    int goldenRounds; ///< 0: not in golden.txt
    int walkRounds;
    std::function<void( Results &, Choices & )> run;
};

const std::vector<Operation> &all();

/// Compares the library with golden.txt and prints a line for each operation, or only for those that differ. Returns
/// the number of differences, not counting operations that depend on the platform. Operations named "platform/..."
/// use `log10`, `pow` or libsamplerate: they may differ from the file, but not from their models.
int compareWithGolden( const std::string &path, bool printAll );

/// The lines of golden.txt, from the models alone.
void printGolden();

// Models that other tests use too.

/// Converts bytes with pcm___Convert; word 0 denotes little-endian floats. Checks that nothing is written after the
/// result.
Bytes converted( uint64_t dest, uint64_t source, const Bytes &bytes );

struct FilterSet {
    pcm::FilterType type;
    const char *name;
    double cutOff, rate; ///< in hertz
    double sum;          ///< the gain at 0 Hz
    double decibel;      ///< the gain at the cut-off
    Samples taps;
};
extern const std::vector<FilterSet> filterSets;

extern const int converterTypes[5]; ///< libsamplerate's, in the order of PCM_SRC_TYPE_...

using Converter = std::unique_ptr<SRC_STATE, decltype( &src_delete )>;

/// Converts a block with direct calls to libsamplerate.
Samples convertDirectly( const Converter &state, const Samples &in, int64_t channels, double ratio );

double toDecibel( double gain );
double toGain( double decibel );

} // namespace operations

#endif
