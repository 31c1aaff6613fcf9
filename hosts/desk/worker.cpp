#include "hosts/desk/worker.h"

#include "hosts/common/task_pool.h"
#include "hosts/desk/command_line.h"
#include "hosts/desk/handle_layer.h"
#include "hosts/desk/panel_state.h"
#include "hosts/desk/pixels.h"
#include "hosts/desk/thumbnails.h"
#include "hosts/render/failure.h"
#include "hosts/render/making.h"
#include "hosts/render/output_file.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

namespace desk {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using render::Assignment;
using render::ParamDescription;
using render::RenderPlan;
using spark_host::Control;
using spark_host::find_control;

namespace {

constexpr int factors[] = {1, 2, 3, 4, 6, 8, 12, 16, 32};  // of the standard control of resolution, by its entries
constexpr int redraw_drag = 3, redraw_drag_auto_res = 4;
constexpr double moving_seconds = 0.035;          // what a frame may take while a hand moves
constexpr double rest_seconds = 0.12;             // a hand that moved nothing for so long rests
constexpr double give_up_seconds = 0.1;           // what a newer value waits for the frame in hand at most
constexpr int fewest_pixels = 60;                 // across, while a hand moves
constexpr size_t kept_bytes = size_t{768} << 20;  // of the pictures of an input, so that scrubbing finds them

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// The lines of a setup, by the param that they are about.
std::map<std::string, std::string> setup_blocks(const std::string& text) {
    std::map<std::string, std::string> blocks;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string kind, name;
        words >> kind >> name;
        if (kind == "param" || kind == "control" || kind == "text" || kind == "key") blocks[name] += line + "\n";
    }
    return blocks;
}

std::string underscored(std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

// A setup of the same text under another name still fits.
std::string for_effect(const std::string& setup, const std::string& lines_now) {
    const auto line_of = [](const std::string& text, size_t& at, size_t& end) {
        at = text.find("\neffect ");
        if (at == std::string::npos) return false;
        end = text.find('\n', at + 1);
        return end != std::string::npos;
    };
    size_t at = 0, end = 0, now = 0, now_end = 0;
    if (!line_of(setup, at, end) || !line_of(lines_now, now, now_end)) return setup;
    return setup.substr(0, at) + lines_now.substr(now, now_end - now) + setup.substr(end);
}

// What is asked for where a picture was given that may say how it was made.
OpenRequest as_made(const OpenRequest& request) {
    OpenRequest known = request;
    known.made.clear();
    known.inputs_otherwise.clear();
    std::string error;
    if (spark_host::picture_functions().making_of(request.made, &error).empty()) {
        known.inputs = request.inputs_otherwise;
        return known;
    }
    const render::Making making = render::read_making(request.made);
    known.edited = !making.choice.text_path.empty();
    known.text = making.choice.text;
    known.effect = making.choice.plugin + (known.edited ? ".text:" : ":") + underscored(making.choice.effect);
    known.setup = making.setup;
    return known;
}

bool same_place(const OpenRequest& a, const OpenRequest& b) { return a.inputs == b.inputs && a.length == b.length; }

}  // namespace

// While a hand moves, the host lends the plug-in a coarser resolution; what the person chose comes back after.
struct Worker::Loan {
    Loan(Worker& worker, int resolution) : plan(*worker.plan_) {
        int entry = 0;
        for (int i = 0; i < static_cast<int>(std::size(factors)); i++)
            if (factors[i] <= resolution) entry = i;
        lend(worker.standard("res_factor"), entry);
        // The plug-in's own choice while a pen is down stands back.
        if (worker.redraw_mode() == redraw_drag_auto_res) lend(worker.standard("redraw_wait"), redraw_drag);
    }
    ~Loan() {
        for (const auto& [number, value] : lent)
            if (Control* const control = find_control(plan.plugin->panel, number))
                set_control_value(*control, 0, value);
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    void lend(const ParamDescription* param, int entry) {
        if (!param) return;
        for (const int number : param->numbers) {
            Control* const control = find_control(plan.plugin->panel, number);
            if (!control || control->kind != SPARK_CONTROL_POPUP) continue;
            lent.emplace_back(number, control_value(*control, 0));
            set_control_value(*control, 0, static_cast<float>(entry));
        }
    }

    RenderPlan& plan;
    std::vector<std::pair<int, float>> lent;
};

Worker::Worker(Sink sink) : sink_(std::move(sink)) {
    // Plug-ins keep their own setups beside their data; those of this program go with it.
    std::error_code error;
    const fs::path from = render::default_config_directory(), to = private_dir_.path().toStdString();
    for (auto at = fs::directory_iterator(from, error); !error && at != fs::directory_iterator(); at.increment(error))
        fs::create_symlink(fs::absolute(at->path()), to / at->path().filename(), error);
    catalogue_ = std::make_unique<Catalogue>(to.string());
}

Worker::~Worker() = default;

void Worker::give_up_frame() {
    const std::lock_guard lock(frame_mutex_);
    if (!in_frame_ || !abort_render_) return;
    if (!may_give_up_ && seconds_since(frame_start_) < give_up_seconds) return;
    given_up_ = true;
    abort_render_();
}

// ---- Opening ----

std::unique_ptr<RenderPlan> Worker::load(const OpenRequest& request) {
    auto plan = std::make_unique<RenderPlan>();
    if (request.edited) {
        const size_t colon = request.effect.rfind(':');
        plan->choice.text_path = request.effect.substr(0, colon);
        plan->choice.effect = colon == std::string::npos ? "" : request.effect.substr(colon + 1);
        plan->choice.plugin = fs::path(plan->choice.text_path).stem().string();
        plan->choice.module_path = render::text_module_path();
        plan->choice.text = request.text;
    } else {
        plan->choice = render::choose_effect(request.effect);
    }
    plan->config = private_dir_.path().toStdString();
    std::error_code error;
    fs::remove(fs::path(plan->config) / plan->choice.plugin, error);
    plan->plugin = render::load_choice(plan->host, plan->choice, plan->config);
    return plan;
}

void Worker::start(RenderPlan& plan, const OpenRequest& request) {
    for (const std::string& path : request.inputs)
        plan.inputs.push_back(path.empty() ? nullptr : render::open_input(path, render::Missing::error, "", 0));
    spark_host::Host& host = plan.host;
    const render::InputClip* first = nullptr;
    const render::InputClip* timed = nullptr;
    for (const auto& input : plan.inputs) {
        if (!input) continue;
        input->kept_bytes = kept_bytes;
        if (!first) first = input.get();
        if (!timed && input->kind != render::InputClip::Kind::still) timed = input.get();
    }
    host.format = {1920, 1080, SPARK_DEPTH_8};
    if (first) {
        host.format = {first->info.width, first->info.height, first->info.eight_bits ? SPARK_DEPTH_8 : SPARK_DEPTH_12};
        host.pixel_ratio = first->info.pixel_ratio;
    }
    for (const auto& input : plan.inputs)
        if (input && (input->info.width != host.format.width || input->info.height != host.format.height))
            throw render::Failure(input->path + ": is " + std::to_string(input->info.width) + "x" +
                                  std::to_string(input->info.height) + ", but " + first->path + " is " +
                                  std::to_string(host.format.width) + "x" + std::to_string(host.format.height) +
                                  "; all inputs must be of one size");
    host.processors = spark_host::processors_here();
    host.frame_rate = timed && timed->info.frame_rate > 0 ? timed->info.frame_rate : 24;
    host.memory_buffers = spark_host::memory_buffers_here(host.format);
    host.read_pen = [] { return spark_host::Pen(); };  // holding a pen down stops nothing: a newer value does
    host.on_error = [this](const std::string& text) { sink_.message(2, QString::fromStdString(text).trimmed()); };
    host.on_message = [this](const std::string& text) { sink_.message(0, QString::fromStdString(text).trimmed()); };
    plan.first_frame = timed ? timed->frames.front() : 1;
    host.total_frames =
        timed ? timed->frames.back() - timed->frames.front() + 1 : std::clamp(request.length, 1, 1000000);
    host.frame = std::clamp(request.frame, 0, host.total_frames - 1);
    if (!start_plugin(*plan.plugin))
        throw render::Failure(plan.choice.plugin + ": " +
                              (plan.plugin->failure.empty() ? "the plug-in cannot be used" : plan.plugin->failure));
    plan.description = render::describe_plugin(*plan.plugin);
    plan.effect = render::find_effect(plan.description, plan.choice);
    if (plan.description.effects.empty()) throw render::Failure(plan.choice.plugin + ": there is no effect in it");
    plan.remembers = plan.description.effects[plan.effect].remembers;
    if (plan.inputs.size() > static_cast<size_t>(plan.plugin->n_clips)) {
        sink_.message(1, QString("%1 takes %2 pictures; the others are left aside")
                             .arg(QString::fromStdString(plan.description.effects[plan.effect].name))
                             .arg(plan.plugin->n_clips));
        plan.inputs.resize(static_cast<size_t>(plan.plugin->n_clips));
    }
    plan.inputs.resize(static_cast<size_t>(plan.plugin->n_clips));
    for (const auto& input : plan.inputs)
        plan.plugin->inputs.push_back(input ? render::host_clip(*input, plan.first_frame, host.total_frames) : nullptr);
    spark_host::inputs_changed(*plan.plugin);
    render::select_effect(*plan.plugin, plan.description, plan.effect);
}

void Worker::open(const OpenRequest& given) {
    std::unique_ptr<RenderPlan> plan;
    OpenRequest request = given;
    try {
        if (!given.made.empty()) request = as_made(given);
        plan = load(request);
        start(*plan, request);
    } catch (const std::exception& problem) {
        return tell_failure(QString::fromStdString(problem.what()));
    }
    // Pictures that were read stay.
    if (plan_ && same_place(request, request_))
        for (size_t i = 0; i < std::min(plan->inputs.size(), plan_->inputs.size()); i++)
            if (plan->inputs[i] && plan_->inputs[i]) plan->inputs[i]->loaded.swap(plan_->inputs[i]->loaded);
    {
        const std::lock_guard lock(frame_mutex_);
        abort_render_ = reinterpret_cast<void (*)()>(plugin_symbol(*plan->plugin, "V4_abort_render"));
    }
    frame_ = nullptr;
    plan_ = std::move(plan);
    request_ = request;
    full_cost_ = 0;
    last_made_ = -1;
    hand_moves_ = step_open_ = false;
    process_start(*plan_->plugin, plan_->host.frame);
    if (!request.setup.empty()) restore(request.setup, false);

    OpenState state;
    state.request = request;
    const auto& effect = plan_->description.effects[plan_->effect];
    state.plugin = QString::fromStdString(plan_->choice.plugin);
    state.name = QString::fromStdString(effect.name);
    state.note = QString::fromStdString(effect.note);
    const bool from_text = !plan_->choice.text_path.empty();
    state.effect = QString::fromStdString((from_text ? plan_->choice.text_path : plan_->choice.plugin) + ":" +
                                          underscored(effect.name));
    for (const std::string& name : effect.inputs) state.inputs << QString::fromStdString(name);
    while (state.inputs.size() < plan_->plugin->n_clips)
        state.inputs << QString("Input %1").arg(state.inputs.size() + 1);
    for (const auto& input : plan_->inputs) state.input_paths << (input ? QString::fromStdString(input->path) : "");
    const spark_host::Host& host = plan_->host;
    state.width = host.format.width;
    state.height = host.format.height;
    state.bits = host.format.depth == SPARK_DEPTH_8 ? 8 : 12;
    state.first_frame = plan_->first_frame;
    state.frames = host.total_frames;
    state.frame_rate = host.frame_rate;
    state.pixel_ratio = host.pixel_ratio > 0 ? host.pixel_ratio : 1;
    state.from_text = from_text;
    state.text_path = QString::fromStdString(plan_->choice.text_path);
    using DefinitionsFn = const char* (*)();
    const auto definitions = reinterpret_cast<DefinitionsFn>(plugin_symbol(*plan_->plugin, "SparkDefinitionsText"));
    state.definitions = QString::fromStdString(from_text ? plan_->choice.text : definitions ? definitions() : "");
    state.setup = render::setup_lines(*plan_);
    sink_.opened(state);
    tell_panel();
    if (!given.made.empty() && !request.setup.empty() && given.setup != request.setup) {
        const std::string name = fs::path(given.made).filename().string();
        const bool none = std::all_of(request.inputs.begin(), request.inputs.end(), [](auto& i) { return i.empty(); });
        sink_.message(0, QString::fromStdString("As " + name + " was made" +
                                                (none ? "; now drop the picture to make it of"
                                                      : ". To take it as a picture, hold Shift while it is dropped")));
    }
    if (view_.area.isEmpty()) view_.area = QRect(0, 0, host.format.width, host.format.height);
    make_frame(true);
    settled_ = false;
}

void Worker::check_text(const OpenRequest& request) {
    std::vector<TextMessageState> told;
    int failed = 1;
    try {
        const std::string path = request.effect.substr(0, request.effect.rfind(':'));
        // Any module of a library can check; what is open stays as it is.
        spark_host::Host host;
        std::string error;
        const auto module = spark_host::load_plugin(host, render::text_module_path(), "", &error);
        if (!module) throw render::Failure(error);
        std::vector<render::TextMessage> messages;
        failed = render::check_text(*module, request.text, path, nullptr, messages);
        for (const render::TextMessage& message : messages)
            told.push_back(
                {render::error_p(message), message.line, message.column, QString::fromStdString(message.text)});
    } catch (const std::exception& problem) {
        told.push_back({true, 0, 0, QString::fromStdString(problem.what())});
    }
    sink_.text_checked(told, failed == 0);
    if (failed != 0) return;
    OpenRequest again = request;
    if (plan_ && same_place(request, request_)) again.setup = render::setup_lines(*plan_);
    if (plan_) again.frame = plan_->host.frame;
    open(again);
}

// ---- Values ----

const ParamDescription* Worker::standard(const char* key) const {
    for (const ParamDescription& param : plan_->description.standard)
        if (param.key == key) return &param;
    return nullptr;
}

const ParamDescription* Worker::param_of(int number, int* channel) const { return find_param(*plan_, number, channel); }

int Worker::redraw_mode() const {
    const ParamDescription* const param = standard("redraw_wait");
    const Control* const control =
        param && !param->numbers.empty() ? find_control(plan_->plugin->panel, param->numbers[0]) : nullptr;
    return control ? static_cast<int>(control_value(*control, 0)) : redraw_drag_auto_res;
}

int Worker::user_resolution() const {
    const ParamDescription* const param = standard("res_factor");
    const Control* const control =
        param && !param->numbers.empty() ? find_control(plan_->plugin->panel, param->numbers[0]) : nullptr;
    const int entry = control ? static_cast<int>(control_value(*control, 0)) : 0;
    return factors[std::clamp(entry, 0, static_cast<int>(std::size(factors)) - 1)];
}

int Worker::resolution_that_keeps_up() const {
    const int least = user_resolution();
    const int across = std::min(plan_->host.format.width, plan_->host.format.height);
    int chosen = least;
    for (const int factor : factors) {
        if (factor < least) continue;
        if (factor > least && across / factor < fewest_pixels) break;
        chosen = factor;
        if (full_cost_ / factor / factor <= moving_seconds) break;
    }
    return chosen;
}

bool Worker::remembers() const { return plan_->remembers; }

const void* Worker::guarded(const std::function<const void*()>& call) {
    given_up_ = false;
    {
        const std::lock_guard lock(frame_mutex_);
        in_frame_ = true;
        frame_start_ = Clock::now();
    }
    const void* const frame = call();
    const std::lock_guard lock(frame_mutex_);
    in_frame_ = false;
    return given_up_ ? nullptr : frame;
}

// A control was moved: the plug-in is told as by a host's panel, and may answer with a frame of its own.
void Worker::set_control(int number, const std::vector<float>& values, int action, const QString& label) {
    Control* const control = plan_ ? find_control(plan_->plugin->panel, number) : nullptr;
    if (!control || control->kind == SPARK_CONTROL_STRING) return;
    const int channels = std::min(control_channels(*control), static_cast<int>(values.size()));
    for (int channel = 0; channel < channels; channel++) {
        const float value = values[static_cast<size_t>(channel)];
        if (!std::isfinite(value)) return;
        spark_host::Curve& curve = control->curves[channel];
        if (!curve.keys.empty()) set_key(curve, static_cast<float>(plan_->host.frame + 1), value);
        set_control_value(*control, channel, value);
    }
    note_given(*plan_, number);
    last_made_ = -1;
    last_touch_ = Clock::now();
    const bool drag = action == SPARK_ACTION_DRAG;
    const int resolution = drag ? resolution_that_keeps_up() : user_resolution();
    const void* frame = nullptr;
    const auto start = Clock::now();
    {
        const Loan loan(*this, resolution);
        may_give_up_ = !drag;
        frame = guarded([&] { return use_control(*plan_->plugin, number, action); });
    }
    const double seconds = seconds_since(start);
    hand_moves_ = drag;
    if (frame && !remembers()) {
        frame_made(frame, drag, resolution, seconds);
    } else if (frame || given_up_) {
        if (given_up_ && drag) full_cost_ = std::max(full_cost_, seconds * resolution * resolution * 2);
        make_frame(true);
        settled_ = false;
    } else if (!plan_->plugin->failure.empty()) {
        make_frame(false);
    }
    tell_panel();
    if (drag) {
        step_open_ = true;
        open_label_ = label;
    } else {
        tell_step(label);
    }
}

void Worker::set_text(int number, const std::string& text, const QString& label) {
    Control* const control = plan_ ? find_control(plan_->plugin->panel, number) : nullptr;
    if (!control || control->kind != SPARK_CONTROL_STRING) return;
    auto* const string = static_cast<SparkStringStruct*>(control->structure);
    if (text.size() >= SPARK_MAX_STRING)
        return tell_failure(QString("A text of at most %1 letters fits.").arg(SPARK_MAX_STRING - 1));
    std::copy_n(text.c_str(), text.size() + 1, string->Value);
    guarded([&] { return use_control(*plan_->plugin, number, SPARK_ACTION_TYPED); });
    last_made_ = -1;
    make_frame(false);
    tell_panel();
    tell_step(label);
}

void Worker::press_button(int number, const QString& label) {
    Control* const control = plan_ ? find_control(plan_->plugin->panel, number) : nullptr;
    if (!control) return;
    set_control_value(*control, 0, 1);
    guarded([&] { return use_control(*plan_->plugin, number, SPARK_ACTION_RELEASE); });
    last_made_ = -1;
    make_frame(false);
    tell_panel();
    tell_step(label);
}

void Worker::key(int number, KeyAction action) {
    Control* const control = plan_ ? find_control(plan_->plugin->panel, number) : nullptr;
    if (!control) return;
    const float frame = static_cast<float>(plan_->host.frame + 1);
    using spark_host::Interpolation;
    for (int channel = 0; channel < control_channels(*control); channel++) {
        auto& keys = control->curves[channel].keys;
        if (action == KeyAction::set)
            set_key(control->curves[channel], frame, control_value(*control, channel));
        else if (action == KeyAction::remove)
            std::erase_if(keys, [frame](const spark_host::Key& key) { return key.frame == frame; });
        else
            for (spark_host::Key& key : keys)
                key.interpolation = action == KeyAction::smooth ? Interpolation::hermite : Interpolation::linear;
    }
    note_given(*plan_, number);
    last_made_ = -1;
    make_frame(false);
    tell_panel();
    const char* const words[] = {"key set: ", "key deleted: ", "smooth: ", "linear: "};
    const ParamDescription* const param = param_of(number);
    tell_step(words[static_cast<int>(action)] + QString::fromStdString(param ? param->name : ""));
}

void Worker::set_curve(int number, int channel, const std::vector<KeyState>& keys, bool done) {
    Control* const control = plan_ ? find_control(plan_->plugin->panel, number) : nullptr;
    if (!control || channel < 0 || channel >= control_channels(*control)) return;
    using spark_host::Interpolation;
    spark_host::Curve curve;
    for (const KeyState& key : keys)
        if (std::isfinite(key.value) && key.frame >= 1)
            set_key(curve, key.frame, key.value,
                    key.held     ? Interpolation::constant
                    : key.smooth ? Interpolation::hermite
                                 : Interpolation::linear);
    control->curves[channel] = std::move(curve);
    note_given(*plan_, number);
    last_made_ = -1;
    last_touch_ = Clock::now();
    hand_moves_ = !done;
    make_frame(!done);
    tell_panel();
    const ParamDescription* const param = param_of(number);
    if (done) tell_step("curve of " + QString::fromStdString(param ? param->name : ""));
}

// Handles write values and know no curves: what differs from its curve was moved at this frame.
bool Worker::key_what_moved() {
    const float frame = static_cast<float>(plan_->host.frame + 1);
    bool any = false;
    for (auto& [number, control] : plan_->plugin->panel.controls) {
        if (!control.structure) continue;
        for (int channel = 0; channel < control_channels(control); channel++) {
            spark_host::Curve& curve = control.curves[channel];
            const float value = control_value(control, channel);
            if (curve.keys.empty() || !std::isfinite(value)) continue;
            // As the control shows the curve, which may round it.
            set_control_value(control, channel, value_at(control, channel, frame));
            if (control_value(control, channel) == value) continue;
            set_control_value(control, channel, value);
            set_key(curve, frame, value);
            note_given(*plan_, number);
            any = true;
        }
    }
    return any;
}

void Worker::pen(float x, float y, float pressure, float zoom) {
    if (!plan_) return;
    last_touch_ = Clock::now();
    const auto before = render::shown_values(*plan_->plugin);
    const bool down = pressure > 0;
    const bool release = hand_moves_ && !down;
    const int resolution = down ? resolution_that_keeps_up() : user_resolution();
    const void* frame = nullptr;
    const auto start = Clock::now();
    {
        const Loan loan(*this, resolution);
        may_give_up_ = !down;
        spark_host::Pen pen;
        pen.x = x;
        pen.y = y;
        pen.pressure = pressure;
        plan_->host.viewer_x = static_cast<int>(std::lround(view_.origin.x()));
        plan_->host.viewer_y = static_cast<int>(std::lround(view_.origin.y()));
        frame = guarded([&] { return interact(*plan_->plugin, pen, zoom); });
    }
    const bool keyed = key_what_moved();
    const bool changed = keyed || render::shown_values(*plan_->plugin) != before;
    hand_moves_ = down;
    if (changed) {
        step_open_ = true;
        last_made_ = -1;
    }
    if (frame && !remembers())
        frame_made(frame, down, resolution, seconds_since(start));
    else if (frame || given_up_)
        make_frame(true);
    else
        show();  // the highlight of a handle may have changed
    if (changed) tell_panel();
    if (release && step_open_) tell_step(QString());
}

void Worker::seek(int frame) {
    if (!plan_) return;
    plan_->host.frame = std::clamp(frame, 0, plan_->host.total_frames - 1);
    last_touch_ = Clock::now();
    make_frame(true);
    settled_ = shown_.resolution == user_resolution() && !shown_.provisional;
    tell_panel();
}

void Worker::process_now() {
    if (plan_) make_frame(false);
}

void Worker::apply(const std::vector<Assignment>& assignments) {
    for (const Assignment& assignment : assignments) {
        note_given(*plan_, assignment.param->numbers.empty() ? 0 : assignment.param->numbers[0]);
        apply_assignment(*plan_->plugin, assignment, plan_->first_frame);
    }
    last_made_ = -1;
}

void Worker::restore(const std::string& setup, bool undo) {
    if (!plan_) return;
    try {
        const ParamDescription* const button = undo ? standard("undo") : nullptr;
        if (button && !button->numbers.empty()) {
            if (Control* const control = find_control(plan_->plugin->panel, button->numbers[0]))
                set_control_value(*control, 0, 1);
            use_control(*plan_->plugin, button->numbers[0], SPARK_ACTION_PRESS);
        }
        const std::string now = render::setup_lines(*plan_);
        const auto wanted = setup_blocks(setup);
        auto present = setup_blocks(now);
        std::vector<Assignment> changes;
        for (Assignment& assignment : render::read_setup_lines(*plan_, "setup", for_effect(setup, now))) {
            const std::string name = underscored(settable_name(*assignment.param));
            const auto at = wanted.find(name);
            if (at == wanted.end() || present[name] != at->second) changes.push_back(std::move(assignment));
        }
        apply(changes);
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
    }
    step_open_ = false;
    tell_panel();
    make_frame(true);
    settled_ = false;
}

void Worker::load_setup(const std::string& path) {
    if (!plan_) return;
    try {
        apply(render::read_setup(*plan_, path));
        sink_.message(0, "Loaded " + QString::fromStdString(path));
    } catch (const std::exception& problem) {
        return tell_failure(QString::fromStdString(problem.what()));
    }
    make_frame(false);
    tell_panel();
    tell_step("setup " + QString::fromStdString(fs::path(path).filename().string()));
}

void Worker::save_setup(const std::string& path) {
    if (!plan_) return;
    try {
        render::save_setup(*plan_, path);
        sink_.message(0, "Saved " + QString::fromStdString(path));
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
    }
}

void Worker::reset(int number) {
    if (!plan_) return;
    std::vector<Assignment> changes;
    const auto add = [&](const ParamDescription& param) {
        if (!render::settable_p(param) || param.kind == "string") return;
        Assignment assignment;
        assignment.param = &param;
        auto& values = assignment.keys.emplace_back().values;
        for (int i = 0; i < param.channels; i++) values.push_back(param.defaults[i]);
        changes.push_back(std::move(assignment));
    };
    if (number == 0) {
        for (const ParamDescription& param : plan_->description.effects[plan_->effect].params) add(param);
    } else if (const ParamDescription* const param = param_of(number)) {
        add(*param);
    }
    apply(changes);
    make_frame(false);
    tell_panel();
    tell_step(number == 0 ? QString("reset all") : "reset " + QString::fromStdString(param_of(number)->name));
}

std::string Worker::command(const std::string& output, const std::string& frames) {
    if (!plan_) return "";
    try {
        return render_line(*plan_, request_.length, output, frames, private_dir_.path().toStdString());
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
        return "";
    }
}

std::vector<std::string> Worker::job(const std::string& output, const std::string& frames) {
    if (!plan_) return {};
    try {
        const std::string directory = private_dir_.path().toStdString();
        std::vector<std::string> words = render_arguments(*plan_, request_.length, output, frames, directory);
        if (plan_->choice.text_path.empty()) return words;
        // The text as it is now, whatever becomes of the file.
        static int n = 0;
        const fs::path copy = fs::path(directory) / ("job" + std::to_string(++n)) / (plan_->choice.plugin + ".text");
        fs::create_directory(copy.parent_path());
        std::string error;
        const std::string& text = plan_->choice.text;
        if (!render::write_whole_file(copy.string(), std::vector<unsigned char>(text.begin(), text.end()), &error))
            throw render::Failure(error);
        words[1] = copy.string() + words[1].substr(words[1].rfind(':'));
        return words;
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
        return {};
    }
}

// ---- Telling ----

void Worker::tell_failure(const QString& text, int level) { sink_.message(level, text.trimmed()); }

void Worker::tell_panel() { sink_.panel(panel_state(*plan_)); }

void Worker::tell_step(const QString& label) {
    step_open_ = false;
    hand_moves_ = false;
    sink_.step({label, render::setup_lines(*plan_)});
}

// ---- Frames ----

void Worker::make_frame(bool quick) {
    const int frame = plan_->host.frame;
    const int resolution = quick ? resolution_that_keeps_up() : user_resolution();
    const Loan loan(*this, resolution);
    int from = frame;
    if (remembers() && !quick) from = last_made_ >= 0 && last_made_ < frame ? last_made_ + 1 : 0;
    const void* made = nullptr;
    double seconds = 0;
    for (int i = from; i <= frame; i++) {
        process_start(*plan_->plugin, i);
        may_give_up_ = !quick;
        const auto start = Clock::now();
        made = guarded([&] { return process(*plan_->plugin, i); });
        seconds = seconds_since(start);
        if (!made) break;
        if (remembers() && !quick) last_made_ = i;
    }
    plan_->host.frame = frame;
    if (given_up_) {
        frame_ = nullptr;
        if (quick) full_cost_ = std::max(full_cost_, seconds * resolution * resolution * 2);
        settled_ = false;
        last_touch_ = Clock::now();
        return;
    }
    if (made && remembers() && quick) last_made_ = -1;
    frame_made(made, quick, resolution, seconds);
}

void Worker::frame_made(const void* frame, bool quick, int resolution, double seconds) {
    frame_ = frame;
    const double cost = seconds * resolution * resolution;
    full_cost_ = resolution == 1 || cost > full_cost_ ? cost : (full_cost_ + cost) / 2;
    shown_.frame = plan_->host.frame;
    shown_.resolution = resolution;
    shown_.seconds = seconds;
    shown_.provisional = quick && remembers() && shown_.frame > 0;
    settled_ = !quick || (resolution == user_resolution() && !shown_.provisional);
    shown_.settled = settled_;
    shown_.failure.clear();
    if (!frame) {
        for (const auto& input : plan_->inputs)
            if (input && !input->failure.empty()) shown_.failure = QString::fromStdString(input->failure);
        if (shown_.failure.isEmpty()) shown_.failure = QString::fromStdString(plan_->plugin->failure);
        if (shown_.failure.isEmpty() && !plan_->host.errors.empty())
            shown_.failure = QString::fromStdString(plan_->host.errors.back()).trimmed();
        if (shown_.failure.isEmpty()) shown_.failure = "The effect gave no frame.";
        settled_ = true;
    }
    show();
}

void Worker::show() {
    const auto& format = plan_->host.format;
    const bool quick = !settled_;
    shown_.area = view_.area.intersected(QRect(0, 0, format.width, format.height));
    shown_.step = std::max(1, view_.step);
    shown_.result =
        frame_ ? image_of_frame(frame_, format, shown_.area, shown_.step, quick, plan_->host.processors) : QImage();
    shown_.input = QImage();
    const auto& buffers = plan_->plugin->buffers;
    if (view_.input >= 0 && view_.input < buffers.n_inputs) {
        const auto& buffer = buffers.list[static_cast<size_t>(view_.input) + 1];
        shown_.input =
            image_of_frame(buffer.memory.get(), format, shown_.area, shown_.step, quick, plan_->host.processors);
    }
    draw_handles(shown_.handles);
    sink_.picture(shown_);
    if (probe_x_ >= 0) probe(probe_x_, probe_y_);
}

void Worker::draw_handles(QImage& image) {
    image = QImage();
    if (!view_.handles || !frame_) return;
    if (!handles_) handles_ = std::make_unique<HandleLayer>();
    image = handles_->draw(*plan_, view_, [this](const QString& text) { sink_.message(1, text); });
}

void Worker::view(const ViewRequest& request) {
    view_ = request;
    if (plan_) show();
}

void Worker::probe(int x, int y) {
    probe_x_ = x;
    probe_y_ = y;
    ProbeState state;
    if (plan_ && x >= 0 && y >= 0 && x < plan_->host.format.width && y < plan_->host.format.height) {
        const auto& format = plan_->host.format;
        const auto& buffers = plan_->plugin->buffers;
        const int input = std::max(0, view_.input);
        const void* const source =
            input < buffers.n_inputs ? buffers.list[static_cast<size_t>(input) + 1].memory.get() : nullptr;
        state.valid = true;
        state.x = x;
        state.y = y;
        state.white = white_code(format);
        state.has_result = frame_ != nullptr;
        state.has_input = source != nullptr;
        for (int channel = 0; channel < 3; channel++) {
            if (frame_) state.result[channel] = code_of_sample(frame_, format, x, y, channel);
            if (source) state.input[channel] = code_of_sample(source, format, x, y, channel);
        }
    }
    sink_.probe(state);
}

bool Worker::idle() {
    if (plan_ && !settled_) {
        if (hand_moves_ && seconds_since(last_touch_) < rest_seconds) return true;
        if (redraw_mode() >= redraw_drag || !hand_moves_) {
            make_frame(false);
            return true;
        }
        settled_ = true;
    }
    if (catalogue_) {
        std::vector<LookState> looks;
        if (catalogue_->work(looks)) {
            sink_.looks(looks);
            return true;
        }
        catalogue_ = nullptr;
    }
    return thumbnails_ && thumbnails_->work();
}

void Worker::want_thumbnails(const std::vector<std::string>& effects) {
    thumbnails_.reset();
    if (!plan_ || effects.empty()) return;
    const auto& buffers = plan_->plugin->buffers;
    std::vector<const void*> inputs;
    for (int i = 0; i < buffers.n_inputs; i++) {
        const bool given = plan_->inputs[static_cast<size_t>(i)] != nullptr;
        inputs.push_back(given ? buffers.list[static_cast<size_t>(i) + 1].memory.get() : nullptr);
    }
    thumbnails_ = std::make_unique<ThumbnailRun>(plan_->config, plan_->host.format, inputs, effects, sink_.thumbnail);
}

}  // namespace desk
