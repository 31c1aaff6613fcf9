// Loading a plug-in's effects and choosing the one in force. Host's thread only.
#pragma once

#include "records/genotype.h"
#include "spark/spark.h"

namespace velloran {

// Reads all effect_strings of the record. One that fails is reported and leaves no genotype at its index; where none
// can be read it ends in the fatal abort.
void load_effects_from_strings();
// Index of the first effect that could be read; 0 where there is none.
int first_usable_effect();
// Reads the one effect named like the plug-in from the configuration file. A failure takes the fatal abort.
void load_effect_from_config();
// Field and alpha options of the first effect go to all others.
void copy_effect_options();

// The effect of that index is the one in force. setup: compile it for this frame.
void select_effect_i(int index, int setup);
// The same, and the controls show it. silent: write colours and the host's channels too.
void spark_select_effect_i(int index, int setup, int silent);

// Name of an input, from 0. Static storage, overwritten by the next call.
const char* get_effect_input_image_name(int input);
// Channels that the host is to give for an input of that name; 0 its luminance input without matte.
int input_channels_by_name(const char* input_name, const Genotype* genotype);

void init_popup_effect_button();
void free_popup_effect_button();
// Body of V4_effect_popup_callback.
void* effect_popup_callback(int action, SparkInfoStruct* info, int copy);

}  // namespace velloran
