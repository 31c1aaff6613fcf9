#include "hosts/render/render_plan.h"

#include "hosts/common/numbers.h"
#include "hosts/common/task_pool.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/look_file.h"
#include "hosts/render/making.h"
#include "hosts/render/output_file.h"
#include "hosts/render/recipe.h"
#include "hosts/render/suggest.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <set>

namespace render {
namespace {

using spark_host::FrameFormat;
using spark_host::picture_functions;
using spark_host::read_number;

constexpr const char* recipe_version = "velloran 4.04";
constexpr size_t bytes_of_other_frames = size_t{256} << 20;  // of each input, where an effect looks at them
constexpr int most_beside = 32;
constexpr int endless_length = 1000000;  // what is told of a clip whose end is not known
constexpr double most_pixels = 1 << 28;  // what a host may say about a frame must fit its numbers

long read_whole(const std::string& text, const char* option, long least, long most) {
    long number = 0;
    if (!read_number(text, number) || number < least || number > most)
        throw Failure(std::string(option) + " '" + text + "': give a whole number from " + std::to_string(least) +
                      " to " + std::to_string(most));
    return number;
}

Missing read_missing(const std::string& word) {
    return word == "skip"    ? Missing::skip
           : word == "hold"  ? Missing::hold
           : word == "black" ? Missing::black
                             : Missing::error;
}

spark_host::Compression read_compression(const std::string& word) {
    using spark_host::Compression;
    return word == "none"    ? Compression::none
           : word == "fast"  ? Compression::fast
           : word == "small" ? Compression::small
                             : Compression::usual;
}

// As many frames are read and written beside each other as there are processors and memory for. A frame that is written
// stands in memory as it came in, as it was made, and as rows that are packed.
int frames_beside(const RenderPlan& plan) {
    constexpr double copies = 6;
    struct sysinfo memory = {};
    double bytes = sysinfo(&memory) == 0 ? static_cast<double>(memory.totalram) * memory.mem_unit : 4e9;
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        bytes = std::min(bytes, static_cast<double>(limit.rlim_cur));
    const double fit = bytes / 8 / (copies * static_cast<double>(plan.host.format.bytes()));
    return static_cast<int>(std::clamp(fit, 1.0, static_cast<double>(std::min(plan.host.processors, most_beside))));
}

struct NamedPath {
    std::string name, path;  // name empty: by order
};

// "NAME=PATH" only where NAME is an input's name, or could have been meant as one: paths may hold '='.
NamedPath split_input(const std::string& argument, const std::vector<std::string>& names) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos) return {"", argument};
    const std::string name = argument.substr(0, equals);
    for (const std::string& known : names)
        if (same_name_p(known, name)) return {known, argument.substr(equals + 1)};
    struct stat status = {};
    if (name.find('/') != std::string::npos || stat(argument.c_str(), &status) == 0) return {"", argument};
    throw Failure("the effect has no input '" + name + "'" + did_you_mean(name, names));
}

