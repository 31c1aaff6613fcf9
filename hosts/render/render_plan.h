// Everything about a render that is known before the first frame is made. Making the plan finds what is wrong.
#pragma once

#include "hosts/render/commands.h"
#include "hosts/render/effect.h"
#include "hosts/render/inputs.h"
#include "hosts/render/values.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace render {

struct RenderPlan {
    EffectChoice choice;
    std::string setup;  // values that come with the effect, see setup_file.h; empty: none
    std::string config;
    spark_host::Host host;
    std::vector<std::unique_ptr<InputClip>> inputs;  // in the order of the effect's
    std::unique_ptr<spark_host::Plugin> plugin;      // started, after the inputs: it goes first
    PluginDescription description;
    size_t effect = 0;
    std::vector<Assignment> assignments;
    spark_host::SequencePath output;
    bool movie = false;      // output is one file with all frames
    bool to_stdout = false;  // output is standard output
    std::string pipe;        // how frames go there, one after the other; empty: as a picture
    bool endless = false;    // frames come until the pipe that gives them ends; frames holds the first
    spark_host::Compression compression = spark_host::Compression::usual;
    int beside = 1;            // frames that are read, and written, beside each other
    std::string format_path;   // its ending names the output's format
    std::vector<int> frames;   // to render, in order
    std::vector<int> skipped;  // gaps that --missing skip leaves out
    int first_frame = 1;       // number of the clip's first frame
    // The effect remembers: all frames from begin_with on are made, in order, and those asked for are written.
    bool remembers = false;
    int begin_with = 0;
    // Another number of frames comes out than is in the clip. Until settle_frames the frames are those of the clip.
    bool retimes = false;
};

// Once the values are on the controls: the frames that come out, where there are others than those of the clip. Has the
// plug-in measure the clip first if a button asked for that. Fails with the reason.
void settle_frames(RenderPlan& plan, const RenderOptions& options);

// The clip's frame that goes with a frame to render.
int clip_frame(const RenderPlan& plan, int frame);

// The frames to make so that those of todo, which are in order, can be written.
std::vector<int> frames_to_make(const RenderPlan& plan, const std::vector<int>& todo);

// Reads all that the frames are made from and answers the frames that fail, each with the reason.
std::map<int, std::string> unreadable_frames(RenderPlan& plan, const std::vector<int>& frames);

// Fails with the reason. Gaps are listed before anything else is done.
std::unique_ptr<RenderPlan> make_plan(const RenderOptions& options);

// For people, as --dry-run prints it.
std::string plan_text(const RenderPlan& plan, const std::vector<int>& existing,
                      const std::map<int, std::string>& unreadable);

// What each frame is made from, but its number.
std::string plan_recipe(const RenderPlan& plan, const RenderOptions& options);

}  // namespace render
