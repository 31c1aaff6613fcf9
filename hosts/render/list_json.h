// What a program says in JSON about plug-ins; docs/schema holds the form.
#pragma once

#include "hosts/render/effect.h"
#include "hosts/render/look_file.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace render {

// All effects of a plug-in, or only one, with their looks out of those of the plug-in, and the standard controls that
// can be set.
nlohmann::ordered_json plugin_json(const std::string& plugin, const PluginDescription& description,
                                   const EffectDescription* only, const std::vector<Look>& looks);

// Numbers in texts are short; their floats are shown so, and not to the last bit.
std::string list_number(float value);

// The entries of a popup: those of the first channel, for those of the others are alike but for their name.
std::vector<std::string> first_labels(const ParamDescription& param);

// True of params that have bounds and steps.
bool has_range(const ParamDescription& param);

}  // namespace render