std::string names_text(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Paths in the order of the effect's inputs.
std::vector<std::string> order_inputs(const RenderOptions& options, const EffectDescription& effect, int n_clips) {
    std::vector<std::string> names = effect.inputs;
    for (int i = static_cast<int>(names.size()); i < n_clips; i++) names.push_back("Source" + std::to_string(i + 1));
    names.resize(static_cast<size_t>(n_clips));
    const size_t needed = std::min(names.size(), std::max<size_t>(effect.inputs.size(), 0));
    std::vector<std::string> paths(names.size());
    size_t next = 0;
    for (const std::string& argument : options.inputs) {
        const NamedPath input = split_input(argument, names);
        size_t place = next;
        if (!input.name.empty())
            place = static_cast<size_t>(std::find(names.begin(), names.end(), input.name) - names.begin());
        else
            while (place < paths.size() && !paths[place].empty()) place++;
        if (place >= paths.size())
            throw Failure("'" + input.path + "' is one input too many: " + effect.name + " takes " +
                          std::to_string(names.size()) + (names.empty() ? "" : " (" + names_text(names) + ")"));
        if (!paths[place].empty()) throw Failure("input '" + names[place] + "' is given twice");
        if (input.path.empty()) throw Failure("input '" + names[place] + "': the path is missing");
        paths[place] = input.path;
        if (input.name.empty()) next = place + 1;
    }
    for (size_t i = 0; i < needed; i++)
        if (paths[i].empty() && options.fill_inputs)
            paths[i] = paths[0];
        else if (paths[i].empty())
            throw Failure("input '" + names[i] + "' is missing: " + effect.name + " takes " + std::to_string(needed) +
                          " (" + names_text(effect.inputs) + "), give each with -i");
    return paths;
}

void choose_format(RenderPlan& plan, const RenderOptions& options, const InputClip* first) {
    FrameFormat& format = plan.host.format;
    bool eight_bits = first && first->info.eight_bits;
    if (first) {
        format.width = first->info.width;
        format.height = first->info.height;
        plan.host.pixel_ratio = first->info.pixel_ratio;
    } else {
        format.width = 1920;
        format.height = 1080;
        const std::string& path = options.output;
        eight_bits =
            path.size() > 4 && (path.substr(path.size() - 4) == ".jpg" || path.substr(path.size() - 5) == ".jpeg");
    }
    if (!options.size.empty()) {
        int width = 0, height = 0;
        if (!read_size(options.size, width, height))
            throw Failure("--size '" + options.size + "': give WIDTHxHEIGHT, such as 1920x1080");
        if (first && (width != format.width || height != format.height))
            throw Failure("--size is for effects without inputs and bare frames; " + first->path + " is " +
                          std::to_string(format.width) + "x" + std::to_string(format.height));
        format.width = width;
        format.height = height;
    }
    if (static_cast<double>(format.width) * format.height > most_pixels)
        throw Failure("frames of " + std::to_string(format.width) + "x" + std::to_string(format.height) +
                      " pixels are too large");
    const std::string depth = !options.depth.empty() ? options.depth : eight_bits ? "8" : "16";
    if (depth != "8" && depth != "10" && depth != "16") throw Failure("--depth '" + depth + "': give 8, 10 or 16");
    format.depth = depth == "8" ? SPARK_DEPTH_8 : depth == "10" ? SPARK_DEPTH_10 : SPARK_DEPTH_12;
}

// 0 if none is given.
float read_rate(const RenderOptions& options) {
    float rate = 0;
    if (!options.fps.empty() && (!read_number(options.fps, rate) || !(rate > 0) || rate > 100000))
        throw Failure("--fps '" + options.fps + "': give frames per second, such as 24 or 29.97");
    return rate;
}

void choose_host(RenderPlan& plan, const RenderOptions& options, const InputClip* first) {
    spark_host::Host& host = plan.host;
    host.calling_env = SPARK_ENV_BATCH;
    host.processors = spark_host::processors_here();
    if (!options.threads.empty())
        host.processors = static_cast<int>(read_whole(options.threads, "--threads", 1, spark_host::max_tasks));
    host.frame_rate = first && first->info.frame_rate > 0 ? first->info.frame_rate : 30;
    if (const float rate = read_rate(options); rate > 0) host.frame_rate = rate;
    host.memory_buffers = spark_host::memory_buffers_here(host.format);
    host.on_error = [](const std::string& text) { fail(text); };
    host.on_message = [verbose = options.verbose](const std::string& text) {
        if (verbose) note(text);
    };
}

void tell_of_movies(const RenderPlan& plan, const RenderOptions& options) {
    for (const auto& input : plan.inputs) {
        if (!input || input->kind != InputClip::Kind::movie) continue;
        if (input->info.uneven_rate)
            warn(input->path + ": its frames are not shown for equally long; they are taken one after the other");
        if (input->info.asks_for_rotation)
            warn(input->path + ": asks to be turned when it is shown, which is not done");
        if (input->info.has_sound && picture_functions().movie_ending(options.output))
            warn(input->path + ": has sound, which does not go into " + options.output);
    }
}

// The clip that says which frames there are: the first that is no still.
const InputClip* timed_input(const RenderPlan& plan) {
    for (const auto& input : plan.inputs)
        if (input && input->kind != InputClip::Kind::still) return input.get();
    return nullptr;
}

std::vector<int> listed_frames(const RenderOptions& options) {
    std::string error;
    const auto frames = spark_host::parse_frame_list(options.frames, &error);
    if (!frames) throw Failure("--frames: " + error);
    return *frames;
}

// A pipe is told from what follows: how long it is, or that nobody knows.
void choose_piped_frames(RenderPlan& plan, InputClip& input, const RenderOptions& options) {
    const EffectDescription* const effect =
        plan.description.effects.empty() ? nullptr : &plan.description.effects[plan.effect];
    if (effect && (effect->reads_frames || effect->retimes))
        throw Failure(effect->name + " looks at other frames than the one in hand, which a pipe cannot give");
    if (options.skip_existing || options.dry_run)
        throw Failure(std::string(options.dry_run ? "--dry-run" : "--skip-existing") +
                      " needs inputs that can be read again, which standard input cannot");
    plan.first_frame = options.first.empty() ? 1 : static_cast<int>(read_whole(options.first, "--first", 0, 99999999));
    input.pipe_first = plan.first_frame;
    plan.host.total_frames = options.length.empty()
                                 ? endless_length
                                 : static_cast<int>(read_whole(options.length, "--length", 1, endless_length));
    const int last = plan.first_frame + plan.host.total_frames - 1;
    if (!options.frames.empty()) {
        plan.frames = listed_frames(options);
        if (!std::is_sorted(plan.frames.begin(), plan.frames.end()))
            throw Failure("--frames '" + options.frames + "': a pipe gives its frames in their order");
        if (plan.frames.front() < plan.first_frame || plan.frames.back() > last)
            throw Failure("--frames '" + options.frames + "': the pipe's frames are " +
                          std::to_string(plan.first_frame) + " to " + std::to_string(last));
    } else if (!options.length.empty()) {
        for (int frame = plan.first_frame; frame <= last; frame++) plan.frames.push_back(frame);
    } else {
        plan.endless = true;
        plan.frames = {plan.first_frame};
        for (const ParamDescription& param : effect ? effect->params : plan.description.standard)
            if (param.moves) warn(param.key + " runs over the clip, whose end nobody knows: give --length, or a value");
    }
}

// Where the clip begins and ends is what is on disk, unless it is pinned. Frames outside it cannot be asked for.
void choose_frames(RenderPlan& plan, const RenderOptions& options) {
    InputClip* pipe = nullptr;
    for (const auto& input : plan.inputs) {
        if (!input || !input->pipe) continue;
        if (pipe) throw Failure("standard input can be one input only");
        pipe = input.get();
    }
    if (pipe) return choose_piped_frames(plan, *pipe, options);
    const InputClip* const timed = timed_input(plan);
    const int length =
        options.length.empty() ? 0 : static_cast<int>(read_whole(options.length, "--length", 1, 1000000));
    const int first = options.first.empty() ? -1 : static_cast<int>(read_whole(options.first, "--first", 0, 99999999));
    const int given_first = first >= 0 ? first : timed ? timed->frames.front() : 1;
    if (!options.frames.empty() && !plan.retimes) {
        plan.frames = listed_frames(options);
    } else if (timed) {
        // What lies between the first and the last file belongs to the clip.
        const int from = std::max(given_first, timed->frames.front());
        const int to = length > 0 ? std::min(given_first + length - 1, timed->frames.back()) : timed->frames.back();
        if (static_cast<long>(to) - from >= static_cast<long>(spark_host::max_listed_frames))
            throw Failure(timed->path + ": the numbers of its files lie too far apart; choose some with --frames");
        for (int frame = from; frame <= to; frame++) plan.frames.push_back(frame);
        if (plan.frames.empty())
            throw Failure(timed->path + ": none of its frames, " + spark_host::frame_list_text(timed->frames) +
                          ", lies in the clip of --first and --length");
    } else {
        for (int i = 0; i < std::max(1, length); i++) plan.frames.push_back(given_first + i);
    }
    const auto [least, most] = std::minmax_element(plan.frames.begin(), plan.frames.end());
    plan.first_frame = first >= 0 ? first : std::min(given_first, *least);
    const int disk_last = timed && length == 0 ? timed->frames.back() : 0;
    const int last = length > 0 ? plan.first_frame + length - 1 : std::max(disk_last, *most);
    if (*least < plan.first_frame || *most > last)
        throw Failure("frame " + std::to_string(*least < plan.first_frame ? *least : *most) +
                      " is not in the clip, whose frames are " + std::to_string(plan.first_frame) + " to " +
                      std::to_string(last) + (first >= 0 || length > 0 ? " by --first and --length" : ""));
    plan.host.total_frames = last - plan.first_frame + 1;
}

// An effect that remembers is rendered from the clip's first frame on, or from where the user says.
void choose_run(RenderPlan& plan, const RenderOptions& options) {
    const auto& effects = plan.description.effects;
    plan.remembers = !effects.empty() && effects[plan.effect].remembers;
    const int first = plan.frames.front();
    plan.begin_with = first;
    if (!options.preroll.empty() && !plan.remembers) read_whole(options.preroll, "--preroll", 0, 1000000);
    if (!plan.remembers) return;
    if (!std::is_sorted(plan.frames.begin(), plan.frames.end()))
        throw Failure("--frames '" + options.frames + "': " + effects[plan.effect].name +
                      " builds each frame on the one before, so it cannot be rendered in that order");
    plan.begin_with = plan.first_frame;
    if (options.preroll.empty()) return;
    const int before = static_cast<int>(read_whole(options.preroll, "--preroll", 0, 1000000));
    plan.begin_with = static_cast<int>(std::max<long>(plan.first_frame, static_cast<long>(first) - before));
    if (plan.begin_with > plan.first_frame)
        warn(effects[plan.effect].name + " remembers, and begins with frame " + std::to_string(plan.begin_with) +
             " instead of " + std::to_string(plan.first_frame) + ": the frames differ from those of the whole clip");
}

// Gaps at the frames asked for.
void look_for_gaps(RenderPlan& plan, Missing missing) {
    std::set<int> gaps;
    std::string report;
    for (const auto& input : plan.inputs) {
        if (!input) continue;
        std::vector<int> absent;
        for (const int frame : frames_to_make(plan, plan.frames))
            if (!has_frame(*input, frame)) absent.push_back(frame);
        if (absent.empty()) continue;
        std::sort(absent.begin(), absent.end());
        gaps.insert(absent.begin(), absent.end());
        report += (report.empty() ? "" : "\n") + input->path + ": missing " +
                  (absent.size() == 1 ? "frame " : "frames ") + spark_host::frame_list_text(absent);
    }
    if (gaps.empty()) return;
    if (missing == Missing::error)
        throw Failure(report + "\n--missing " + (plan.remembers ? "" : "skip, ") +
                      "hold or black goes on without them");
    if (missing == Missing::skip && plan.remembers)
        throw Failure(report +
                      "\nthe effect builds each frame on the one before, so none can be left out; --missing "
                      "hold or black goes on");
    note(report);
    if (missing != Missing::skip) return;
    std::vector<int> kept;
    for (const int frame : plan.frames) (gaps.count(frame) ? plan.skipped : kept).push_back(frame);
    plan.frames = kept;
    if (kept.empty()) throw Failure("every frame asked for is missing");
}

void check_output(RenderPlan& plan, const RenderOptions& options) {
    if (options.output.empty()) throw Failure("an output is needed: -o PATH");
    std::string error;
    const auto output = spark_host::parse_sequence_path(options.output, &error);
    if (!output) throw Failure(error);
    plan.output = *output;
    plan.compression = read_compression(options.compression.empty() && options.fast ? "fast" : options.compression);
    // "-" and "-.exr" stand for standard output.
    plan.to_stdout = options.output == "-" || options.output.rfind("-.", 0) == 0;
    plan.pipe = pipe_ending(options.output);
    if (plan.pipe != "y4m" && !raw_format(plan.pipe)) plan.pipe.clear();
    for (const auto& input : plan.inputs)
        if (options.output == "-" && input && input->pipe) plan.pipe = input->pipe->ending();
    if (plan.pipe.rfind("gray", 0) == 0)
        throw Failure(options.output + ": frames have colours; they go out as y4m, rgb24, rgba, rgb48le or rgba64le");
    plan.format_path = options.output == "-" || !plan.pipe.empty() ? "-.png" : options.output;
    const spark_host::PictureFunctions& pictures = picture_functions();
    plan.movie = pictures.movie_ending(plan.format_path);
    if (plan.movie && plan.output.numbered) throw Failure(options.output + ": a movie holds all frames in one file");
    if (!options.codec.empty() && !plan.movie) throw Failure("--codec is for movies: mov, mkv or mp4");
    if (!plan.movie && !plan.output.numbered && plan.pipe.empty() && (plan.frames.size() > 1 || plan.endless))
        throw Failure(
            options.output + ": " + (plan.endless ? "a pipe's" : std::to_string(plan.frames.size())) +
            " frames need a place for the number in the name, such as " +
            options.output.substr(0, options.output.rfind('.')) + ".%04d" +
            (options.output.rfind('.') == std::string::npos ? "" : options.output.substr(options.output.rfind('.'))));
    if (const char* const reason = pictures.unwritable(plan.format_path)) throw Failure(options.output + ": " + reason);
    if (plan.movie && !pictures.check_encoder(plan.format_path, options.codec, &error))
        throw Failure(error, status_of(error));
    if (plan.to_stdout && plan.movie) throw Failure(options.output + ": movies are written to files only");
    if (plan.to_stdout && plan.pipe.empty() && plan.frames.size() > 1) throw Failure("standard output takes one frame");
    if (plan.to_stdout) return;
    const std::string reason = unwritable_directory(path_of_frame(plan.output, plan.frames[0]));
    if (!reason.empty()) throw Failure(reason);
    // Reading a frame after its place was written over would feed the effect its own result.
    for (const auto& input : plan.inputs)
        for (const int frame : plan.frames) {
            if (!input || input->pipe) break;
            struct stat in = {}, out = {};
            const std::string file = file_of_frame(*input, frame).file, target = path_of_frame(plan.output, frame);
            if (!file.empty() && stat(file.c_str(), &in) == 0 && stat(target.c_str(), &out) == 0 &&
                in.st_dev == out.st_dev && in.st_ino == out.st_ino)
                throw Failure(target + ": is also an input");
        }
}

[[noreturn]] void start_failed(const RenderPlan& plan) {
    const auto& errors = plan.host.errors;
    const bool memory = !errors.empty() && errors.back().find("Not enough memory") != std::string::npos;
    const std::string cause = !plan.plugin->failure.empty() ? plan.plugin->failure : "the plug-in cannot be used";
    throw Failure(plan.choice.plugin + ": " + cause, memory ? exit_no_memory : exit_nothing_done);
}

}  // namespace

