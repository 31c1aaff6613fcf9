// The tones of a film: what becomes of each sample from black to white when it is exposed on a negative stock and
// printed on a print stock. Host's thread, outside forks, but for the pure functions.
#pragma once

#include "operators/film/film_types.h"
#include "records/fix_pixel.h"

namespace velloran {

// What the tables follow from. The values here pass a picture.
struct FilmSettings {
    int negative = 0, print = 0;           // numbers in the tables of stocks
    float mix = 1;                         // 0 the picture as it was
    float master_gamma = 1;                // exponent before the film
    float gamma[film_colors] = {1, 1, 1};  // behind it: its inverse is the exponent
    float exposure = 1;                    // of the negative, a factor
    float print_exposure[film_colors] = {1, 1, 1};
    float offset = 0, scale = 1;  // of the result, which the film brings to 0 .. 1
    bool operator==(const FilmSettings&) const = default;
};

// The settings with all that is found before a tone can be.
struct FilmTone {
    FilmSettings settings;
    // By colour. n -1: no curve.
    FilmCurve negative[film_colors], print[film_colors];
    int negative_axis, print_axis;
    double negative_gray, print_gray;  // normal_gray_exposure
    double compensation[film_colors];  // of the print
    bool reversal;
    double base;                  // light that gets through film in any case
    double balance[film_colors];  // brings grey to the same light in all colours
    double offset, scale;         // bring the darkest and the brightest of all colours to 0 and 1
};
FilmTone make_film_tone(const FilmSettings& settings, const FilmType& negative, const FilmType& print);

// The tone of a sample, 0 to 1, of a colour; not held to anything.
double film_tone(const FilmTone& tone, int color, double sample);
// The sample of a tone, rounded and held to +-32767; what is no number is black.
FixPixel film_sample(double tone);

// Tables from 0 to 4096 in steps of a sample, exact at every 16th and straight between.
constexpr int film_table_size = fix_scale + 1;
// Those of the settings; they are made where the settings are other than before.
void set_film_tables(const FilmSettings& settings);
// An entry for every sample, that of -1 behind the one of 32767: those below 0 and above 4096 are as these.
const FixPixel* film_table(int color);
// Has the next ones made whatever the settings: stocks were changed or freed.
void forget_film_tables();
extern int film_tables_made;  // how often, for tests

}  // namespace velloran
