#ifndef NATIONAL_TONES_H
#define NATIONAL_TONES_H

#include <array>
#include <cstdint>

namespace host {

// One sine tone, the mean of two, or the product of two. Frequencies are in hertz.
struct Tone {
    enum Mix { single, dual, modulated } mix;
    int64_t f1, f2;
};
constexpr Tone single( int64_t hertz ) { return { Tone::single, hertz, 0 }; }
constexpr Tone dual( int64_t f1, int64_t f2 ) { return { Tone::dual, f1, f2 }; }
constexpr Tone modulated( int64_t f1, int64_t f2 ) { return { Tone::modulated, f1, f2 }; }

// A tone with a repeating cadence: seconds of tone, silence, tone, silence. An empty cadence is a continuous tone.
struct Signal {
    Tone tone;
    std::array<double, 4> cadence;
};

// Source: the tones that administrations reported to the ITU, "Various tones used in national networks (according to
// ITU-T Recommendation E.180)", and Supplement 2 to the E.180 series. Tones listed as modulated are products here.
// script/national_tones compares them with another table; docs/tones.md lists the differences.
struct Country {
    const char *name;
    Signal dial, busy, ringback;
};
inline constexpr Country countries[] = {
    { "australia", { modulated( 425, 25 ), {} }, { single( 425 ), { .375, .375 } },
        { modulated( 425, 25 ), { .4, .2, .4, 2 } } },
    { "belgium", { single( 425 ), {} }, { single( 425 ), { .5, .5 } }, { single( 425 ), { 1, 3 } } },
    { "brazil", { single( 425 ), {} }, { single( 425 ), { .25, .25 } }, { single( 425 ), { 1, 4 } } },
    { "canada", { dual( 350, 440 ), {} }, { dual( 480, 620 ), { .5, .5 } }, { dual( 440, 480 ), { 2, 4 } } },
    { "china", { single( 450 ), {} }, { single( 450 ), { .35, .35 } }, { single( 450 ), { 1, 4 } } },
    { "finland", { single( 425 ), {} }, { single( 425 ), { .3, .3 } }, { single( 425 ), { 1, 4 } } },
    { "france", { single( 440 ), {} }, { single( 440 ), { .5, .5 } }, { single( 440 ), { 1.5, 3.5 } } },
    { "germany", { single( 425 ), {} }, { single( 425 ), { .48, .48 } }, { single( 425 ), { 1, 4 } } },
    { "italy", { single( 425 ), { .2, .2, .6, 1 } }, { single( 425 ), { .5, .5 } }, { single( 425 ), { 1, 4 } } },
    { "japan", { single( 400 ), {} }, { single( 400 ), { .5, .5 } }, { modulated( 400, 16 ), { 1, 2 } } },
    { "netherlands", { single( 425 ), {} }, { single( 425 ), { .5, .5 } }, { single( 425 ), { 1, 4 } } },
    { "spain", { single( 425 ), {} }, { single( 425 ), { .2, .2 } }, { single( 425 ), { 1.5, 3 } } },
    { "sweden", { single( 425 ), {} }, { single( 425 ), { .25, .25 } }, { single( 425 ), { 1, 5 } } },
    { "switzerland", { single( 425 ), {} }, { single( 425 ), { .5, .5 } }, { single( 425 ), { 1, 4 } } },
    { "uk", { dual( 350, 440 ), {} }, { single( 400 ), { .375, .375 } }, { dual( 400, 450 ), { .4, .2, .4, 2 } } },
    { "us", { dual( 350, 440 ), {} }, { dual( 480, 620 ), { .5, .5 } }, { dual( 440, 480 ), { 2, 4 } } },
};

} // namespace host

#endif
