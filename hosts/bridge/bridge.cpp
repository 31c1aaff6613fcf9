#include "hosts/bridge/bridge.h"

#include "hosts/bridge/pixels.h"
#include "hosts/bridge/turn.h"
#include "hosts/common/task_pool.h"
#include "hosts/render/failure.h"
#include "hosts/render/list_json.h"
#include "hosts/render/values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

namespace bridge {

using render::Assignment;
using render::EffectChoice;
using spark_host::FrameFormat;

namespace {

constexpr long most_pixels = 1L << 28;  // what a host may say about a frame must fit its numbers
constexpr int most_frame = 99999999;

// What the parts of the command line throw, as an Error; other exceptions pass.
template <class Body>
auto as_error(const Body& body) -> decltype(body()) {
    try {
        return body();
    } catch (const render::Failure& failure) {
        Error error(failure.what());
        error.file = failure.file, error.line = failure.line, error.column = failure.column;
        throw error;
    }
}

// Reports of plug-ins are sentences, often more than one about the same.
std::string joined(const std::vector<std::string>& reports) {
    std::string text;
    for (const std::string& report : reports) {
        const size_t end = report.find_last_not_of(" \n");
        if (end == std::string::npos) continue;
        text += (text.empty() ? "" : "\n") + report.substr(0, end + 1);
    }
    return text;
}

FrameFormat checked_format(const Settings& settings) {
    if (settings.width < 1 || settings.height < 1 || static_cast<long>(settings.width) * settings.height > most_pixels)
        throw Error("frames of " + std::to_string(settings.width) + "x" + std::to_string(settings.height) +
                    " pixels cannot be rendered");
    if (settings.depth != 8 && settings.depth != 10 && settings.depth != 12)
        throw Error("depth " + std::to_string(settings.depth) + ": must be 8, 10 or 12");
    if (settings.total_frames < 1 || settings.first_frame < 0 || settings.first_frame > most_frame ||
        settings.total_frames > most_frame - settings.first_frame)
        throw Error("a clip of " + std::to_string(settings.total_frames) + " frames from frame " +
                    std::to_string(settings.first_frame) + " on cannot be: it has 1 or more, from 0 to " +
                    std::to_string(most_frame));
    if (!(settings.frame_rate > 0 && settings.frame_rate <= 100000))
        throw Error("the frame rate must be above 0, and at most 100000");
    if (!(settings.pixel_ratio > 0.01f && settings.pixel_ratio < 100))
        throw Error("the pixel ratio must lie between 0.01 and 100");
    if (settings.processors < 0) throw Error("the number of processors cannot be below 0");
    return {settings.width, settings.height,
            settings.depth == 8    ? SPARK_DEPTH_8
            : settings.depth == 10 ? SPARK_DEPTH_10
                                   : SPARK_DEPTH_12};
}

void prepare_host(spark_host::Host& host, const Settings& settings) {
    host.calling_env = SPARK_ENV_BATCH;
    host.format = checked_format(settings);
    host.pixel_ratio = settings.pixel_ratio;
    host.frame_rate = settings.frame_rate;
    host.total_frames = settings.total_frames;
    host.processors =
        settings.processors > 0 ? std::min(settings.processors, spark_host::max_tasks) : spark_host::processors_here();
    host.memory_buffers = spark_host::memory_buffers_here(host.format);
    host.read_pen = [] { return spark_host::Pen(); };  // nobody holds a pen
}

std::string reason_of(const spark_host::Host& host, const spark_host::Plugin& plugin, const std::string& otherwise) {
    const std::string said = joined(host.errors);
    return !said.empty() ? said : !plugin.failure.empty() ? plugin.failure : otherwise;
}

// Standard output belongs to the program around.
std::unique_ptr<spark_host::Plugin> load_silent(spark_host::Host& host, const EffectChoice& choice) {
    auto plugin = render::load_choice(host, choice, render::default_config_directory());
    if (const auto set = reinterpret_cast<void (*)(int)>(plugin_symbol(*plugin, "V4_set_notices"))) set(0);
    return plugin;
}

// A plug-in that only tells about itself.
struct Told {
    spark_host::Host host;
    std::unique_ptr<spark_host::Plugin> plugin;
    render::PluginDescription description;

