// Everything about a render that is known before the first frame is made. Making the plan finds what is wrong.
#pragma once

#include "hosts/render/commands.h"
#include "hosts/render/effect.h"
#include "hosts/render/inputs.h"
#include "hosts/render/values.h"

#include <memory>
#include <string>
#include <vector>

namespace render {

struct RenderPlan {
    EffectChoice choice;
    std::string config;
    spark_host::Host host;
    std::vector<std::unique_ptr<InputClip>> inputs;  // in the order of the effect's
    std::unique_ptr<spark_host::Plugin> plugin;      // started, after the inputs: it goes first
    PluginDescription description;
    size_t effect = 0;
    std::vector<Assignment> assignments;
    spark_host::SequencePath output;
    std::vector<int> frames;   // to render, in order
    std::vector<int> skipped;  // gaps that --missing skip leaves out
    int first_frame = 1;       // number of the clip's first frame
};

// Fails with the reason. Gaps are listed before anything else is done.
std::unique_ptr<RenderPlan> make_plan(const RenderOptions& options);

// For people, as --dry-run prints it.
std::string plan_text(const RenderPlan& plan, const std::vector<int>& existing);

// What each frame is made from, but its number.
std::string plan_recipe(const RenderPlan& plan, const RenderOptions& options);

}  // namespace render
