// Finding the effect that a command names, loading the plug-in that holds it, and what it says about itself.
#pragma once

#include "hosts/common/plugin.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace render {

struct ParamDescription {
    int effect = -1;  // -1: a standard control
    std::string name, key, kind, group;
    int variant = 0;
    int channels = 1;
    std::string channel_names[4];
    std::vector<int> numbers;  // of the channels; of a standard control its copies
    bool hidden = false, on_screen = false;
    bool pixels = false;  // in pixels of the full frame
    bool moves = false;   // runs over the clip by itself as long as nobody sets it
    float defaults[4] = {0, 0, 0, 0};
    std::optional<float> min, max;            // values are held to them
    std::optional<float> soft_min, soft_max;  // what most people need
    std::string note, unit;                   // a sentence, and what a value of 1 is; empty: not told
    float step = 0;
    std::vector<std::string> labels;
};

struct EffectDescription {
    int index = 0;
    std::string name;
    std::vector<std::string> inputs;
    std::string note;           // what it is for; empty: not told
    bool remembers = false;     // a frame depends on the frames made before it
    bool reads_frames = false;  // other frames of the clips are looked at
    bool retimes = false;       // another number of frames comes out than is in the clip: see frames_that_come_out
    std::vector<ParamDescription> params;
};

struct PluginDescription {
    std::vector<EffectDescription> effects;
    std::vector<ParamDescription> standard;
};

// What a command's EFFECT stands for.
struct EffectChoice {
    std::string plugin;           // short name, of a text that of the file without its ending
    std::string module_path;      // the module to load
    std::string text_path, text;  // of definitions; empty for a plug-in with its own
    std::string effect;           // name as given, empty: the first
};

// A plug-in's name, "plugin:effect", a path to a text, "path:effect", or a path to a module. Fails with a suggestion.
EffectChoice choose_effect(const std::string& argument);

// A definition of a text that is in memory; an empty effect stands for the first. name stands for a path. Fails if it
// is no text.
EffectChoice choose_text(const std::string& text, const std::string& name, const std::string& effect);

// The module of a plug-in with that short name; empty if there is none.
std::string find_module(const std::string& name);

// All plug-ins that can be named, sorted.
std::vector<std::string> plugin_names();

// Loads the chosen plug-in without starting it. config: directory of its data files.
std::unique_ptr<spark_host::Plugin> load_choice(spark_host::Host& host, const EffectChoice& choice,
                                                const std::string& config);

// Of a started plug-in.
PluginDescription describe_plugin(const spark_host::Plugin& plugin);

// How many frames come out of a clip of so many, as the controls stand.
int frames_that_come_out(const spark_host::Plugin& plugin, int frames);

// Index in description.effects of the effect chosen. Fails with a suggestion.
size_t find_effect(const PluginDescription& description, const EffectChoice& choice);

struct TextMessage {
    int level = 0;             // as the library counts: 8 and more are errors, 5 to 7 warnings
    int line = 0, column = 0;  // from 1; 0: no place
    std::string text;
};
// What is wrong with the definitions of a text, in order. effect: null for all, "" for the first, or a name. Answers
// the number of definitions that failed.
int check_text(const spark_host::Plugin& text_module, const std::string& text, const std::string& path,
               const char* effect, std::vector<TextMessage>& messages);
bool error_p(const TextMessage& message);
const char* severity(const TextMessage& message);
// The form that editors read, with the line and a caret below where the message has a place.
std::string message_text(const TextMessage& message, const std::string& text, const std::string& path);

// The module `text`, and the directory of data files where no option says otherwise.
std::string text_module_path();
std::string default_config_directory();

std::string read_text_file(const std::string& path);

}  // namespace render