    explicit Told(const EffectChoice& choice) {
        prepare_host(host, Settings());
        plugin = load_silent(host, choice);
        if (!start_plugin(*plugin)) throw Error(reason_of(host, *plugin, choice.plugin + ": cannot be used"));
        description = render::describe_plugin(*plugin);
    }
};

}  // namespace

Error::~Error() = default;
Aborted::~Aborted() = default;

struct Effect::State {
    Settings settings;
    EffectChoice choice;
    spark_host::Host host;
    std::unique_ptr<spark_host::Plugin> plugin;  // goes first
    render::PluginDescription description;
    size_t effect = 0;
    std::vector<Assignment> assignments;
    size_t applied = 0;     // of the assignments
    bool selected = false;  // the effect is the one that the plug-in shows
    int last = -1;          // number of the frame made last with these values; -1 none
    std::vector<std::string> warnings;

    // Of the render that runs.
    const ReadInput* read = nullptr;
    int frame = 0;
    Pixels alpha;
    std::exception_ptr thrown;

    std::atomic<bool> aborted{false};
    State* outer = nullptr;  // the render that this one happens in, through what reads an input
    void (*abort_render)() = nullptr;

    // Whose frame is being made. The mutex stands between that and aborts by other threads.
    static inline std::mutex rendering_mutex;
    static inline State* rendering = nullptr;

    const render::EffectDescription& described() const { return description.effects[effect]; }
    int first() const { return settings.first_frame; }

    bool aborted_p() const {
        for (const State* s = this; s; s = s->outer)
            if (s->aborted) return true;
        return false;
    }

    void open(EffectChoice&& chosen) {
        prepare_host(host, settings);
        choice = std::move(chosen);
        plugin = load_silent(host, choice);
        start();
        description = render::describe_plugin(*plugin);
        if (description.effects.empty()) throw Error(choice.plugin + ": does not tell of its effects");
        effect = render::find_effect(description, choice);
        abort_render = reinterpret_cast<void (*)()>(plugin_symbol(*plugin, "V4_abort_render"));
        for (int input = 0; input < plugin->n_clips; input++)
            plugin->inputs.push_back(spark_host::generated_clip(
                settings.total_frames, [this, input](int at, const FrameFormat& format, void* dest) {
                    return give(input, at, format, dest);
                }));
    }

    void start() {
        host.errors.clear();
        if (!start_plugin(*plugin)) throw Error(reason_of(host, *plugin, choice.plugin + ": cannot be used"));
        applied = 0, selected = false, last = -1;
    }

    std::string input_name(int input) const {
        const auto& names = described().inputs;
        return static_cast<size_t>(input) < names.size() ? "input " + names[static_cast<size_t>(input)]
                                                         : "input " + std::to_string(input + 1);
    }

    // Writes a frame of an input for the plug-in, which knows no exceptions.
    bool give(int input, int at, const FrameFormat& format, void* dest) noexcept {
        if (thrown || aborted_p()) return false;
        try {
            const int number = first() + at;
            const bool known = read && static_cast<size_t>(input) < described().inputs.size();
            const Pixels pixels = known ? (*read)(input, number) : Pixels();
            const std::string name = input_name(input) + " at frame " + std::to_string(number);
            if (pixels.data) {
                const std::string problem = pixels_problem(pixels, format, name);
                if (!problem.empty()) throw Error(problem);
            }
            const spark_host::SamplesFound found = pixels_to_frame(pixels, format, dest);
            if (found.beyond) warnings.push_back(name + " holds samples beyond 0 to 1, which are held to it");
            if (found.no_number) warnings.push_back(name + " holds samples that are no numbers, which count as 0");
            if (input == 0 && number == clip_frame(frame)) alpha = pixels;
            return true;
        } catch (...) {
            thrown = std::current_exception();
            return false;
        }
    }

