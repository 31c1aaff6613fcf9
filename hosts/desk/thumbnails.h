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
    using Done = std::function<void(const Choice& what, const QImage& image)>;

    // inputs: the frames of the clips in that format, null for those that nobody gave; copied. What is of one plug-in
    // stands side by side: it is loaded each time that another comes.
    ThumbnailRun(std::string config, const spark_host::FrameFormat& format, const std::vector<const void*>& inputs,
                 std::vector<Choice> what, Done done);
    ~ThumbnailRun();
    ThumbnailRun(const ThumbnailRun&) = delete;
    ThumbnailRun& operator=(const ThumbnailRun&) = delete;

    // Makes the next one; false if all are made.
    bool work();

private:
    bool load(const std::string& name);
    void show(const Choice& what);

    spark_host::FrameFormat format_;
    std::vector<spark_host::Frame> inputs_;
    spark_host::ClipPtr matte_;
    std::vector<Choice> what_;
    size_t next_ = 0;
    Done done_;
    std::string config_;
    std::string loaded_;                        // plug-in's name
    bool moved_ = false;                        // values of a look are on its params
    std::unique_ptr<render::RenderPlan> plan_;  // null: it cannot be loaded
};

}  // namespace desk
