#include "hosts/desk/thumbnails.h"

#include "hosts/desk/pixels.h"
#include "hosts/render/look_file.h"
#include "hosts/render/setup_file.h"
#include "hosts/render/values.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace desk {

using spark_host::FrameFormat;

namespace {

constexpr int thumbnail_width = 176;
constexpr int thumbnail_frames = 11;  // what moves over the clip stands in its middle

// A soft spot of light, for the inputs that nobody gave: it shows what a matte does.
spark_host::Frame spot(const FrameFormat& format) {
    spark_host::Frame frame;
    frame.format = format;
    for (int y = 0; y < format.height; y++)
        for (int x = 0; x < format.width; x++) {
            const double dx = (x + 0.5) / format.width - 0.5, dy = (y + 0.5) / format.height - 0.5;
            const double light = std::clamp(1.6 - 3.6 * std::hypot(dx, dy), 0.0, 1.0);
            frame.bytes.insert(frame.bytes.end(), 3, static_cast<unsigned char>(std::lround(255 * light)));
        }
    return frame;
}

}  // namespace

ThumbnailRun::ThumbnailRun(std::string config, const FrameFormat& format, const std::vector<const void*>& inputs,
                           std::vector<Choice> what, Done done)
    : what_(std::move(what)), done_(std::move(done)), config_(std::move(config)) {
    format_ = {thumbnail_width, std::clamp(thumbnail_width * format.height / std::max(1, format.width), 16, 352),
               SPARK_DEPTH_8};
    for (const void* const input : inputs) {
        spark_host::Frame& frame = inputs_.emplace_back();
        frame.format = format_;
        if (!input) continue;
        frame.bytes.resize(static_cast<size_t>(format_.bytes()));
        shrink_frame(input, format, format_, frame.bytes.data());
    }
    matte_ = spark_host::still_clip(spot(format_));
}

ThumbnailRun::~ThumbnailRun() = default;

bool ThumbnailRun::load(const std::string& name) {
    if (name == loaded_) return plan_ != nullptr;
    loaded_ = name;
    plan_ = nullptr;
    moved_ = false;
    auto plan = std::make_unique<render::RenderPlan>();
    plan->host.calling_env = SPARK_ENV_BATCH;  // no setup of an earlier run
    plan->host.format = format_;
    plan->host.total_frames = thumbnail_frames;
    plan->host.frame = thumbnail_frames / 2;
    plan->choice = render::choose_effect(name);
    plan->config = config_;
    plan->plugin = render::load_choice(plan->host, plan->choice, config_);
    if (!start_plugin(*plan->plugin)) return false;
    plan->description = render::describe_plugin(*plan->plugin);
    for (int i = 0; i < plan->plugin->n_clips; i++) {
        const size_t at = static_cast<size_t>(i);
        const bool given = at < inputs_.size() && !inputs_[at].bytes.empty();
        plan->plugin->inputs.push_back(given ? spark_host::still_clip(inputs_[at]) : matte_);
    }
    plan_ = std::move(plan);
    return true;
}

void ThumbnailRun::show(const Choice& what) {
    plan_->choice.effect = what.effect.substr(what.effect.rfind(':') + 1);
    plan_->effect = render::find_effect(plan_->description, plan_->choice);
    render::select_effect(*plan_->plugin, plan_->description, plan_->effect);
    std::vector<render::Assignment> values;
    // Params are shared between the effects of a plug-in.
    if (moved_) values = render::default_values(plan_->description.effects[plan_->effect].params);
    std::vector<render::Assignment> own;
    if (!what.look.empty()) own = render::read_look(*plan_, what.look);
    if (!what.setup.empty()) own = render::read_setup_lines(*plan_, what.setup, render::read_text_file(what.setup));
    moved_ |= !own.empty();
    values.insert(values.end(), std::make_move_iterator(own.begin()), std::make_move_iterator(own.end()));
    for (const render::Assignment& assignment : values)
        apply_assignment(*plan_->plugin, assignment, plan_->first_frame);
}

bool ThumbnailRun::work() {
    if (next_ >= what_.size()) {
        plan_ = nullptr;
        loaded_.clear();
        return false;
    }
    const Choice& what = what_[next_++];
    QImage image;
    try {
        if (load(what.effect.substr(0, what.effect.rfind(':')))) {
            show(what);
            const int frame = thumbnail_frames / 2;
            process_start(*plan_->plugin, frame);
            const void* const made = process(*plan_->plugin, frame);
            image = image_of_frame(made, format_, QRect(0, 0, format_.width, format_.height), 1, false, 1);
        }
    } catch (const std::exception&) {
        // Without a picture it is still shown by its name.
    }
    // Setups set the standard controls too.
    if (!what.setup.empty()) loaded_.clear();
    done_(what, image);
    return true;
}

}  // namespace desk
