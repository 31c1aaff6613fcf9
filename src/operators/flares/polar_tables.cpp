#include "operators/flares/polar_tables.h"

#include "operators/noise/noise_1d.h"
#include "operators/pixel/luma.h"
#include "support/memory.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace velloran {

namespace {

constexpr float pi = 3.14159265359f, tau = 2 * pi;
// Three entries for a pixel at the rim of a flare as wide as the frame are plenty; what a text asks beyond that is
// held.
constexpr float most_light = 1e6f;  // far beyond white, and products of two are no infinities
constexpr int least_entries = 64, most_entries = 1 << 16;

int table_size(double asked) {
    const double held = std::clamp(asked, static_cast<double>(least_entries), static_cast<double>(most_entries));
    return static_cast<int>(std::bit_ceil(static_cast<unsigned>(held)));
}

float* entry(const PolarTable& table, int level, int i) {
    return table.entries + ptrdiff_t{polar_entry_floats} * (table.offsets[level] + i);
}

void allocate(PolarTable* table, int size, bool wrap) {
    table->size = size;
    table->wrap = wrap;
    table->n_levels = std::bit_width(static_cast<unsigned>(size));
    int total = 0;
    for (int level = 0; level < table->n_levels; ++level) {
        table->offsets[level] = total + 1;
        total += (size >> level) + 2;
    }
    table->entries =
        static_cast<float*>(safe_malloc_aligned(static_cast<size_t>(total) * polar_entry_floats * sizeof(float)));
}

void copy_entry(const float* from, float* to) { std::copy(from, from + polar_entry_floats, to); }

void set_guards(const PolarTable& table, int level) {
    const int n = table.size >> level;
    if (table.wrap) {
        copy_entry(entry(table, level, n - 1), entry(table, level, -1));
        copy_entry(entry(table, level, 0), entry(table, level, n));
    } else {
        constexpr float black[polar_entry_floats] = {0, 0, 0, 1};
        copy_entry(black, entry(table, level, -1));
        copy_entry(black, entry(table, level, n));
    }
}

void finish_levels(const PolarTable& table) {
    set_guards(table, 0);
    for (int level = 1; level < table.n_levels; ++level) {
        for (int i = 0; i < table.size >> level; ++i) {
            const float *a = entry(table, level - 1, 2 * i), *b = entry(table, level - 1, 2 * i + 1);
            float* const mean = entry(table, level, i);
            for (int k = 0; k < polar_entry_floats; ++k) mean[k] = 0.5f * (a[k] + b[k]);
        }
        set_guards(table, level);
    }
}

void fill_radial(const LensFlarePolar& polar, const PolarInputs& in, const PolarTable& table) {
    const int last = polar.number - 1;
    constexpr float white[3] = {1, 1, 1};
    float colors[SPOT_MAX_COLORS][3];
    for (int k = 0; k < polar.number; ++k) flare_light(polar.colors[k], in.gamma, white, 1.0f, colors[k]);
    for (int i = 0; i < table.size; ++i) {
        const float v = polar.radii[0] + (polar.radii[last] - polar.radii[0]) * static_cast<float>(i) /
                                             static_cast<float>(table.size - 1);
        float* const out = entry(table, 0, i);
        out[0] = out[1] = out[2] = 0;
        out[3] = 1;
        for (int k = 0; k < last; ++k) {
            const bool inside = (v > polar.radii[k] || (k == 0 && v == polar.radii[0])) && v <= polar.radii[k + 1];
            if (!inside) continue;
            const float t = (v - polar.radii[k]) / std::max(polar.radii[k + 1] - polar.radii[k], 1e-9f);
            float mixed[3];
            for (int c = 0; c < 3; ++c) mixed[c] = colors[k][c] + (colors[k + 1][c] - colors[k][c]) * t;
            flare_light(mixed, 1.0f, white, in.saturation, out);
            break;
        }
    }
}

int frequency(float asked, float factor) { return static_cast<int>(std::clamp(asked * factor, -100000.0f, 100000.0f)); }

float ramp(float value, float brightness, float softness, float width) {
    const float k = 0.5f * brightness / std::max(softness, 0.0001f);
    const float v = value * k + (2 * k + brightness) * width - k;
    return brightness > 0 ? std::clamp(v, 0.0f, brightness) : std::clamp(v, brightness, 0.0f);
}

float noise_around(int32_t seed, float u, int period, int octaves) {
    return fnoise1_wrap(static_cast<uint32_t>(seed), u, std::max(period, 1), octaves);
}

float brightness_at(const LensFlarePolar& p, const PolarInputs& in, float u) {
    float light = p.offset_bright;
    if (const float width = p.wave_width * in.width; width > 0) {
        const float turns = u * static_cast<float>(frequency(p.wave_freq, in.frequency)) - p.wave_phase;
        light += ramp(std::cos(tau * turns), p.wave_brightness, p.wave_softness, width);
    }
    if (const float width = p.noise_width * in.width; width > 0)
        light += ramp(noise_around(p.rand_seed, u, frequency(p.noise_freq, in.frequency * 1.75f), p.noise_octaves),
                      p.noise_brightness, p.noise_softness, width);
    return light;
}

float radius_factor_at(const LensFlarePolar& p, const PolarInputs& in, float u) {
    float wave = p.r_wave_min, noise = p.r_noise_min;
    if (p.r_wave_max > p.r_wave_min) {
        const float w = 0.5f + 0.5f * std::cos(tau * u * static_cast<float>(frequency(p.r_wave_freq, in.frequency)));
        wave += (p.r_wave_max - p.r_wave_min) * std::pow(std::max(w, 0.0f), p.r_spikyness);
    }
    if (p.r_noise_max > p.r_noise_min) {
        const float n = 0.5f + 0.5f * noise_around(p.rand_seed + 9999, u,
                                                   frequency(p.r_noise_freq, in.frequency * 1.75f), p.r_noise_octaves);
        noise += (p.r_noise_max - p.r_noise_min) * std::pow(std::clamp(n, 0.0f, 1.0f), p.r_spikyness);
    }
    return std::max(0.0f, wave - 1.0f + noise);
}

// From a point that lies s from the centre of a circle of radius 1 to its rim, at angle a.
float distance_to_rim(float s, float a) {
    const float b = -2.0f * s * std::cos(a + pi);
    return 0.5f * (std::sqrt(std::max(b * b - 4.0f * (s * s - 1.0f), 0.0f)) - b);
}

float turn_of(float radians) {
    const float t = radians / tau;
    return t - std::floor(t);
}

// The share of light near the ends of an arc; at: radians from its start.
float arc_fade(const LensFlarePolar& p, float at, float width) {
    const float e = std::max(p.arc_edge_softness * width * 0.5f, 0.0001f);
    const float to_end = std::min(at, width - at);
    if (to_end < 0) return 0;
    return to_end < e && p.arc_edge_softness > 0 ? 0.5f - 0.5f * std::cos(pi * to_end / e) : 1.0f;
}

void fill_angular(const LensFlarePolar& p, const PolarInputs& in, PolarTables* tables) {
    const PolarTable& table = tables->angular;
    const bool full = p.angle_width >= tau - 0.001f;
    // Of a centre that lies on the rim itself half of the circle is empty: the pattern fills the other.
    const bool mirrored = p.shift_edge == 1.0f && p.rotate_to_pivot;
    tables->min_factor = 1e9f;
    tables->max_factor = 0;
    for (int i = 0; i < table.size; ++i) {
        float u = static_cast<float>(i) / static_cast<float>(table.size);
        float fade = 1;
        if (p.shift_edge != 0) {
            // The table goes all around; the arc lies somewhere in it.
            if (!full) fade = arc_fade(p, turn_of(tau * u - p.start_angle) * tau, p.angle_width);
        } else {
            fade = full && p.arc_edge_softness <= 0 ? 1.0f : arc_fade(p, tables->arc_width * u, tables->arc_width);
        }
        const float g = p.shift_edge > 0 ? distance_to_rim(p.shift_edge, tau * u + in.rotation) : 1.0f;
        if (mirrored) u = 2 * u - std::floor(2 * u);
        const float factor = std::max(g * radius_factor_at(p, in, u), 0.001f);
        tables->min_factor = std::min(tables->min_factor, factor);
        tables->max_factor = std::max(tables->max_factor, factor);
        float* const out = entry(table, 0, i);
        out[0] = out[1] = out[2] = std::clamp(brightness_at(p, in, u) * fade, -most_light, most_light);
        out[3] = 1.0f / factor;
    }
}

void fill_pairs(PolarTables* tables) {
    const PolarTable& table = tables->angular;
    const int last = table.n_levels - 1, entries = table.offsets[last] + (table.size >> last) + 1;
    tables->pairs = static_cast<float*>(safe_malloc_aligned(static_cast<size_t>(entries) * 2 * sizeof(float)));
    for (int i = 0; i < entries; ++i) {
        const float* const from = table.entries + ptrdiff_t{polar_entry_floats} * i;
        tables->pairs[2 * i] = from[0];
        tables->pairs[2 * i + 1] = from[3];
    }
}

void free_entries(PolarTables* tables) {
    safe_free(tables->angular.entries);
    safe_free(tables->radial.entries);
    safe_free(tables->pairs);
    tables->angular.entries = tables->radial.entries = tables->pairs = nullptr;
}

}  // namespace

