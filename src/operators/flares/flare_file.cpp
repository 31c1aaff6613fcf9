#include "operators/flares/flare_file.h"

#include "operators/flares/polar_tables.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/notices.h"
#include "support/unload.h"
#include "texts/config.h"
#include "texts/if_filter.h"
#include "texts/text_file.h"
#include "texts/text_reader.h"
#include "texts/title_case.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace velloran {

namespace {

constexpr float degree = 0.017453292519944444f;

// The definition in hand. Any function below answers false once something cannot be read.
struct Reading {
    const char* path;
    LensFlare* flare;
    bool has_center;
    bool reported;  // why it failed has been told
};

// A word that ends a definition before its time may begin the next one.
bool refuse(const char* word) {
    if (!std::strcmp(word, "begin")) unread_token(word);
    return false;
}

bool read_value(float* value) {
    const int code = read_number(value, nullptr);
    if (code == token_no_number) return refuse(get_last_non_number_string());
    return code == 0 && std::isfinite(*value);
}

bool read_values(float* values, int n) {
    for (int i = 0; i < n; ++i)
        if (!read_value(values + i)) return false;
    return true;
}

bool read_word(const char* expected) {
    char word[token_size];
    if (read_token(word) != 0) return false;
    return !std::strcmp(word, expected) || refuse(word);
}

bool read_after(const char* key, float* values, int n = 1) { return read_word(key) && read_values(values, n); }

int32_t whole_number(float value) { return static_cast<int32_t>(std::clamp(value, -1e9f, 1e9f)); }

bool read_whole_after(const char* key, int32_t* number) {
    float value;
    if (!read_after(key, &value)) return false;
    *number = whole_number(value);
    return true;
}

bool read_center(const Reading& in, FlareElement* element) {
    return !in.has_center || read_after("center", &element->center);
}

// A number for as long as there are numbers, and the word behind them.
bool read_radii(Reading& in, float* radii, int32_t* number, char* word_behind) {
    if (!read_word("radii")) return false;
    for (*number = 0;; ++*number) {
        float radius;
        const int code = read_number(&radius, nullptr);
        if (code == token_no_number) break;
        if (code != 0 || !std::isfinite(radius)) return false;
        if (*number == SPOT_MAX_COLORS) {
            V_error(level_error, "For %s, number of radii or colors exceeded SPOT_MAX_COLORS.", in.flare->name);
            in.reported = true;
            return false;
        }
        radii[*number] = radius;
    }
    std::strcpy(word_behind, get_last_non_number_string());
    return std::strcmp(word_behind, "begin") != 0 || refuse(word_behind);
}

template <class T>
T* new_element() {
    return new (safe_malloc(sizeof(T))) T;
}

// Room for one more element, or what there is too much of is told.
template <class T>
T* add_element(Reading& in, T** list, int32_t* count, int most, const char* kind, const char* limit) {
    if (*count == most) {
        V_error(level_error, "For %s, %s number exceeded %s.", in.flare->name, kind, limit);
        in.reported = true;
        return nullptr;
    }
    T* const element = new_element<T>();
    list[(*count)++] = element;
    return element;
}

bool read_spot(Reading& in, bool hexagon) {
    LensFlare& flare = *in.flare;
    LensFlareSpot* const spot =
        add_element(in, flare.spots, &flare.spot_count, LENS_FLARE_MAX_SPOTS, "spot", "LENS_FLARE_MAX_SPOTS");
    if (!spot) return false;
    spot->is_hexagon = hexagon;
    char word[token_size];
    return read_center(in, spot) && read_radii(in, spot->radii, &spot->number, word) &&
           read_values(spot->colors[0], 3 * spot->number);
}

bool read_rays(Reading& in) {
    LensFlare& flare = *in.flare;
    LensFlareRays* const rays =
        add_element(in, flare.rays, &flare.ray_count, LENS_FLARE_MAX_RAYS, "rays", "LENS_FLARE_MAX_RAYS");
    return rays && read_center(in, rays) && read_after("color", rays->color, 3) &&
           read_whole_after("ray_number", &rays->ray_number) && read_after("jitter_angles", &rays->jitter_angles) &&
           read_after("start_angle", &rays->start_angle) && read_after("radius_range", rays->radius_range, 2) &&
           read_after("ray_width", &rays->ray_width) && read_whole_after("rand_seed", &rays->rand_seed);
}

// The optional keys of a polar flare, in their order: a number, or a whole one.
struct PolarKey {
    const char* key;
    float LensFlarePolar::*number;
    int32_t LensFlarePolar::*whole;
};
// clang-format off
constexpr PolarKey polar_keys[] = {
    {"repeats",                  nullptr, &LensFlarePolar::repeats},
    {"start_angle",              &LensFlarePolar::start_angle, nullptr},
    {"angle_width",              &LensFlarePolar::angle_width, nullptr},
    {"rel_height",               &LensFlarePolar::rel_height, nullptr},
    {"offset_bright",            &LensFlarePolar::offset_bright, nullptr},
    {"arc_edge_softness",        &LensFlarePolar::arc_edge_softness, nullptr},
    {"wave_brightness",          &LensFlarePolar::wave_brightness, nullptr},
    {"wave_freq",                &LensFlarePolar::wave_freq, nullptr},
    {"wave_phase",               &LensFlarePolar::wave_phase, nullptr},
    {"wave_width",               &LensFlarePolar::wave_width, nullptr},
    {"wave_softness",            &LensFlarePolar::wave_softness, nullptr},
    {"noise_brightness",         &LensFlarePolar::noise_brightness, nullptr},
    {"noise_freq",               &LensFlarePolar::noise_freq, nullptr},
    {"noise_width",              &LensFlarePolar::noise_width, nullptr},
    {"noise_softness",           &LensFlarePolar::noise_softness, nullptr},
    {"noise_octaves",            nullptr, &LensFlarePolar::noise_octaves},
    {"r_wave_freq",              &LensFlarePolar::r_wave_freq, nullptr},
    {"r_wave_min",               &LensFlarePolar::r_wave_min, nullptr},
    {"r_wave_max",               &LensFlarePolar::r_wave_max, nullptr},
    {"r_noise_freq",             &LensFlarePolar::r_noise_freq, nullptr},
    {"r_noise_min",              &LensFlarePolar::r_noise_min, nullptr},
    {"r_noise_max",              &LensFlarePolar::r_noise_max, nullptr},
    {"r_noise_octaves",          nullptr, &LensFlarePolar::r_noise_octaves},
    {"r_spikyness",              &LensFlarePolar::r_spikyness, nullptr},
    {"shift_edge",               &LensFlarePolar::shift_edge, nullptr},
    {"rotate_to_pivot",          nullptr, &LensFlarePolar::rotate_to_pivot},
    {"scale_brightness_by_dist", &LensFlarePolar::scale_brightness_by_dist, nullptr},
    {"scale_width_by_dist",      &LensFlarePolar::scale_width_by_dist, nullptr},
    {"rays_p",                   nullptr, &LensFlarePolar::rays_p},
    {"rand_seed",                nullptr, &LensFlarePolar::rand_seed},
};
// clang-format on

bool read_polar_keys(LensFlarePolar* polar) {
    polar->angle_width = 360;
    char word[token_size];
    if (read_token(word) != 0) return false;
    for (const PolarKey& key : polar_keys) {
        if (std::strcmp(word, key.key)) continue;
        float value;
        if (!read_value(&value)) return false;
        if (key.number)
            polar->*key.number = value;
        else
            polar->*key.whole = whole_number(value);
        if (read_token(word) != 0) return false;
    }
    unread_token(word);
    // A plain one is to be seen.
    if (polar->offset_bright == 0.0f && polar->wave_brightness == 0.0f && polar->noise_brightness == 0.0f)
        polar->offset_bright = 1;
    polar->start_angle *= degree;
    polar->angle_width *= degree;
    return true;
}

bool read_polar(Reading& in) {
    LensFlare& flare = *in.flare;
    LensFlarePolar* const polar =
        add_element(in, flare.polars, &flare.polar_count, LENS_FLARE_MAX_POLARS, "polar", "LENS_FLARE_MAX_POLARS");
    char word[token_size];
    if (!polar || !read_center(in, polar) || !read_polar_keys(polar) ||
        !read_radii(in, polar->radii, &polar->number, word))
        return false;
    const bool scaled = !std::strcmp(word, "scale_colors");
    float scales[SPOT_MAX_COLORS];
    if (scaled && !(read_values(scales, polar->number) && read_word("colors"))) return false;
    if (!read_values(polar->colors[0], 3 * polar->number)) return false;
    for (int i = 0; scaled && i < polar->number; ++i)
        for (float& color : polar->colors[i]) color *= scales[i];
    return true;
}

bool read_elements(Reading& in) {
    char word[token_size];
    while (read_token(word) == 0) {
        if (!std::strcmp(word, "end")) return true;
        if (!std::strcmp(word, "spot") || !std::strcmp(word, "blob") || !std::strcmp(word, "ring")) {
            if (!read_spot(in, false)) return false;
        } else if (!std::strcmp(word, "hexagon")) {
            if (!read_spot(in, true)) return false;
        } else if (!std::strcmp(word, "rays")) {
            if (!read_rays(in)) return false;
        } else if (!std::strcmp(word, "polar_flare")) {
            if (!read_polar(in)) return false;
        } else {
            V_error(level_error,
                    "Lens flare %s: got '%s' expected: spot, ring, rays, hexagon, blob, polar_flare, or end",
                    in.flare->name, word);
            in.reported = true;
            return refuse(word);
        }
    }
    return false;
}

// The definition behind a "begin". A text that ends or breaks off within it is a failure like any other.
LensFlare* read_definition(const char* path, bool has_center, const char* prefix) {
    char name[token_size];
    const int code = read_token(name);
    if (code == token_end) return nullptr;
    LensFlare* const flare = safe_new_zeroed<LensFlare>();
    push_abort_cleanup([](void* f) { free_lens_flare(static_cast<LensFlare*>(f)); }, flare);
    std::snprintf(flare->name, sizeof flare->name, "%.20s %.78s", prefix, name);
    Reading in = {path, flare, has_center, false};
    const bool read = code == 0 && read_elements(in);
    if (!read && !in.reported) V_error(level_error, "In %s failed reading %s.", path, flare->name);
    pop_abort_cleanup();
    if (read) return flare;
    free_lens_flare(flare);
    return nullptr;
}

FlareTable lens_flares, glares;

void free_table(FlareTable& table) {
    for (LensFlare* const flare : table.flares)
        if (flare) free_lens_flare(flare);
    for (char* const name : table.names) safe_free(name);
    table = {};
}

void load_table(FlareTable& table, const char* path, int has_center, const char* prefix) {
    if (table.loaded) return;
    free_at_unload([] {
        free_table(lens_flares);
        free_table(glares);
    });
    push_abort_cleanup([](void* half) { free_table(*static_cast<FlareTable*>(half)); }, &table);
    table.count = load_lens_flares_from_file(path, table.flares, max_flares_in_table, has_center, prefix);
    for (int i = 0; i < table.count; ++i) {
        char shown[flare_name_size];
        param_display_name(shown, sizeof shown, table.flares[i]->name);
        table.names[i] = safe_strdup(shown);
    }
    pop_abort_cleanup();
    table.loaded = true;
}

}  // namespace

