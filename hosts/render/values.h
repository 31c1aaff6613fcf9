// Values for params and standard controls, as given on the command line: NAME=V[,V...], with keys V[,V...]@FRAME.
#pragma once

#include "hosts/render/effect.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace render {

struct ValueKey {
    bool timed = false;
    int frame = 0;  // the files' own number
    spark_host::Interpolation interpolation = spark_host::Interpolation::linear;
    int channel = -1;  // that values[0] is for; -1: one value for each channel
    std::vector<float> values;
};

// One assignment, ready to be applied.
struct Assignment {
    const ParamDescription* param = nullptr;
    std::vector<ValueKey> keys;  // one without a time, then any number with
    std::string text;            // of a string param
};

// Reads "NAME=VALUE" for one of the params. Fails with the reason, suggesting a name or label.
Assignment parse_param(const std::string& argument, const std::vector<ParamDescription>& params);
// Reads "KEY=VALUE" for standard controls; "crop=l,t,r,b" gives five assignments, the last one enabling the crop.
std::vector<Assignment> parse_control(const std::string& argument, const std::vector<ParamDescription>& standard);

// Shows the effect on the plug-in's popup, as a user would choose it.
void select_effect(spark_host::Plugin& plugin, const PluginDescription& description, size_t effect);
// Sets values and curves and tells the plug-in. first_frame: number of the clip's first frame.
void apply_assignment(spark_host::Plugin& plugin, const Assignment& assignment, int first_frame);
// What puts params back to their defaults: of all that have a value, but texts, whose defaults are not known.
std::vector<Assignment> default_values(std::span<const ParamDescription> params);
// True if it presses a button.
bool pressed_p(const Assignment& assignment);
// Once a run of frames has begun, params that move by themselves have their curves: those that were given one value for
// all frames are held at it.
void hold_given_values(spark_host::Plugin& plugin, const std::vector<Assignment>& assignments, int first_frame);
// What the controls show, by number, and telling the plug-in of all that show something else now.
std::map<int, std::string> shown_values(const spark_host::Plugin& plugin);
void tell_changes(spark_host::Plugin& plugin, const PluginDescription& description,
                  const std::map<int, std::string>& before);

// The name by which -p or -c sets a param; for standard controls its key, for the crop's edges "crop_left" and so on.
std::string settable_name(const ParamDescription& param);
// False for labels, and for buttons that do something at once.
bool settable_p(const ParamDescription& param);

}  // namespace render
