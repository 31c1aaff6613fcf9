// The command that makes the same pictures as the window.
#pragma once

#include "hosts/render/render_plan.h"

#include <string>
#include <vector>

namespace desk {

// length: of a clip of stills, 0: one. What options cannot say goes into a setup in the directory given.
std::vector<std::string> render_arguments(const render::RenderPlan& plan, int length, const std::string& output,
                                          const std::string& frames, const std::string& directory);
// As a shell takes it.
std::string render_line(const render::RenderPlan& plan, int length, const std::string& output,
                        const std::string& frames, const std::string& directory);
std::string shell_word(const std::string& word);

}  // namespace desk
