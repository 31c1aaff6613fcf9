// The handles of a plug-in as a picture to lay over the viewer: an OpenGL context of the engine's thread, without a
// window and by the software renderer, which has the calls that handles are drawn with.
#pragma once

#include "hosts/desk/worker.h"

#include <QImage>

#include <functional>

namespace spark_host {
struct OffscreenViewer;
}

namespace desk {

// Engine's thread only.
class HandleLayer {
public:
    HandleLayer() = default;
    ~HandleLayer();
    HandleLayer(const HandleLayer&) = delete;
    HandleLayer& operator=(const HandleLayer&) = delete;

    // In the viewer's pixels; null if there are no handles, or no way to draw them, which is told once.
    QImage draw(render::RenderPlan& plan, const ViewRequest& view, const std::function<void(const QString&)>& tell);

private:
    spark_host::OffscreenViewer* viewer_ = nullptr;
    QSize size_;
    bool failed_ = false;
};

}  // namespace desk
