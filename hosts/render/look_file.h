// Looks: named settings of an effect that come along with it, as a plain text.
//
//     // A low sun: warm lights over cool shadows.
//     Grade:Warm_Evening
//       exposure=0.2  gain=1.15,1,0.85
//       lift=0,0,0.02
//
// A line that begins at the margin names an effect and the look; the comment lines right above tell what it is for. The
// lines below it, set in, give values by the names of params, as -p takes them; params that are not named keep their
// defaults. Places in pixels count for a frame of 1920 by 1080 and stand at the same share of any other. The looks of a
// family NAME lie in looks/NAME.looks beside the data files, those of a text my.text in my.looks beside it.
#pragma once

#include "hosts/render/render_plan.h"

#include <string>
#include <vector>

namespace render {

struct Look {
    std::string effect, name, note;
    std::vector<std::string> values;  // NAME=V[,V...]
    std::string place;                // file and line, for messages
};

// All looks of a plug-in or text in the order of its file; none if there is no such file. Fails with file and line if
// it is damaged.
std::vector<Look> read_looks(const EffectChoice& choice, const std::string& config);

// Those of one effect.
std::vector<Look> looks_of(const std::vector<Look>& looks, const std::string& effect);

// A look of the chosen effect. Fails with a suggestion if there is no such look.
Look find_look(const RenderPlan& plan, const std::string& name);

// Its values, ready to be applied. Fails with the look's place if one does not fit the effect.
std::vector<Assignment> read_look(const RenderPlan& plan, const std::string& name);

}  // namespace render
