#ifndef NATIONAL_TONES_H
#define NATIONAL_TONES_H

#include <array>
#include <cstdint>

namespace host {

// One or two frequencies in hertz, sounding alone, together, or multiplied with each other.
struct Tone {
    enum Mix { single, together, modulated } mix;
    int64_t a, b;
};
constexpr Tone alone( int64_t hertz ) { return { Tone::single, hertz, 0 }; }
constexpr Tone both( int64_t a, int64_t b ) { return { Tone::together, a, b }; }
constexpr Tone product( int64_t a, int64_t b ) { return { Tone::modulated, a, b }; }

// A tone that comes again and again: seconds of sound, pause, sound, pause; without any it never pauses.
struct Signal {
    Tone tone;
    std::array<double, 4> cadence;
};

// As the administrations have told them to the ITU: "Various tones used in national networks (according to ITU-T
// Recommendation E.180)", also Supplement 2 to the E.180 series. A product stands where the list has a modulated
// tone.
struct Country {
    const char *name;
    Signal dial, busy, ringback;
};
inline constexpr Country countries[] = {
    { "australia", { product( 425, 25 ), {} }, { alone( 425 ), { .375, .375 } },
        { product( 425, 25 ), { .4, .2, .4, 2 } } },
    { "belgium", { alone( 425 ), {} }, { alone( 425 ), { .5, .5 } }, { alone( 425 ), { 1, 3 } } },
    { "brazil", { alone( 425 ), {} }, { alone( 425 ), { .25, .25 } }, { alone( 425 ), { 1, 4 } } },
    { "canada", { both( 350, 440 ), {} }, { both( 480, 620 ), { .5, .5 } }, { both( 440, 480 ), { 2, 4 } } },
    { "china", { alone( 450 ), {} }, { alone( 450 ), { .35, .35 } }, { alone( 450 ), { 1, 4 } } },
    { "finland", { alone( 425 ), {} }, { alone( 425 ), { .3, .3 } }, { alone( 425 ), { 1, 4 } } },
    { "france", { alone( 440 ), {} }, { alone( 440 ), { .5, .5 } }, { alone( 440 ), { 1.5, 3.5 } } },
    { "germany", { alone( 425 ), {} }, { alone( 425 ), { .48, .48 } }, { alone( 425 ), { 1, 4 } } },
    { "italy", { alone( 425 ), { .2, .2, .6, 1 } }, { alone( 425 ), { .5, .5 } }, { alone( 425 ), { 1, 4 } } },
    { "japan", { alone( 400 ), {} }, { alone( 400 ), { .5, .5 } }, { product( 400, 16 ), { 1, 2 } } },
    { "netherlands", { alone( 425 ), {} }, { alone( 425 ), { .5, .5 } }, { alone( 425 ), { 1, 4 } } },
    { "spain", { alone( 425 ), {} }, { alone( 425 ), { .2, .2 } }, { alone( 425 ), { 1.5, 3 } } },
    { "sweden", { alone( 425 ), {} }, { alone( 425 ), { .25, .25 } }, { alone( 425 ), { 1, 5 } } },
    { "switzerland", { alone( 425 ), {} }, { alone( 425 ), { .5, .5 } }, { alone( 425 ), { 1, 4 } } },
    { "uk", { both( 350, 440 ), {} }, { alone( 400 ), { .375, .375 } }, { both( 400, 450 ), { .4, .2, .4, 2 } } },
    { "us", { both( 350, 440 ), {} }, { both( 480, 620 ), { .5, .5 } }, { both( 440, 480 ), { 2, 4 } } },
};

} // namespace host

#endif
