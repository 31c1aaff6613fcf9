// An effect's graph with what each node gave for a pixel, and what it took: a frame is rendered as it always is, and
// watched.
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/explanation.h"
#include "hosts/render/failure.h"
#include "hosts/render/output_file.h"
#include "hosts/render/setup_file.h"

#include <algorithm>
#include <span>

namespace render {
namespace {

template <class F>
F service(const RenderPlan& plan, const char* name) {
    const auto function = reinterpret_cast<F>(spark_host::plugin_symbol(*plan.plugin, name));
    if (!function) throw Failure(plan.choice.module_path + ": cannot explain its effects");
    return function;
}

const void* make_frame(RenderPlan& plan, int frame) {
    const void* const made = process(*plan.plugin, frame - plan.first_frame);
    if (made) return made;
    for (const auto& input : plan.inputs)
        if (input && !input->failure.empty()) throw Failure(input->failure);
    throw Failure(plan.plugin->failure.empty() ? "the effect gave no frame" : plan.plugin->failure);
}

void check_pixel(const RenderPlan& plan, const std::vector<int>& pixel) {
    const spark_host::FrameFormat& format = plan.host.format;
    if (pixel.empty()) return;
    if (pixel.size() != 2) throw Failure("--pixel: give two numbers, X,Y");
    if (pixel[0] >= 0 && pixel[1] >= 0 && pixel[0] < format.width && pixel[1] < format.height) return;
    throw Failure("--pixel: " + std::to_string(pixel[0]) + "," + std::to_string(pixel[1]) +
                  " lies outside the frame of " + std::to_string(format.width) + "x" + std::to_string(format.height));
}

// In 12 bits, as the library counts.
int sample_of(const void* frame, const spark_host::FrameFormat& format, size_t at) {
    if (format.depth == SPARK_DEPTH_8) {
        const int sample = static_cast<const unsigned char*>(frame)[at];
        return sample << 4 | sample >> 4;
    }
    return static_cast<const uint16_t*>(frame)[at] >> 4;
}

void take_frame(void* context, const SparkFrameExplanation* frame) {
    auto& explanation = *static_cast<Explanation*>(context);
    explanation.seconds = frame->Seconds;
    explanation.plane_bytes = frame->PlaneBytes;
    explanation.planes = frame->Planes;
}

void take_node(void* context, const SparkNodeInfo* info) {
    ExplainedNode node;
    node.row = info->Index;
    node.name = info->Name;
    if (info->Function) node.function = info->Function;
    if (info->Param) node.param = info->Param;
    node.elements = info->Elements;
    for (int a = 0; a < info->Arguments; a++)
        node.arguments.push_back(
            {info->ArgumentNames[a] ? info->ArgumentNames[a] : "", info->ArgumentIndices[a], a < info->Evaluated});
    node.constant = info->Constant;
    node.stands_for = info->StandsFor;
    node.how = info->How;
    node.pass = info->Pass;
    node.has_value = info->HasValue != 0;
    std::copy_n(info->Value, 4, node.value);
    node.seconds = info->Seconds;
    node.planes = info->PlaneBytes;
    node.lines = info->LineBytes;
    node.work = info->WorkBytes;
    node.shared = info->SharedBytes;
    static_cast<Explanation*>(context)->nodes.push_back(node);
}

}  // namespace

int explain_command(const ExplainOptions& options) {
    drop_plugin_output();
    remove_parts_on_interruption();
    RenderOptions of_frame = options.render;
    of_frame.output = "-.png";
    of_frame.fill_inputs = true;
    if (of_frame.inputs.empty() && of_frame.size.empty()) of_frame.size = "1920x1080";
    const auto plan = make_plan(of_frame);
    check_pixel(*plan, options.pixel);
    apply_values(*plan, of_frame);
    settle_frames(*plan, of_frame);
    const int frame = plan->frames.front();
    const std::vector<int> make = frames_to_make(*plan, {frame});
    process_start(*plan->plugin, make.front() - plan->first_frame);
    hold_given_values(*plan->plugin, plan->assignments, plan->first_frame);
    const auto watch = service<SparkWatchFn>(*plan, "SparkWatch");
    const auto explain = service<SparkExplainFn>(*plan, "SparkExplain");
    for (const int before : make)
        if (before != frame) make_frame(*plan, before);
    Explanation explanation;
    explanation.pixel = !options.pixel.empty();
    if (explanation.pixel) explanation.x = options.pixel[0], explanation.y = options.pixel[1];
    if (!watch(explanation.pixel ? explanation.x : -1, explanation.pixel ? explanation.y : -1))
        throw Failure("out of memory", exit_no_memory);
    const void* const made = make_frame(*plan, frame);
    const SparkExplainVisitor visitor = {&explanation, take_frame, take_node};
    if (!explain(&visitor)) throw Failure("what is rendered field by field cannot be explained; leave on_fields out");

    const spark_host::FrameFormat& format = plan->host.format;
    explanation.effect = plan->choice.plugin + ":" + plan->description.effects[plan->effect].name;
    std::replace(explanation.effect.begin(), explanation.effect.end(), ' ', '_');
    explanation.width = format.width;
    explanation.height = format.height;
    explanation.frame = frame;
    for (size_t c = 0; c < 3 && explanation.pixel; c++)
        explanation.made[c] = sample_of(made, format,
                                        (static_cast<size_t>(explanation.y) * static_cast<size_t>(format.width) +
                                         static_cast<size_t>(explanation.x)) *
                                                3 +
                                            c);
    find_reasons(explanation);
    std::string error;
    const std::string drawing = options.drawing.empty() ? "" : explanation_drawing(explanation);
    if (!drawing.empty() &&
        !write_whole_file(options.drawing, {reinterpret_cast<const unsigned char*>(drawing.data()), drawing.size()},
                          &error))
        throw Failure(error);
    print(options.json ? explanation_json(explanation) : explanation_text(explanation));
    return exit_done;
}

}  // namespace render
