#ifndef PLOT_H
#define PLOT_H

#include "output_file.h"

#include <string>
#include <vector>

namespace host {

/// Measures a stream of any length in bounded memory: its level over the time and its mean spectrum. The channels are
/// taken together. 0 dB is a sine at full scale.
class Meter {
public:
    explicit Meter( int64_t rate ) : rate( rate ) {}

    void add( const pcm::Packet &pkt );

    /// Lines of seconds and decibels.
    std::string levels() const;

    /// Lines of hertz and decibels; silence for a stream that is shorter than the window.
    std::string spectrum() const;

    const int64_t rate;

private:
    static constexpr size_t window = 1024, mostParts = 1600;

    void addFrame( double power, double mean );
    void transform();

    // Powers of parts of one length, which doubles when they become too many.
    std::vector<double> parts;
    int64_t partFrames = 128, framesInPart = 0;
    double partPower = 0;

    std::vector<double> recent, powers = std::vector<double>( window / 2 + 1 );
    int64_t transforms = 0;
};

/// A picture of what comes in and what goes out, drawn by gnuplot.
class Plot {
public:
    /// Fails where the picture can't be written.
    Plot( const std::string &path, int64_t inRate, int64_t outRate ) : in( inRate ), out( outRate ), output( path ) {}

    void draw();

    /// Gives the picture its name.
    void finish() { output.commit(); }

    Meter in, out;

private:
    OutputFile output;
};

} // namespace host

#endif
