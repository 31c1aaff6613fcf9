// The configuration file v_config.text: "KEY: VALUE" pairs in any order. Everything else in it is passed over, effect
// definitions among it. Host's thread only.
#pragma once

#include "texts/text_reader.h"

namespace velloran {

struct Config {
    int enable_pointer_abort;       // 1: the pen can abort a render
    float pointer_abort_seconds;    // how long it must be held
    float pointer_read_lock;        // -1: none
    int use_curves_in_fields;       // 1: the second field reads the curves at its own time
    int load_save_channel_setups;   // 1: the host's channel setups are read and written
    float force_frames_per_second;  // 0: as the host says
    int max_cpus;
    int use_footage_pixel_aspect_ratio;  // 1: the host's, where it knows one
    float force_pixel_aspect_ratio;      // 0: none given
    char input_lut[token_size];          // paths; empty: none
    char output_lut[token_size];
};

// Values of the file, or the defaults. Who wants one asks for it here.
extern Config config;

// Paths in the configuration directory.
struct ConfigPaths {
    char config[400], lensflares[400], glares[400], filmtypes[400];
};
extern ConfigPaths config_paths;
void set_config_paths();  // from get_config_dir

// Sets the paths and reads the file, the first time only.
void read_config_once();
// Reads a file. A value that cannot be used is reported and keeps the default, as does a missing key.
void read_config_file(const char* path);
// Defaults everywhere, and the file unread.
void reset_config();

}  // namespace velloran
