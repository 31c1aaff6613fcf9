// What a text says to people about its effects and their params, in its comments:
//
//     // Light over the picture.
//     (def_effect Warm_Glow (Source) ()
//       width = 0.1 (min 0 max 8)  // How far it reaches. Unit: eighths of the width. Usual: 0 to 1.
//
// The comment lines right above a definition tell what it is for. The comment behind a declaration, or the line above
// it, is a sentence about the param; "Unit:" and "Usual:" at its end give the unit and the range that most people need.
#pragma once

#include "hosts/render/effect.h"

#include <string>

namespace render {

// Fills the notes of all effects from the text that defines them.
void read_notes(const std::string& text, PluginDescription& description);

}  // namespace render