void flare_light(const float* color, float gamma, const float* tint, float saturation, float* out) {
    float light[3];
    for (int c = 0; c < 3; ++c) {
        const float own = std::clamp(color[c], -most_light, most_light);
        light[c] = (gamma == 1.0f ? own : std::pow(std::max(own, 0.0f), gamma)) * tint[c];
        light[c] = std::clamp(light[c], -most_light, most_light);
    }
    const float luma = luma_red * light[0] + (1 - luma_red - luma_blue) * light[1] + luma_blue * light[2];
    for (int c = 0; c < 3; ++c) {
        const float v = saturation == 1.0f ? light[c] : luma + (light[c] - luma) * saturation;
        out[c] = std::clamp(v, 0.0f, most_light);
    }
}

const PolarTables& prepare_polar_tables(LensFlarePolar* polar, const PolarInputs& inputs) {
    PolarTables*& tables = polar->tables;
    if (!tables) tables = safe_new_zeroed<PolarTables>();
    if (tables->radial.entries && tables->inputs == inputs) return *tables;
    free_entries(tables);
    tables->inputs = inputs;
    const bool shifted = polar->shift_edge != 0;
    const float width = std::clamp(polar->angle_width, 0.0f, tau);
    const int repeats = std::clamp(polar->repeats, 1, 10000);
    tables->arc_start = shifted ? 0 : polar->start_angle;
    tables->arc_width = shifted || width > tau - 0.001f ? tau : std::max(width, 1e-4f);
    const double entries = static_cast<double>(inputs.frame_width) * 6.0 * static_cast<double>(pi) /
                           (repeats * static_cast<double>(tables->arc_width));
    allocate(&tables->angular, table_size(std::floor(entries)), tables->arc_width == tau || repeats > 1);
    tables->angular.start = 0;
    tables->angular.scale = static_cast<float>(tables->angular.size) / tables->arc_width * static_cast<float>(repeats);
    fill_angular(*polar, inputs, tables);
    finish_levels(tables->angular);
    fill_pairs(tables);
    const float first = polar->radii[0], last = polar->radii[polar->number - 1];
    allocate(&tables->radial, table_size(std::round(entries)), false);
    tables->radial.start = first;
    tables->radial.scale = static_cast<float>(tables->radial.size - 1) / std::max(last - first, 1e-6f);
    fill_radial(*polar, inputs, tables->radial);
    finish_levels(tables->radial);
    return *tables;
}

void free_polar_tables(PolarTables* tables) {
    if (!tables) return;
    free_entries(tables);
    safe_free(tables);
}

}  // namespace velloran
