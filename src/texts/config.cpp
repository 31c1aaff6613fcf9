#include "texts/config.h"

#include "support/errors.h"
#include "support/files.h"
#include "texts/characters.h"

#include <cerrno>
#include <climits>
#include <cstring>

namespace velloran {

namespace {

constexpr float shortest_rate = 0.001f;

constexpr Config default_config = {
    .enable_pointer_abort = 1,
    .pointer_abort_seconds = 2.0f,
    .pointer_read_lock = -1,
    .use_curves_in_fields = 0,
    .load_save_channel_setups = 0,
    .force_frames_per_second = 0,
    .max_cpus = INT_MAX,
    .use_footage_pixel_aspect_ratio = 0,
    .force_pixel_aspect_ratio = 0,
    .input_lut = "",
    .output_lut = "",
};

}  // namespace

Config config = default_config;
ConfigPaths config_paths;

namespace {

bool config_read = false;

enum KeyKind : int { key_boolean = 0, key_integer = 1, key_float = 2, key_text = 3, key_custom = 4 };

// Custom keys: store the token's value; false if it is illegal.

bool store_pointer_read_lock(const char* token) {
    float value;
    if (parse_float(token, &value)) {
        config.pointer_read_lock = value < 0 ? -1 : value;
        return true;
    }
    config.pointer_read_lock = -1;
    return to_lower(token[0]) == 'n' && to_lower(token[1]) == 'o' && token[2] == 0;
}

bool store_frame_rate(const char* token) {
    float value;
    if (!parse_float(token, &value) || value < 0) return false;
    config.force_frames_per_second = value > shortest_rate ? value : 0;
    return true;
}

bool store_pixel_aspect(const char* token) {
    float value = -1;
    if (!parse_float(token, &value)) value = -1;
    config.force_pixel_aspect_ratio = value > shortest_rate ? value : 0;
    return value >= 0;
}

struct ConfigKey {
    const char* name;
    KeyKind kind;
    bool required;
    void* value;                        // int, float or token_size characters, by the kind
    bool (*custom)(const char* token);  // for key_custom
    bool seen;
};

ConfigKey config_keys[] = {
    // clang-format off
    {"enable_pointer_abort",           key_boolean, true,  &config.enable_pointer_abort,           nullptr,                 false},
    {"pointer_abort_seconds",          key_float,   true,  &config.pointer_abort_seconds,          nullptr,                 false},
    {"pointer_read_lock",              key_custom,  true,  nullptr,                                store_pointer_read_lock, false},
    {"use_curves_in_fields",           key_boolean, true,  &config.use_curves_in_fields,           nullptr,                 false},
    {"load_save_channel_setups",       key_boolean, true,  &config.load_save_channel_setups,       nullptr,                 false},
    {"force_frames_per_second",        key_custom,  true,  nullptr,                                store_frame_rate,        false},
    {"max_cpus",                       key_integer, true,  &config.max_cpus,                       nullptr,                 false},
    {"use_footage_pixel_aspect_ratio", key_integer, true,  &config.use_footage_pixel_aspect_ratio, nullptr,                 false},
    {"force_pixel_aspect_ratio",       key_custom,  true,  nullptr,                                store_pixel_aspect,      false},
    {"input_lut",                      key_text,    false, config.input_lut,                       nullptr,                 false},
    {"output_lut",                     key_text,    false, config.output_lut,                      nullptr,                 false},
    // clang-format on
};

ConfigKey* find_key(const char* name) {
    for (ConfigKey& key : config_keys)
        if (std::strcmp(key.name, name) == 0) return &key;
    return nullptr;
}

bool store_value(const ConfigKey& key, const char* token) {
    int number;
    switch (key.kind) {
        case key_boolean:
        case key_integer:
            if (!parse_int(token, &number)) return false;
            *static_cast<int*>(key.value) = key.kind == key_boolean ? number != 0 : number;
            break;
        case key_float:
            if (!parse_float(token, static_cast<float*>(key.value))) return false;
            break;
        case key_text:
            if (!*token) return false;
            std::snprintf(static_cast<char*>(key.value), token_size, "%s", token);
            break;
        case key_custom:
            if (!key.custom(token)) return false;
            break;
    }
    return true;
}

void read_keys() {
    char token[token_size];
    int code;
    while ((code = read_token(token)) != token_end) {
        const size_t length = std::strlen(token);
        if (length == 0 || token[length - 1] != ':') continue;
        token[length - 1] = 0;
        ConfigKey* const key = find_key(token);
        if (!key) continue;
        if (key->seen) V_error(level_warning, "Already saw %s in config file", key->name);
        if ((code = read_token(token)) == token_end) {
            V_error(level_error, "EOF while reading value for %s", key->name);
            return;
        }
        key->seen = code == 0 && store_value(*key, token);
        if (!key->seen) V_error(level_error, "Illegal value in config file for %s: %s", key->name, token);
    }
}

}  // namespace

void set_config_paths() {
    const auto join = [](char* path, const char* name) {
        std::snprintf(path, sizeof(config_paths.config), "%s%c%s", get_config_dir(), '/', name);
    };
    join(config_paths.config, "v_config.text");
    join(config_paths.lensflares, "v_lensflares.text");
    join(config_paths.glares, "v_glares.text");
    join(config_paths.filmtypes, "v_filmtypes.text");
}

void read_config_file(const char* path) {
    FILE* const file = safe_fopen(path, "r", 0);
    if (!file) {
        V_error(level_error, "Failed opening config file: %s: %s", path, std::strerror(errno));
        return;
    }
    for (ConfigKey& key : config_keys) key.seen = false;
    parser_state outer;
    save_parser_state(&outer);
    const int outer_unread = unread_token_p;
    unread_token_p = 0;
    reading_from_file_ptr = file;
    read_keys();
    safe_fclose(file);
    restore_parser_state(&outer);
    unread_token_p = outer_unread;
    for (const ConfigKey& key : config_keys)
        if (key.required && !key.seen)
            V_error(level_warning, "Expected to find %s in config file, but didn't.", key.name);
}

void read_config_once() {
    if (config_read) return;
    config_read = true;
    set_config_paths();
    read_config_file(config_paths.config);
}

void reset_config() {
    config = default_config;
    config_read = false;
}

}  // namespace velloran
