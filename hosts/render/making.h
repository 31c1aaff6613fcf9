// How a picture was made, as it is kept in the picture: effect, text and values, so that it can be made again.
#pragma once

#include "hosts/render/render_plan.h"

#include <string>

namespace render {

struct Making {
    std::string made_by;  // program and version
    EffectChoice choice;  // with the text of definitions, where the plug-in has none of its own
    std::string setup;    // see setup_file.h
};

// One line of printable ASCII. The values are those on the controls now.
std::string making_text(const RenderPlan& plan);
// Of a picture's file. Fails if it does not say, or what it says is damaged.
Making read_making(const std::string& path);

}  // namespace render
