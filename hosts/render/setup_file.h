// Setup files: what was set, to be set again.
//
//     velloran-setup 1
//     effect color:Grade
//     made-by velloran 4.04
//     size 1920 1080
//     param exposure 0.5
//     param tint 1 0.8 0.6
//     key gamma 0 1 0.5 linear
//     text title "two words"
//     control res_factor 0
//     end
//
// One line for each value: a param or standard control by its name, then one number for each channel. Keys give
// channel, frame (of the clip, whose first is 1), value, and the way to the next key; they follow the line of their
// param. "end" is the last line of a file that is whole. Numbers are the same in every locale.
//
// Setups as hosts write them for any plug-in (hosts/common/setup_text.h) and those of the library's own form are read
// too.
#pragma once

#include "hosts/render/render_plan.h"

#include <string>
#include <vector>

namespace render {

// A name as one word: blanks are underscores.
std::string underscored(std::string name);

// The values of a setup, in the order of its lines, ready to be applied; forms that set controls by number are applied
// at once. Names that the effect does not have, and params that the file does not name, are told. Fails if the file is
// another effect's, or not whole.
std::vector<Assignment> read_setup(RenderPlan& plan, const std::string& path);

// The same from a text of the form above; name stands in messages.
std::vector<Assignment> read_setup_lines(const RenderPlan& plan, const std::string& name, const std::string& text);

// All values of the chosen effect and of the standard controls, as they are now.
std::string setup_lines(const RenderPlan& plan);

// Shows the chosen effect and gives it the values of the look or the setup and those of the command line, which count
// more.
void apply_values(RenderPlan& plan, const RenderOptions& options);

// Writes all values of the chosen effect and of the standard controls, as they are now.
void save_setup(const RenderPlan& plan, const std::string& path);

}  // namespace render
