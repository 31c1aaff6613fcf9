// The frame in hand: how fine it is made, when it is given up, and what is shown of it.
#include "hosts/desk/handle_layer.h"
#include "hosts/desk/lent_resolution.h"
#include "hosts/desk/panel_state.h"
#include "hosts/desk/pixels.h"
#include "hosts/desk/thumbnails.h"
#include "hosts/desk/worker.h"

#include <algorithm>
#include <filesystem>

namespace desk {

using Clock = std::chrono::steady_clock;

namespace {

constexpr double moving_seconds = 0.035;  // what a frame may take while a hand moves
constexpr double rest_seconds = 0.12;     // a hand that moved nothing for so long rests
constexpr double give_up_seconds = 0.1;   // what a newer value waits for the frame in hand at most
constexpr int fewest_pixels = 60;         // across, while a hand moves

}  // namespace

void Worker::give_up_frame() {
    const std::lock_guard lock(frame_mutex_);
    if (!in_frame_ || !abort_render_) return;
    if (!may_give_up_ && seconds_since(frame_start_) < give_up_seconds) return;
    given_up_ = true;
    abort_render_();
}

int Worker::resolution_that_keeps_up() const {
    const int least = chosen_resolution(*plan_);
    const int across = std::min(plan_->host.format.width, plan_->host.format.height);
    int chosen = least;
    for (const int factor : resolutions) {
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

void Worker::seek(int frame) {
    if (!plan_) return;
    plan_->host.frame = std::clamp(frame, 0, plan_->host.total_frames - 1);
    last_touch_ = Clock::now();
    make_frame(true);
    settled_ = shown_.resolution == chosen_resolution(*plan_) && !shown_.provisional;
    tell_panel();
}

void Worker::process_now() {
    if (plan_) make_frame(false);
}

void Worker::make_frame(bool quick) {
    const int frame = plan_->host.frame;
    const int resolution = quick ? resolution_that_keeps_up() : chosen_resolution(*plan_);
    const LentResolution lent(*plan_, resolution);
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
    settled_ = !quick || (resolution == chosen_resolution(*plan_) && !shown_.provisional);
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
        if (redraw_mode(*plan_) >= redraw_drag || !hand_moves_) {
            make_frame(false);
            return true;
        }
        settled_ = true;
    }
    if (thumbnails_ && in_sight_ > 0) {
        in_sight_--;
        if (thumbnails_->work()) return true;
    }
    if (catalogue_) {
        std::vector<EffectState> effects;
        QString trouble;
        if (catalogue_->work(effects, &trouble)) {
            if (!trouble.isEmpty()) tell_failure(trouble, 1);
            sink_.effects(effects);
            return true;
        }
        catalogue_ = nullptr;
    }
    return thumbnails_ && thumbnails_->work();
}

void Worker::want_thumbnails(const std::vector<Choice>& what, size_t in_sight) {
    thumbnails_.reset();
    in_sight_ = in_sight;
    if (!plan_ || what.empty()) return;
    const auto& buffers = plan_->plugin->buffers;
    std::vector<const void*> inputs;
    for (int i = 0; i < buffers.n_inputs; i++) {
        const bool given = plan_->inputs[static_cast<size_t>(i)] != nullptr;
        inputs.push_back(given ? buffers.list[static_cast<size_t>(i) + 1].memory.get() : nullptr);
    }
    thumbnails_ = std::make_unique<ThumbnailRun>(plan_->config, plan_->host.format, inputs, what, sink_.thumbnail);
}

}  // namespace desk
