// Tones. The limit is a plain loop around `sin`.

#include "jobs.h"
#include "registry.h"

#include <cmath>

void addTones()
{
    constexpr int64_t sampleRate = 8000, frequency = 440;
    for ( int64_t samples : streamBlockSizes ) {
        addJob( "tone", samples, "ours", [=] {
            return [=, tone = Handle( pcmToneTryCreateWithFrequency( sampleRate, frequency ) )] {
                pcmToneGatherSamples( tone.obj, buffers.outputSamples(), samples );
                return samples;
            };
        } );
        addJob( "tone", samples, "limit", [=] {
            return [=] {
                double step = 2 * M_PI / ( double( sampleRate ) / double( frequency ) );
                for ( int64_t i = 0; i < samples; ++i )
                    buffers.outputSamples()[i] = float( std::sin( step * double( i ) ) );
                return samples;
            };
        } );
    }
}
