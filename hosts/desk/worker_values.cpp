// What a person does to the values of the plug-in that is open.
#include "hosts/desk/lent_resolution.h"
#include "hosts/desk/panel_state.h"
#include "hosts/desk/worker.h"
#include "hosts/render/look_file.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

namespace desk {

namespace fs = std::filesystem;
using render::Assignment;
using render::ParamDescription;
using spark_host::Control;
using spark_host::find_control;

namespace {

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

}  // namespace

const ParamDescription* Worker::param_of(int number, int* channel) const { return find_param(*plan_, number, channel); }

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
    last_touch_ = std::chrono::steady_clock::now();
    const bool drag = action == SPARK_ACTION_DRAG;
    const int resolution = drag ? resolution_that_keeps_up() : chosen_resolution(*plan_);
    const void* frame = nullptr;
    const auto start = std::chrono::steady_clock::now();
    {
        const LentResolution lent(*plan_, resolution);
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
    last_touch_ = std::chrono::steady_clock::now();
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
    last_touch_ = std::chrono::steady_clock::now();
    const auto before = render::shown_values(*plan_->plugin);
    const bool down = pressure > 0;
    const bool release = hand_moves_ && !down;
    const int resolution = down ? resolution_that_keeps_up() : chosen_resolution(*plan_);
    const void* frame = nullptr;
    const auto start = std::chrono::steady_clock::now();
    {
        const LentResolution lent(*plan_, resolution);
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

void Worker::apply(const std::vector<Assignment>& assignments) {
    for (const Assignment& assignment : assignments) {
        note_given(*plan_, assignment.param->numbers.empty() ? 0 : assignment.param->numbers[0]);
        apply_assignment(*plan_->plugin, assignment, plan_->first_frame);
    }
    last_made_ = -1;
}

void Worker::show_values(const std::string& setup, bool undo) {
    try {
        const ParamDescription* const button = undo ? standard_param(*plan_, "undo") : nullptr;
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
            const std::string name = render::underscored(settable_name(*assignment.param));
            const auto at = wanted.find(name);
            if (at == wanted.end() || present[name] != at->second) changes.push_back(std::move(assignment));
        }
        apply(changes);
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
    }
    step_open_ = false;
}

void Worker::restore(const std::string& setup, bool undo) {
    if (!plan_) return;
    show_values(setup, undo);
    tell_panel();
    make_frame(true);
    settled_ = false;
}

bool Worker::apply_setup(const std::string& path) {
    try {
        apply(render::read_setup(*plan_, path));
        sink_.message(0, "Loaded " + QString::fromStdString(path));
        return true;
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
        return false;
    }
}

void Worker::load_setup(const std::string& path) {
    if (!plan_ || !apply_setup(path)) return;
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

// Params that run over the clip by themselves do so again.
void Worker::apply_over_defaults(const std::vector<Assignment>& assignments) {
    std::erase_if(plan_->assignments, [](const Assignment& given) { return given.param->moves; });
    for (const Assignment& assignment : render::default_values(plan_->description.effects[plan_->effect].params))
        if (std::none_of(assignments.begin(), assignments.end(),
                         [&](const Assignment& other) { return other.param == assignment.param; }))
            apply_assignment(*plan_->plugin, assignment, plan_->first_frame);
    apply(assignments);
}

void Worker::load_look(const std::string& name) {
    if (!plan_) return;
    try {
        apply_over_defaults(name.empty() ? std::vector<Assignment>() : render::read_look(*plan_, name));
    } catch (const std::exception& problem) {
        return tell_failure(QString::fromStdString(problem.what()));
    }
    make_frame(false);
    tell_panel();
    tell_step(name.empty() ? QString("as it comes") : "look " + QString::fromStdString(name).replace('_', ' '));
}

void Worker::reset(int number) {
    if (!plan_) return;
    const ParamDescription* const param = number ? param_of(number) : nullptr;
    if (number && !param) return;
    if (param)
        apply(render::default_values({param, 1}));
    else
        apply_over_defaults({});
    make_frame(false);
    tell_panel();
    tell_step(param ? "reset " + QString::fromStdString(param->name) : QString("reset all"));
}

}  // namespace desk
