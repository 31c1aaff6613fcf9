// Values for params and standard controls, as given on the command line: NAME=V[,V...], with keys V[,V...]@FRAME.
#pragma once

#include "hosts/render/effect.h"

#include <string>
#include <vector>

namespace render {

struct ValueKey {
    bool timed = false;
    int frame = 0;  // the files' own number
    std::vector<float> values;
};

// One assignment, ready to be applied.
struct Assignment {
    const ParamDescription* param = nullptr;
    std::vector<ValueKey> keys;  // one without a time, or all with
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
// Loads a host setup and tells the plug-in what changed.
void apply_setup(spark_host::Plugin& plugin, const PluginDescription& description, const std::string& path);

}  // namespace render
