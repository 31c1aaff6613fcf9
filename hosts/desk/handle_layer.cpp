#include "hosts/desk/handle_layer.h"

#include "hosts/offscreen/offscreen.h"

#include <cmath>

namespace desk {

namespace {

// Whether any switch of a handle is on, the crop's or the effect's.
bool any_handle(const render::RenderPlan& plan) {
    for (const auto& [number, control] : plan.plugin->panel.controls)
        if (control.structure && control.kind == SPARK_CONTROL_TOGGLE && control_value(control, 0) != 0) return true;
    for (const render::ParamDescription& param : plan.description.standard) {
        if (param.key != "crop_view" || param.numbers.empty()) continue;
        const spark_host::Control* const control = find_control(plan.plugin->panel, param.numbers[0]);
        if (control && control_value(*control, 0) != 0) return true;
    }
    return false;
}

}  // namespace

HandleLayer::~HandleLayer() {
    std::string none;
    if (viewer_) spark_host::offscreen_functions(&none)->close(viewer_);
}

QImage HandleLayer::draw(render::RenderPlan& plan, const ViewRequest& view,
                         const std::function<void(const QString&)>& tell) {
    const QSize size = view.viewer.boundedTo({spark_host::max_offscreen, spark_host::max_offscreen});
    if (failed_ || size.isEmpty() || !any_handle(plan)) return {};
    std::string error;
    const spark_host::OffscreenFunctions* const offscreen = spark_host::offscreen_functions(&error);
    if (offscreen && !viewer_) {
        viewer_ = offscreen->open(size.width(), size.height(), spark_host::OffscreenKind::layer, &error);
    } else if (offscreen && size != size_ && !offscreen->resize(*viewer_, size.width(), size.height(), &error)) {
        offscreen->close(viewer_);
        viewer_ = nullptr;
    }
    if (!viewer_) {
        failed_ = true;
        tell(QString("Handles cannot be drawn: %1").arg(QString::fromStdString(error)));
        return {};
    }
    size_ = size;
    plan.host.viewer_x = static_cast<int>(std::lround(view.origin.x()));
    plan.host.viewer_y = static_cast<int>(std::lround(view.origin.y()));
    plan.host.viewer_zoom = spark_host::spark_zoom(view.zoom);
    offscreen->clear(*viewer_);
    overlay(*plan.plugin, plan.host.viewer_zoom);
    QImage image(size, QImage::Format_RGBA8888_Premultiplied);
    if (image.isNull()) return {};
    offscreen->read_layer(*viewer_, image.bits());
    return image.mirrored();
}

}  // namespace desk
