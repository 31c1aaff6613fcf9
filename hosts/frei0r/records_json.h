// Records as JSON: how they stand inside the library of the modules, and for programs that want to know them.
#pragma once

#include "hosts/frei0r/records.h"

#include <nlohmann/json.hpp>

namespace frei0r {

NLOHMANN_JSON_SERIALIZE_ENUM(
    Kind, {{Kind::boolean, "boolean"}, {Kind::number, "number"}, {Kind::colour, "colour"}, {Kind::text, "text"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Scale, {{Scale::even, "even"}, {Scale::whole, "whole"}, {Scale::entries, "entries"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Param, name, param, channel, kind, scale, low, high, defaults, note, labels)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Module, slug, effect, title, note, inputs, params)

}  // namespace frei0r
