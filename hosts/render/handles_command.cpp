// Handles over a picture, as a viewer shows them: the effect renders the frame, a viewer without a window shows it, and
// the plug-in draws over that.
#include "hosts/offscreen/offscreen.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/output_file.h"
#include "hosts/render/setup_file.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace render {
namespace {

using spark_host::Control;
using spark_host::OffscreenFunctions;
using spark_host::OffscreenViewer;

void set_control(RenderPlan& plan, Control& control, float value) {
    spark_host::set_control_value(control, 0, value);
    use_control(*plan.plugin, control.number, SPARK_ACTION_RELEASE);
}

// Whether the effect has a handle at all, its own or the crop's.
bool any_handle_p(const RenderPlan& plan) {
    const auto& effects = plan.description.effects;
    if (!effects.empty())
        for (const ParamDescription& param : effects[plan.effect].params)
            if (param.on_screen) return true;
    for (const ParamDescription& param : plan.description.standard) {
        const Control* const control = param.key == "crop_view" && !param.numbers.empty()
                                           ? spark_host::find_control(plan.plugin->panel, param.numbers.front())
                                           : nullptr;
        if (control && spark_host::control_value(*control, 0) != 0) return true;
    }
    return false;
}

void switch_all_on(RenderPlan& plan) {
    for (auto& [number, control] : plan.plugin->panel.controls)
        if (control.structure && control.kind == SPARK_CONTROL_TOGGLE) set_control(plan, control, 1);
}

const void* make_frame(RenderPlan& plan) {
    const int frame = plan.frames.front();
    const void* const made = process(*plan.plugin, frame - plan.first_frame);
    if (made) return made;
    for (const auto& input : plan.inputs)
        if (input && !input->failure.empty()) throw Failure(input->failure);
    throw Failure(plan.plugin->failure.empty() ? "the effect gave no frame" : plan.plugin->failure);
}

// The pen as a hand moves it: over the place, down, and on. Nothing is rendered on the way.
void move_pen(RenderPlan& plan, const HandlesOptions& options) {
    const float zoom = spark_host::spark_zoom(options.zoom);
    spark_host::interact(*plan.plugin, {options.pen[0], options.pen[1], 0}, zoom);
    for (size_t i = 0; i + 1 < options.pen.size(); i += 2)
        spark_host::interact(*plan.plugin, {options.pen[i], options.pen[i + 1], 1}, zoom);
}

void render_on_request_only(RenderPlan& plan) {
    constexpr float on_process = 1;
    for (const ParamDescription& param : plan.description.standard) {
        if (param.key != "redraw_wait" || param.numbers.empty()) continue;
        if (Control* const control = spark_host::find_control(plan.plugin->panel, param.numbers.front()))
            set_control(plan, *control, on_process);
    }
}

std::vector<unsigned char> draw(RenderPlan& plan, const HandlesOptions& options, int width, int height) {
    std::string error;
    const OffscreenFunctions* const offscreen = spark_host::offscreen_functions(&error);
    if (!offscreen) throw Failure("handles cannot be drawn: " + error, status_of(error));
    const std::unique_ptr<OffscreenViewer, void (*)(OffscreenViewer*)> viewer(
        offscreen->open(width, height, spark_host::OffscreenKind::smooth, &error), offscreen->close);
    if (!viewer) throw Failure("handles cannot be drawn: " + error);
    const spark_host::FrameFormat& format = plan.host.format;
    const auto* const made = static_cast<const unsigned char*>(make_frame(plan));
    offscreen->show(*viewer, made, format.width, format.height, 0, 0, options.zoom);
    const size_t errors = plan.host.errors.size();
    spark_host::overlay(*plan.plugin, spark_host::spark_zoom(options.zoom));
    // Told already; a picture without what could not be drawn is none.
    if (plan.host.errors.size() != errors) throw Failure("the handles were not drawn");
    return offscreen->read(*viewer);
}

}  // namespace

int handles_command(const HandlesOptions& options) {
    drop_plugin_output();
    remove_parts_on_interruption();
    if (options.pen.size() % 2) throw Failure("--pen: give pairs of numbers, X,Y");
    for (const float v : options.pen)
        if (!std::isfinite(v)) throw Failure("--pen: give numbers of pixels");
    RenderOptions of_frame = options.render;
    of_frame.depth = "8";
    of_frame.fill_inputs = true;
    const auto plan = make_plan(of_frame);
    if (plan->movie) throw Failure(of_frame.output + ": a picture of handles is no movie");
    apply_values(*plan, of_frame);
    settle_frames(*plan, of_frame);
    if (!any_handle_p(*plan))
        throw Failure(plan->choice.plugin + ":" + plan->description.effects[plan->effect].name + " has no handles");
    process_start(*plan->plugin, plan->frames.front() - plan->first_frame);
    make_frame(*plan);  // before its first frame a plug-in shows no handles
    if (!options.as_set) switch_all_on(*plan);
    if (!options.pen.empty()) {
        render_on_request_only(*plan);
        move_pen(*plan, options);
    }
    spark_host::WriteRequest request;
    request.format = plan->host.format;
    const auto zoomed = [&](int size) { return std::max(1, static_cast<int>(std::lround(size * options.zoom))); };
    request.format.width = zoomed(request.format.width);
    request.format.height = zoomed(request.format.height);
    const std::vector<unsigned char> drawn = draw(*plan, options, request.format.width, request.format.height);
    request.frame = drawn.data();
    request.pixel_ratio = plan->host.pixel_ratio;
    spark_host::WriteResult written;
    std::string error;
    if (!spark_host::picture_functions().write(plan->format_path, request, written, &error)) throw Failure(error);
    if (plan->to_stdout) {
        print(std::string(written.file.data(), written.file.data() + written.file.size()));
        return exit_done;
    }
    if (!write_whole_file(path_of_frame(plan->output, plan->frames.front()), written.file, &error))
        throw Failure(error);
    return exit_done;
}

}  // namespace render
