// Lens flares as the data files define them: fields only. A flare is a list of elements that shed light at places on
// the line from a pivot to the light, the hotspot.
#pragma once

#include <cstdint>

namespace velloran {

constexpr int LENS_FLARE_MAX_SPOTS = 39;
constexpr int LENS_FLARE_MAX_RAYS = 9;
constexpr int LENS_FLARE_MAX_POLARS = 9;
constexpr int SPOT_MAX_COLORS = 11;
constexpr int flare_name_size = 100;

// What every element has. Lengths in a file count in units of the flare's size.
struct FlareElement {
    float center = 1;  // place on the line: 0 the pivot, 1 the hotspot
    bool on_hotspot() const { return center == 1.0f; }
};

// Rings of light around a centre, or hexagons; with one radius a soft disc.
struct LensFlareSpot : FlareElement {
    int32_t number = 0;  // of radii
    bool is_hexagon = false;
    float radii[SPOT_MAX_COLORS] = {};
    float colors[SPOT_MAX_COLORS][3] = {};
};

struct LensFlareRays : FlareElement {
    float color[3] = {};
    int32_t ray_number = 0;
    float start_angle = 0;    // degrees
    float jitter_angles = 0;  // of the angle between two rays
    float radius_range[2] = {};
    float ray_width = 0;
    int32_t rand_seed = 0;
};

struct PolarTables;

// A ramp of colours over the radius, shaped by waves and noise over the angle.
struct LensFlarePolar : FlareElement {
    int32_t repeats = 1;
    float start_angle = 0, angle_width = 0;  // radians
    float rel_height = 1;
    float offset_bright = 0;
    float arc_edge_softness = 0;
    float wave_brightness = 0, wave_freq = 1, wave_phase = 0, wave_width = 1, wave_softness = 1;
    float noise_brightness = 0, noise_freq = 1, noise_width = 1, noise_softness = 1;
    int32_t noise_octaves = 1;
    float r_wave_freq = 1, r_wave_min = 1, r_wave_max = 1;
    float r_noise_freq = 1, r_noise_min = 1, r_noise_max = 1;
    int32_t r_noise_octaves = 3;
    float r_spikyness = 1;
    float shift_edge = 0;
    int32_t rotate_to_pivot = 0;
    float scale_brightness_by_dist = 0, scale_width_by_dist = 0;
    int32_t rays_p = 1;
    int32_t rand_seed = 0;
    int32_t number = 0;  // of radii
    float radii[SPOT_MAX_COLORS] = {};
    float colors[SPOT_MAX_COLORS][3] = {};
    PolarTables* tables = nullptr;  // owned; made when it is first drawn (polar_tables.h)
};

// Elements are owned and lie in the order of the file.
struct LensFlare {
    char name[flare_name_size];
    int32_t spot_count, ray_count, polar_count;
    LensFlareSpot* spots[LENS_FLARE_MAX_SPOTS];
    LensFlareRays* rays[LENS_FLARE_MAX_RAYS];
    LensFlarePolar* polars[LENS_FLARE_MAX_POLARS];
};

}  // namespace velloran