std::unique_ptr<RenderPlan> make_plan(const RenderOptions& options) {
    auto made = std::make_unique<RenderPlan>();
    RenderPlan& plan = *made;
    const Missing missing = read_missing(options.missing);
    if (options.recipe_from.empty()) {
        plan.choice = choose_effect(options.effect);
    } else {
        if (!options.effect.empty())
            throw Failure("--recipe-from brings its own effect; leave '" + options.effect + "' out");
        Making making = read_making(options.recipe_from);
        plan.choice = std::move(making.choice);
        plan.setup = std::move(making.setup);
    }
    plan.config = options.config.empty() ? default_config_directory() : options.config;
    struct stat status = {};
    if (stat(plan.config.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        throw Failure(plan.config + ": no directory of configuration files");
    plan.plugin = load_choice(plan.host, plan.choice, plan.config);

    // How many inputs there are and what they are called is only known once the plug-in runs, and that needs the format
    // of the first one: a named input is the first for this purpose until the names are known.
    std::vector<std::string> paths;
    for (const std::string& argument : options.inputs) {
        const size_t equals = argument.find('=');
        const bool whole =
            equals == std::string::npos || argument.find('/') < equals || stat(argument.c_str(), &status) == 0;
        paths.push_back(whole ? argument : argument.substr(equals + 1));
    }
    std::vector<std::unique_ptr<InputClip>> opened;
    for (const std::string& path : paths)
        opened.push_back(path.empty() ? nullptr : open_input(path, missing, options.size, read_rate(options)));
    const InputClip* first = opened.empty() ? nullptr : opened[0].get();
    choose_format(plan, options, first);
    choose_host(plan, options, first);
    if (!start_plugin(*plan.plugin)) start_failed(plan);
    plan.description = describe_plugin(*plan.plugin);
    plan.effect = find_effect(plan.description, plan.choice);
    EffectDescription unnamed;
    unnamed.name = plan.choice.plugin;
    unnamed.inputs.resize(static_cast<size_t>(plan.plugin->n_clips));
    for (size_t i = 0; i < unnamed.inputs.size(); i++) unnamed.inputs[i] = "Source" + std::to_string(i + 1);
    const EffectDescription& effect =
        plan.description.effects.empty() ? unnamed : plan.description.effects[plan.effect];
    if (plan.choice.effect.empty() && plan.description.effects.size() > 1)
        note("rendering " + plan.choice.plugin + ":" + effect.name + ", the first of " +
             std::to_string(plan.description.effects.size()) + " effects");

    const std::vector<std::string> ordered = order_inputs(options, effect, plan.plugin->n_clips);
    for (const std::string& path : ordered) {
        const auto at =
            std::find_if(opened.begin(), opened.end(), [&](const auto& input) { return input && input->path == path; });
        plan.inputs.push_back(path.empty()         ? nullptr
                              : at != opened.end() ? std::move(*at)
                                                   : open_input(path, missing, options.size, read_rate(options)));
    }
    // Names may have changed which input is the first.
    first = plan.inputs.empty() ? nullptr : plan.inputs[0].get();
    const FrameFormat started = plan.host.format;
    choose_format(plan, options, first);
    choose_host(plan, options, first);
    if (!(started == plan.host.format)) {
        if (!start_plugin(*plan.plugin)) start_failed(plan);
        plan.description = describe_plugin(*plan.plugin);
    }
    for (const auto& input : plan.inputs)
        if (input && (input->info.width != plan.host.format.width || input->info.height != plan.host.format.height))
            throw Failure(input->path + ": is " + std::to_string(input->info.width) + "x" +
                          std::to_string(input->info.height) + ", but " + first->path + " is " +
                          std::to_string(plan.host.format.width) + "x" + std::to_string(plan.host.format.height) +
                          "; all inputs must be of one size");
    tell_of_movies(plan, options);
    plan.retimes = effect.retimes;
    plan.beside = frames_beside(plan);
    for (const auto& input : plan.inputs)
        if (input) input->ahead = static_cast<size_t>(plan.beside);
    for (const auto& input : plan.inputs)
        if (input && effect.reads_frames) input->kept_bytes = bytes_of_other_frames;
    choose_frames(plan, options);
    choose_run(plan, options);
    look_for_gaps(plan, missing);
    if (!plan.retimes) check_output(plan, options);

    const std::vector<ParamDescription>& params =
        plan.description.effects.empty() ? plan.description.standard : plan.description.effects[plan.effect].params;
    for (const std::string& argument : options.params) plan.assignments.push_back(parse_param(argument, params));
    for (const std::string& argument : options.controls)
        for (Assignment& assignment : parse_control(argument, plan.description.standard))
            plan.assignments.push_back(std::move(assignment));
    for (const auto& input : plan.inputs)
        plan.plugin->inputs.push_back(input ? host_clip(*input, plan.first_frame, plan.host.total_frames) : nullptr);
    return made;
}

void settle_frames(RenderPlan& plan, const RenderOptions& options) {
    if (!plan.retimes) return;
    const bool measure = std::any_of(plan.assignments.begin(), plan.assignments.end(), pressed_p);
    if (measure && !process(*plan.plugin, 0)) {
        for (const auto& input : plan.inputs)
            if (input && !input->failure.empty()) throw Failure(input->failure);
        throw Failure(plan.choice.plugin + ": the clip could not be measured");
    }
    const int count = frames_that_come_out(*plan.plugin, plan.host.total_frames);
    if (count < 1) throw Failure(plan.choice.plugin + ": no frame comes out of this clip");
    const int last = plan.first_frame + count - 1;
    plan.frames.clear();
    if (!options.frames.empty()) plan.frames = listed_frames(options);
    for (const int frame : plan.frames)
        if (frame < plan.first_frame || frame > last)
            throw Failure("frame " + std::to_string(frame) + " does not come out: " + plan.choice.plugin + " makes " +
                          std::to_string(plan.first_frame) + " to " + std::to_string(last) + " of this clip");
    if (plan.frames.empty())
        for (int frame = plan.first_frame; frame <= last; frame++) plan.frames.push_back(frame);
    plan.begin_with = plan.frames.front();
    if (count != plan.host.total_frames)
        note(std::to_string(plan.host.total_frames) + " frames become " + std::to_string(count));
    check_output(plan, options);
}

int clip_frame(const RenderPlan& plan, int frame) {
    return plan.retimes ? std::min(frame, plan.first_frame + plan.host.total_frames - 1) : frame;
}

std::vector<int> frames_to_make(const RenderPlan& plan, const std::vector<int>& todo) {
    if (!plan.remembers || todo.empty()) return todo;
    std::vector<int> frames;
    for (int frame = plan.begin_with; frame <= todo.back(); frame++) frames.push_back(frame);
    return frames;
}

std::map<int, std::string> unreadable_frames(RenderPlan& plan, const std::vector<int>& frames) {
    std::map<int, std::string> found;
    for (size_t i = 0; i < frames.size(); i++)
        for (const auto& input : plan.inputs) {
            if (!input) continue;
            if (i + 1 < frames.size()) prefetch(*input, clip_frame(plan, frames[i + 1]));
            const std::string problem = frame_problem(*input, clip_frame(plan, frames[i]), plan.host.format);
            if (!problem.empty()) found.emplace(frames[i], problem);
        }
    return found;
}

std::string plan_text(const RenderPlan& plan, const std::vector<int>& existing,
                      const std::map<int, std::string>& unreadable) {
    const FrameFormat& format = plan.host.format;
    std::vector<int> frames = plan.frames;
    std::sort(frames.begin(), frames.end());
    std::string text = "effect   " + plan.choice.plugin;
    if (!plan.description.effects.empty()) text += ":" + plan.description.effects[plan.effect].name;
    text += "\n";
    for (const auto& input : plan.inputs) {
        if (!input) continue;
        text += "input    " + input->path + "  " + std::to_string(input->info.width) + "x" +
                std::to_string(input->info.height) + " " + input->info.format + ", ";
        text +=
            input->kind == InputClip::Kind::still ? "still" : "frames " + spark_host::frame_list_text(input->frames);
        text += "\n";
    }
    text += "frames   " + spark_host::frame_list_text(frames) + " (" + std::to_string(frames.size()) + ")\n";
    if (!plan.skipped.empty()) text += "gaps     " + spark_host::frame_list_text(plan.skipped) + "\n";
    if (!existing.empty()) text += "existing " + spark_host::frame_list_text(existing) + "\n";
    if (plan.begin_with < plan.frames.front())
        text += "before   " + std::to_string(plan.begin_with) + "-" + std::to_string(plan.frames.front() - 1) +
                ", made but not written: the effect remembers\n";
    for (const auto& [frame, reason] : unreadable) text += "fails    " + std::to_string(frame) + ": " + reason + "\n";
    text += "output   " + path_of_frame(plan.output, plan.frames.front());
    if (plan.frames.size() > 1 && !plan.movie) text += " to " + path_of_frame(plan.output, plan.frames.back());
    text += "\nsize     " + std::to_string(format.width) + "x" + std::to_string(format.height) + ", depth " +
            (format.depth == SPARK_DEPTH_8    ? "8"
             : format.depth == SPARK_DEPTH_10 ? "10"
                                              : "16") +
            "\n";
    const double buffers = static_cast<double>(plan.plugin->n_clips + 1) * static_cast<double>(format.bytes()) +
                           static_cast<double>(plan.host.registered_bytes);
    text += "memory   " + spark_host::number_text(buffers / 1e6, 1) + " MB in frame buffers\n";
    text += "threads  " + std::to_string(plan.host.processors) + "\n";
    return text;
}

std::string plan_recipe(const RenderPlan& plan, const RenderOptions& options) {
    Recipe recipe;
    recipe.add(recipe_version);
    recipe.add_file(plan.choice.module_path);
    Dl_info library = {};
    if (dladdr(plugin_symbol(*plan.plugin, "V4_SparkProcess"), &library) && library.dli_fname)
        recipe.add_file(library.dli_fname);
    recipe.add(plan.choice.text);
    recipe.add(plan.choice.effect);
    for (const std::string& argument : options.params) recipe.add("-p " + argument);
    for (const std::string& argument : options.controls) recipe.add("-c " + argument);
    recipe.add(options.setup.empty() ? "" : read_text_file(options.setup));
    if (!plan.setup.empty()) recipe.add(plan.setup);
    if (!options.look.empty())
        for (const std::string& value : find_look(plan, options.look).values) recipe.add("look " + value);
    recipe.add(options.missing);
    recipe.add(plan.host.format.depth);
    recipe.add(plan.host.format.width);
    recipe.add(plan.host.format.height);
    recipe.add(plan.host.frame_rate);
    recipe.add(plan.host.total_frames);
    recipe.add(plan.first_frame);
    if (plan.remembers) recipe.add("from " + std::to_string(plan.begin_with));
    if (plan.movie) recipe.add("as " + options.codec + " " + options.frames);
    recipe.add_directory(plan.config);
    // All frames of the inputs: an effect may look at any of them.
    for (const auto& input : plan.inputs) {
        if (!input) continue;
        recipe.add(input->path);
        if (input->kind == InputClip::Kind::sequence)
            for (const int frame : input->frames) recipe.add_file(path_of_frame(input->sequence, frame));
        else
            recipe.add_file(input->sequence.prefix);
    }
    return recipe.text();
}

}  // namespace render
