// Small pictures of effects over the picture that is open, made one after the other while nothing else is to be done.
#pragma once

#include "hosts/desk/state.h"
#include "hosts/render/render_plan.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace desk {

// Host's thread.
class ThumbnailRun {
public:
    using Done = std::function<void(const QString& effect, const QImage& image)>;

    // inputs: the frames of the clips in that format, null for those that nobody gave; copied. Effects as the command
    // line takes them, those of one plug-in side by side; "EFFECT|FILE" is one with the values of a setup.
    ThumbnailRun(std::string config, const spark_host::FrameFormat& format, const std::vector<const void*>& inputs,
                 std::vector<std::string> effects, Done done);
    ~ThumbnailRun();
    ThumbnailRun(const ThumbnailRun&) = delete;
    ThumbnailRun& operator=(const ThumbnailRun&) = delete;

    // Makes the next one; false if all are made.
    bool work();

private:
    bool load(const std::string& name);
    void show_setup(const std::string& path);

    spark_host::FrameFormat format_;
    std::vector<spark_host::Frame> inputs_;
    spark_host::ClipPtr matte_;
    std::vector<std::string> effects_;
    size_t next_ = 0;
    Done done_;
    std::string config_;
    std::string loaded_;                        // plug-in's name
    std::unique_ptr<render::RenderPlan> plan_;  // null: it cannot be loaded
};

}  // namespace desk