int load_lens_flares_from_file(const char* path, LensFlare** table, int max_number, int has_center,
                               const char* prefix) {
    if (notices_p()) {
        std::printf("Loading: %s \n", path);
        std::fflush(stdout);
    }
    char* const text = read_data_text(path, "load_lens_flares_from_file: ", "Error opening lens flare file:");
    if (!text) return 0;
    push_abort_cleanup(safe_free, text);
    remove_comments_and_false_if_statements(text, path);
    parser_state outer;
    save_parser_state(&outer);
    const int outer_unread = unread_token_p;
    unread_token_p = 0;
    open_reading_from_string(text);
    int count = 0;
    char word[token_size];
    for (int code; (code = read_token(word)) != token_end;) {
        if (code != 0 || std::strcmp(word, "begin")) continue;
        if (count == max_number) {
            V_error(level_error, "While loading %s, exceeded max_number %d.\n", path, max_number);
            break;
        }
        if (LensFlare* const flare = read_definition(path, has_center != 0, prefix)) table[count++] = flare;
    }
    restore_parser_state(&outer);
    unread_token_p = outer_unread;
    pop_abort_cleanup();
    safe_free(text);
    return count;
}

void free_lens_flare(LensFlare* flare) {
    if (!flare) {
        V_error(level_error, "free_lens_flare: given NULL.");
        return;
    }
    for (int i = 0; i < flare->spot_count; ++i) safe_free(flare->spots[i]);
    for (int i = 0; i < flare->ray_count; ++i) safe_free(flare->rays[i]);
    for (int i = 0; i < flare->polar_count; ++i) {
        free_polar_tables(flare->polars[i]->tables);
        safe_free(flare->polars[i]);
    }
    safe_free(flare);
}

FlareTable& lens_flare_table() {
    load_table(lens_flares, config_paths.lensflares, 1, "Lens:");
    return lens_flares;
}

FlareTable& glare_table() {
    load_table(glares, config_paths.glares, 0, "Type:");
    return glares;
}

LensFlare* flare_of_type(FlareTable& table, int type) {
    if (type < 0 || type >= table.count) {
        V_error(level_error, "lens flare type %d is out of bounds: 0 - %d.", type, table.count - 1);
        type = 0;
    }
    return table.count ? table.flares[type] : nullptr;
}

}  // namespace velloran
