#include "hosts/desk/thumbnails.h"

#include "hosts/desk/pixels.h"
#include "hosts/render/values.h"

#include <algorithm>
#include <cmath>

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
                           std::vector<std::string> effects, Done done)
    : config_(std::move(config)), effects_(std::move(effects)), done_(std::move(done)) {
    host_.calling_env = SPARK_ENV_BATCH;  // no setup of an earlier run
    host_.format = {thumbnail_width, std::clamp(thumbnail_width * format.height / std::max(1, format.width), 16, 352),
                    SPARK_DEPTH_8};
    host_.total_frames = thumbnail_frames;
    for (const void* const input : inputs) {
        spark_host::Frame& frame = inputs_.emplace_back();
        frame.format = host_.format;
        if (!input) continue;
        frame.bytes.resize(static_cast<size_t>(host_.format.bytes()));
        shrink_frame(input, format, host_.format, frame.bytes.data());
    }
    matte_ = spark_host::still_clip(spot(host_.format));
}

ThumbnailRun::~ThumbnailRun() = default;

bool ThumbnailRun::load(const std::string& name) {
    if (name == loaded_) return plugin_ != nullptr;
    loaded_ = name;
    plugin_ = nullptr;
    try {
        render::EffectChoice choice = render::choose_effect(name);
        plugin_ = render::load_choice(host_, choice, config_);
        if (!start_plugin(*plugin_)) plugin_ = nullptr;
        if (!plugin_) return false;
        description_ = render::describe_plugin(*plugin_);
    } catch (const std::exception&) {
        plugin_ = nullptr;
        return false;
    }
    for (int i = 0; i < plugin_->n_clips; i++) {
        const size_t at = static_cast<size_t>(i);
        const bool given = at < inputs_.size() && !inputs_[at].bytes.empty();
        plugin_->inputs.push_back(given ? spark_host::still_clip(inputs_[at]) : matte_);
    }
    return true;
}

bool ThumbnailRun::work() {
    if (next_ >= effects_.size()) {
        plugin_ = nullptr;
        return false;
    }
    const std::string& effect = effects_[next_++];
    const size_t colon = effect.rfind(':');
    QImage image;
    if (load(effect.substr(0, colon))) {
        try {
            render::EffectChoice choice;
            choice.plugin = loaded_;
            choice.effect = effect.substr(colon + 1);
            render::select_effect(*plugin_, description_, render::find_effect(description_, choice));
            const int frame = thumbnail_frames / 2;
            process_start(*plugin_, frame);
            const void* const made = process(*plugin_, frame);
            const FrameFormat& format = host_.format;
            image = image_of_frame(made, format, QRect(0, 0, format.width, format.height), 1, false, 1);
        } catch (const std::exception&) {
            // Without a picture it is still shown by its name.
        }
    }
    done_(QString::fromStdString(effect), image);
    return true;
}

}  // namespace desk