    // What is behind the clip's end comes from its last frame.
    int clip_frame(int number) const { return std::min(number, first() + settings.total_frames - 1); }

    void apply_values() {
        if (!selected) select_effect(*plugin, description, effect);
        selected = true;
        for (; applied < assignments.size(); applied++) apply_assignment(*plugin, assignments[applied], first());
    }

    bool measures() const { return std::any_of(assignments.begin(), assignments.end(), render::pressed_p); }

    const void* make(int number) {
        if (aborted_p()) throw Aborted();
        {
            const std::lock_guard lock(rendering_mutex);
            outer = rendering;
            rendering = this;
        }
        frame = number;
        const void* const made = process(*plugin, number - first());
        bool gave_up;
        {
            const std::lock_guard lock(rendering_mutex);
            rendering = outer;
            gave_up = aborted_p();
            outer = nullptr;
        }
        if (thrown) std::rethrow_exception(std::exchange(thrown, nullptr));
        if (gave_up) throw Aborted();
        if (!made)
            throw Error("frame " + std::to_string(number) + ": " +
                        reason_of(host, *plugin, "the effect gave no frame"));
        return made;
    }

    int come_out() {
        return described().retimes ? render::frames_that_come_out(*plugin, settings.total_frames)
                                   : settings.total_frames;
    }

