// Sample, then light on the negative, its density, light through it, light on the print, its density, light through it,
// sample. Densities are powers of ten that a film holds back.
//
// All of it is computed in double precision, so that the last bit of a power, which differs between machines, is far
// below what is kept.
#include "operators/film/film_tone.h"

#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr double film_base = 1.0 / 63.0;
constexpr double gray_sample = 0.5;
// They put an 18% grey at place 0 of the two logarithmic axes.
constexpr double log10_of_gray = 0.7, stops_of_gray = 2.33;

constexpr int exact_step = 16;
constexpr int exact_count = fix_scale / exact_step + 1;

double axis_place(int axis, double light, double gray) {
    if (axis == film_axis_log10) return std::log10(light) + log10_of_gray + gray;
    if (axis == film_axis_stops) return std::log10(light) / 0.301029995 + stops_of_gray + gray;
    return gray + light;
}

double through(const FilmCurve& curve, int axis, double light, double gray) {
    return std::pow(10.0, -evaluate_film_curve(curve, axis_place(axis, light, gray)));
}

// What of the light on the negative comes to the print, or to the eye where there is none.
double behind_negative(const FilmTone& tone, int color, double exposed) {
    const double light = (tone.base + exposed) * static_cast<double>(tone.settings.exposure);
    if (tone.negative[color].n >= 0)
        return through(tone.negative[color], tone.negative_axis, light, tone.negative_gray);
    if (tone.reversal) return std::max(tone.base, light);
    // In the place of a negative: about as much darker where the picture is brighter.
    if (tone.print[color].n >= 0) return std::max(tone.base, 0.5 - 0.5 * std::pow(light, 0.45454544));
    return std::max(tone.base, exposed);
}

double exposed_at(const FilmTone& tone, double sample) {
    return std::pow(sample, static_cast<double>(tone.settings.master_gamma));
}

// The tone before it is brought to black and white.
double film_light(const FilmTone& tone, int color, double sample) {
    double light = behind_negative(tone, color, exposed_at(tone, sample)) * tone.balance[color] *
                   static_cast<double>(tone.settings.print_exposure[color]);
    if (tone.print[color].n >= 0)
        light = through(tone.print[color], tone.print_axis, std::max(light * tone.compensation[color], 0.0),
                        tone.print_gray);
    return std::pow(std::max(light, 0.0), 1.0 / static_cast<double>(tone.settings.gamma[color]));
}

FilmCurve curve_of(const FilmType& type, int color) {
    if (type.has_curve(color)) return make_film_curve(type.x[color], type.y[color], type.point_count[color]);
    FilmCurve none = {};
    none.n = -1;
    return none;
}

// As unsigned numbers samples below 0 stand behind the others.
constexpr int every_sample = 65536, first_below_black = 32768;
FixPixel tables[film_colors][every_sample];
FilmSettings settings_of_tables;
bool tables_ready;

// Far beyond what a sample holds, but fit to be reckoned with; no number counts as black.
double within_reason(double v) { return v == v ? std::clamp(v, -1e6, 1e6) : 0.0; }

void fill_table(const double* exact, FixPixel* table) {
    for (int i = 0; i < fix_scale; ++i) {
        const double from = exact[i / exact_step], to = exact[i / exact_step + 1];
        table[i] = film_sample(from + (to - from) * (0.0625 * (i % exact_step)));
    }
    std::fill(table + fix_scale, table + first_below_black, film_sample(exact[exact_count - 1]));
    std::fill(table + first_below_black, table + every_sample, table[0]);
}

}  // namespace

int film_tables_made;

FilmTone make_film_tone(const FilmSettings& settings, const FilmType& negative, const FilmType& print) {
    FilmTone tone = {};
    tone.settings = settings;
    tone.reversal = print.is_reversal;
    const FilmType none = {};
    const FilmType& before = print.is_reversal ? none : negative;
    for (int c = 0; c < film_colors; ++c) {
        tone.negative[c] = curve_of(before, c);
        tone.print[c] = curve_of(print, c);
        tone.compensation[c] = static_cast<double>(print.exposure_compensation[c]);
        tone.balance[c] = 1;
    }
    tone.negative_axis = before.x_type;
    tone.print_axis = print.x_type;
    tone.negative_gray = static_cast<double>(before.normal_gray_exposure);
    tone.print_gray = static_cast<double>(print.normal_gray_exposure);
    const bool film = before.has_curves() || print.has_curves();
    tone.base = film ? film_base : 0.0;
    tone.offset = 0;
    tone.scale = 1;
    if (!film) return tone;
    for (int c = 0; c < film_colors && !print.is_reversal; ++c) {
        if (!before.has_curve(c) && !print.has_curve(c)) continue;
        const double balance = 1 / behind_negative(tone, c, exposed_at(tone, gray_sample));
        if (std::isfinite(balance)) tone.balance[c] = balance;
    }
    double lowest = 1000, highest = -1000;
    for (int c = 0; c < film_colors; ++c)
        for (const double end : {0.0, 1.0}) {
            const double light = film_light(tone, c, end);
            lowest = std::min(lowest, light);
            highest = std::max(highest, light);
        }
    const double scale = 1 / (highest - lowest);
    if (highest > lowest && std::isfinite(scale) && std::isfinite(lowest)) {
        tone.offset = -lowest;
        tone.scale = scale;
    }
    return tone;
}

double film_tone(const FilmTone& tone, int color, double sample) {
    const FilmSettings& s = tone.settings;
    const double film = (film_light(tone, color, sample) + tone.offset) * tone.scale;
    const double result = (film + static_cast<double>(s.offset)) * static_cast<double>(s.scale);
    return sample + (result - sample) * static_cast<double>(s.mix);
}

FixPixel film_sample(double tone) {
    const double scaled = std::clamp(within_reason(tone) * fix_scale, -32767.0, 32767.0);
    return static_cast<FixPixel>(scaled + std::copysign(0.5, scaled));
}

void set_film_tables(const FilmSettings& settings) {
    const FilmTable &negatives = neg_film_types(), &prints = print_film_types();
    if (tables_ready && settings == settings_of_tables) return;
    tables_ready = false;
    const FilmTone tone =
        make_film_tone(settings, film_type(negatives, settings.negative), film_type(prints, settings.print));
    double exact[film_colors][exact_count] = {};
    fork_rows(exact_count, [&](int first, int n) {
        for (double(&of_color)[exact_count] : exact)
            for (int i = first; i < first + n; ++i)
                of_color[i] = within_reason(
                    film_tone(tone, static_cast<int>(&of_color - exact), static_cast<double>(i) / (exact_count - 1)));
    });
    for (int c = 0; c < film_colors; ++c) fill_table(exact[c], tables[c]);
    settings_of_tables = settings;
    tables_ready = true;
    ++film_tables_made;
}

const FixPixel* film_table(int color) { return tables[color]; }

void forget_film_tables() { tables_ready = false; }

}  // namespace velloran
