#ifndef PLOT_H
#define PLOT_H

#include "output_file.h"

#include <string>
#include <vector>

namespace host {

/// Measures the level over time and the mean spectrum of a stream of any length, in bounded memory. The level is the
/// mean over all channels, the spectrum is that of their mean. 0 dB is a full-scale sine.
class Meter {
public:
    explicit Meter( int64_t rate ) : rate( rate ) {}

    void add( const pcm::Packet &pkt );

    /// Returns the length of the stream, or 1 if it is empty.
    double seconds() const;

    /// Returns lines of the form "SECONDS DECIBELS".
    std::string levels() const;

    /// Returns lines of the form "HERTZ DECIBELS". The spectrum of a stream that is shorter than the window is
    /// silence.
    std::string spectrum() const;

    const int64_t rate;

private:
    static constexpr size_t windowSize = 1024, maxBlocks = 1600;

    void addFrame( double power, double mean );
    void addSpectrum();

    // The mean power of each block. When there are too many blocks, pairs are merged and the block length doubles.
    std::vector<double> blockPowers;
    int64_t blockFrames = 128, framesInBlock = 0;
    double powerSum = 0; // of the current block
    int64_t frames = 0;

    std::vector<double> window, binPowers = std::vector<double>( windowSize / 2 + 1 );
    int64_t spectrumCount = 0;
};

/// An image of the level and spectrum of the input and the output, drawn by gnuplot.
class Plot {
public:
    /// Fails if the image cannot be written.
    Plot( const std::string &path, int64_t inRate, int64_t outRate )
        : input( inRate ), output( outRate ), image( path )
    {
    }

    void draw();

    /// Moves the image to its path.
    void finish() { image.commit(); }

    Meter input, output;

private:
    OutputFile image;
};

} // namespace host

#endif