    void render(int number, const Pixels& to) {
        plugin->inputs.resize(static_cast<size_t>(plugin->n_clips));
        inputs_changed(*plugin);
        alpha = Pixels();
        host.errors.clear();
        if (number < first() || (!described().retimes && number >= first() + settings.total_frames))
            throw Error("frame " + std::to_string(number) + " is not in the clip, whose frames are " +
                        std::to_string(first()) + " to " + std::to_string(first() + settings.total_frames - 1));
        frame = number;  // inputs may be read as soon as values are set
        const bool fresh = applied < assignments.size() || !selected;
        host.frame = (described().retimes ? first() : number) - first();
        apply_values();
        if (described().retimes && fresh && measures()) make(first());
        const int count = come_out();
        if (number >= first() + count)
            throw Error("frame " + std::to_string(number) + " does not come out: " + described().name + " makes " +
                        std::to_string(first()) + " to " + std::to_string(first() + count - 1) + " of this clip");
        // A run begins once; its frames come in any order, but where the effect remembers.
        const bool goes_on = !fresh && last >= 0 && (!described().remembers || number == last + 1);
        last = -1;
        int next = described().remembers && !goes_on ? first() : number;
        if (!goes_on) {
            process_start(*plugin, next - first());
            hold_given_values(*plugin, assignments, first());
        }
        for (; next < number; next++) make(next);
        const void* const made = make(number);
        last = number;
        frame_to_pixels(host.format, made, &alpha, to);
    }
};

Effect::Effect(const std::string& name, const Settings& settings) : state_(std::make_unique<State>()) {
    state_->settings = settings;
    const Turn turn(&state_->warnings);
    as_error([&] { state_->open(render::choose_effect(name)); });
}

Effect::Effect(const std::string& text, const std::string& name, const std::string& file, const Settings& settings)
    : state_(std::make_unique<State>()) {
    state_->settings = settings;
    const Turn turn(&state_->warnings);
    as_error([&] { state_->open(render::choose_text(text, file, name)); });
}

Effect::~Effect() {
    // Where nobody may have a turn, after a fork, the memory is the other process's to give back.
    try {
        const Turn turn;
        state_.reset();
    } catch (const Error&) {
        (void)state_.release();
    }
}

const render::EffectDescription& Effect::description() const { return state_->described(); }
const std::vector<render::ParamDescription>& Effect::standard_controls() const { return state_->description.standard; }
const Settings& Effect::settings() const { return state_->settings; }

void Effect::set(const std::string& param, const std::string& value) {
    const Turn turn(&state_->warnings);
    as_error(
        [&] { state_->assignments.push_back(render::parse_param(param + "=" + value, state_->described().params)); });
}

void Effect::set_control(const std::string& control, const std::string& value) {
    const Turn turn(&state_->warnings);
    as_error([&] {
        for (Assignment& assignment : render::parse_control(control + "=" + value, state_->description.standard))
            state_->assignments.push_back(std::move(assignment));
    });
}

void Effect::reset() {
    const Turn turn(&state_->warnings);
    state_->assignments.clear();
    as_error([&] { state_->start(); });
}

void Effect::render(int frame, const ReadInput& read, const Pixels& to) {
    const std::string problem = pixels_problem(to, checked_format(state_->settings), "the result");
    if (!problem.empty()) throw Error(problem);
    const Turn turn(&state_->warnings);
    if (state_->read) throw Error(description().name + " is asked for a frame while it makes one");
    struct Running {
        State& state;
        ~Running() {
            state.read = nullptr;
            state.alpha = Pixels();
            state.thrown = nullptr;
            state.aborted = false;
        }
    } running{*state_};
    state_->read = &read;
    try {
        as_error([&] { state_->render(frame, to); });
    } catch (...) {
        state_->last = -1;
        throw;
    }
}

void Effect::abort() {
    const std::lock_guard lock(State::rendering_mutex);
    state_->aborted = true;
    for (const State* s = State::rendering; s; s = s->outer)
        if (s == state_.get() && s->abort_render) s->abort_render();
}

int Effect::frames() {
    const Turn turn(&state_->warnings);
    return as_error([&] {
        state_->apply_values();
        return state_->come_out();
    });
}

std::vector<std::string> Effect::take_warnings() {
    const Turn turn;
    return std::exchange(state_->warnings, {});
}

std::vector<std::string> families() {
    const Turn turn;
    return as_error(render::plugin_names);
}

render::PluginDescription describe(const std::string& family) {
    const Turn turn;
    return as_error([&] { return Told(render::choose_effect(family)).description; });
}

std::string list_json(const std::string& name) {
    const Turn turn;
    return as_error([&] {
        using nlohmann::ordered_json;
        ordered_json report = ordered_json::array();
        if (name.empty()) {
            for (const std::string& family : render::plugin_names()) {
                const Told told(render::choose_effect(family));
                ordered_json list = ordered_json::array();
                for (const render::EffectDescription& effect : told.description.effects) list.push_back(effect.name);
                report.push_back({{"plugin", family}, {"effects", list}});
            }
        } else {
            const EffectChoice choice = render::choose_effect(name);
            const Told told(choice);
            const size_t chosen = render::find_effect(told.description, choice);
            report = render::plugin_json(choice.plugin, told.description,
                                         choice.effect.empty() ? nullptr : &told.description.effects[chosen],
                                         render::read_looks(choice, render::default_config_directory()));
        }
        return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    });
}

CheckedText check(const std::string& text, const std::string& file) {
    const Turn turn;
    return as_error([&] {
        const EffectChoice choice = render::choose_text(text, file, "");
        spark_host::Host host;
        prepare_host(host, Settings());
        std::string error;
        const auto module =
            spark_host::load_plugin(host, choice.module_path, render::default_config_directory() + "/text", &error);
        if (!module) throw Error(error);
        CheckedText checked;
        checked.failed = render::check_text(*module, text, file, nullptr, checked.messages);
        return checked;
    });
}

std::string message_text(const render::TextMessage& message, const std::string& text, const std::string& file) {
    return render::message_text(message, text, file);
}

}  // namespace bridge
