// Setup files: what an artist set, kept between sessions; and the edits of the host's own setup that go with them.
// Numbers are written and read without regard to the locale. Host's thread only.
#pragma once

#include "records/param.h"

namespace velloran {

// Writes all values to a temporary file beside path, which then takes its place. 0, or -1 after a message.
int save_setup(const char* path);

// Reads values back. Reading stops at the first fault, with its message; what was read until then stands. The caller
// shows the selected effect afterwards (setup_effect_buttons). -1 on failure, else the number of items in the last
// read.
int load_setup(const char* path);

// At the first render on the desktop: fits positions and the crop to a frame whose size is not the one in the setup.
void fix_setup_frame_size();

// At the first run of frames: animates a transition param from 0 to 1 over the clip, unless the user did.
void setup_autotrans_curve(Param* p);

// The host's own setup: "%sch". Saving takes the frame's size from the record if the frame now differs.
int save_channel_setup(const char* path);
int load_channel_setup(const char* path);

// Copies a path without the marks that builds put into module names, so that setups keep their names across builds.
void strip_name_tags(char* dest, const char* source, int size);

// Where the setup of the module of this name is kept: its path without such marks. A folder keeps the marks in its own
// name ("shot_64") unless the folder without them is there, since a file cannot be kept in a folder that is not.
void setup_path(char* dest, const char* name, int size);

// The edits themselves, from one open text to another; 1 if the copy is whole. Lines are read in pieces of 999
// characters.
int rewrite_frame_size(const char* from, const char* to, int width, int height);
int rewrite_curve_linear(const char* from, const char* to, int number, bool by_key);

// Where temporary copies of the host's setup go.
extern const char* temp_setup_in;
extern const char* temp_setup_out;

}  // namespace velloran
