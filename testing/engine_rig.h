// A frame's set-up without the entry points: a plug-in record, a host of so many tasks, host frames of random samples,
// rasters, and one effect text read, compiled and rendered. For tests and benches of the engine.
#pragma once

#include "compile/compile.h"
#include "compile/load.h"
#include "compile/need_walk.h"
#include "engine/evaluate.h"
#include "engine/images.h"
#include "frame/add_noise.h"
#include "frame/host_buffers.h"
#include "frame/rasters.h"
#include "functions/function_table.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/param_record.h"
#include "hosts/common/plugin.h"
#include "records/frame.h"
#include "support/abort.h"
#include "support/user_abort.h"
#include "testing/host_of_tasks.h"

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace velloran_tests {

using HostFrame = HostVector<uint16_t>;  // interleaved, value in the top 12 bits

struct Shape {
    int width = 37, height = 23;
    int step = 1;
    velloran::RasterRect crop = {0, 0, 0, 0};        // w 0: no crop
    velloran::RasterRect input_crop = {0, 0, 0, 0};  // the part of the inputs that counts as the picture; w 0: all
};

// Coordinates by their fixed-point rule, 12 fraction bits, at sample (i, j) of step s.
inline int x_at(const Shape& shape, int i) {
    const int inc = velloran::float_to_fix((float)(8192.0 / shape.width));
    return (i * shape.step * inc + inc / 2 * shape.step - 0xfff800) >> 12;
}
inline int y_at(const Shape& shape, int j) {
    const int inc = velloran::float_to_fix((float)(8192.0 / shape.width));
    const int r = velloran::float_to_fix((float)(4096.0 * shape.height / shape.width));
    return (inc / 2 * shape.step - r + j * shape.step * inc + 2048) >> 12;
}

// How often each function did what; by EvalEvent and function name ("" for a pass of something else).
using EventCounts = std::map<std::pair<int, std::string>, int>;
inline EventCounts& event_counts() {
    static EventCounts counts;
    return counts;
}
inline int ran(velloran::EvalEvent event, const std::string& name) { return event_counts()[{event, name}]; }

class EngineRig {
public:
    explicit EngineRig(int tasks = 1, Shape frame_shape = {})
        : shape(frame_shape), host(tasks, frame_shape.width, frame_shape.height, SPARK_DEPTH_12) {
        using namespace velloran;
        outer_ = Globals_V4;
        Globals_V4 = &record;
        std::memset(&record, 0, sizeof record);
        const uint8_t elements[8] = {4, 1, 1, 2, 3, 3, 3, 3};
        std::memcpy(record.source_tags, elements, sizeof elements);
        for (int v = first_input_var; v < first_input_var + MAX_INPUTS; ++v) record.changed_tags[v] = 1;
        record.number_of_input_images = -1;
        record.res_factor = (int16_t)shape.step;
        record.run_record = &record.run_records[0];
        record.plugin_name = "Rig";
        fill_node_fun_tables();

        // Registered buffers that keep their content.
        outer_explicit_ = explicit_spark_buffer_allocation_p;
        explicit_spark_buffer_allocation_p = 1;
        for (int i = 0; i < MAX_BUFFER_IDS; ++i) record.buffer_ids[i] = i + 1;
        host.host.plugin = &plugin_;
        plugin_.host = &host.host;
        plugin_.buffers.list.resize(33);
        host.host.on_get_buffer = [this](int id, SparkMemBufStruct* buffer) {
            auto& memory = buffers_[id];
            memory.resize((size_t)shape.width * (size_t)shape.height * 3, 0x1234);  // the destination may be lent
            buffer->BufferId = id;
            buffer->BufferState = SPARK_BUF_ALLOCATED | (lost_buffer(id) ? SPARK_BUF_DIRTY : SPARK_BUF_CLEAN);
            buffer->BufferSize = (long)memory.size() * 2;
            buffer->Buffer = memory.data();
            return 1;
        };

        std::mt19937 rng(7);
        for (HostFrame& input : inputs) {
            input.resize((size_t)shape.width * (size_t)shape.height * 3);
            for (uint16_t& v : input) v = (uint16_t)(rng() & 0xfff0);
        }
        set_frame(0);
    }
    ~EngineRig() {
        using namespace velloran;
        host.host.plugin = nullptr;
        free_effect();
        free_prev_dest_images();
        the_frame->dest_raster_info = the_frame->temp_raster_info = {};
        the_frame->render_info = {};
        the_frame->render_field = 0;
        the_frame->short_image_size = 0;
        images_moved = 1;
        explicit_spark_buffer_allocation_p = outer_explicit_;
        Globals_V4 = outer_;
    }

    void free_effect() {
        if (!record.effect_genotype) return;
        velloran::free_genotype(record.effect_genotype);
        record.effect_genotype = record.genotypes[0] = nullptr;
        record.last_imaged_genotype = nullptr;
    }

    // Reads and selects. Null after a fault in the text or a fatal abort.
    velloran::Genotype* load(const std::string& text) {
        using namespace velloran;
        free_effect();
        AbortTarget outer;
        arm_abort(outer);
        if (setjmp(_V_jmpbuf)) {
            disarm_abort(outer);
            return nullptr;
        }
        record.effect_genotype = record.genotypes[0] = read_genotype_from_string(text.c_str());
        record.n_effects = 1;
        record.selected_effect = 0;
        if (record.effect_genotype) {
            record.number_of_input_images = record.effect_genotype->input_number;
            record.n_inputs = 4;
            record.render_flags = 0;
        }
        disarm_abort(outer);
        return record.effect_genotype;
    }
    // The usual text: an effect of this body with four inputs.
    velloran::Genotype* load_body(const std::string& body, const std::string& modifiers = "rgba_ok") {
        return load("(def_effect Test (Source Back Front Matte) (" + modifiers + ") " + body + ")");
    }

    void set_frame(int number, int length = 24) {
        velloran::set_time_globals((float)number, (float)length, 0, (float)(length - 1));
    }
    void set_param(const char* name, float value) {
        velloran::Param* param = velloran::get_param_by_name(record.effect_genotype, name);
        for (float& v : param->value) v = value;
    }

    // Steps 11, 12 and 22 of a frame, then the evaluation. 0, -1 refused, -2 fatal abort.
    int render() {
        using namespace velloran;
        event_counts().clear();
        eval_hook = [](EvalEvent event, const Node* node) {
            ++event_counts()[{event, node->type == node_function ? node->fun_info->name : ""}];
        };
        AbortTarget outer;
        arm_abort(outer);
        Frame* const frame = the_frame;
        if (setjmp(_V_jmpbuf)) {
            the_frame = frame;
            disarm_abort(outer);
            eval_hook = nullptr;
            return -2;
        }
        const int phase = (shape.step - 1) / 2;
        const RasterRect* crop = shape.crop.w ? &shape.crop : nullptr;
        fill_render_info(&the_frame->render_info, host.info, shape.step, phase, crop);
        for (rinfo& source : the_frame->source_raster_infos) fill_host_raster(&source, host.info, shape.step, phase);
        if (absent_input >= 0) the_frame->source_raster_infos[absent_input].width = 0;
        for (auto& [id, memory] : buffers_)
            if (lost_buffer(id)) std::fill(memory.begin(), memory.end(), (uint16_t)0x2345);
        RasterRect area = {0, 0, shape.width, shape.height};
        if (crop && record.effect_genotype) {
            recompile_genotype(record.effect_genotype, 0);
            get_expanded_src(record.effect_genotype, shape.crop, area, &area);
        }
        fill_temp_raster(&the_frame->temp_raster_info, host.info, shape.step, phase, &area);
        const RasterRect& input = shape.input_crop;
        record.wrapped = input.w > 0;
        if (record.wrapped)
            raster_set_wrap_dims(&the_frame->temp_raster_info, input.x, input.w, input.y, input.h, shape.step);
        rinfo& dest_raster = the_frame->dest_raster_info;
        fill_host_raster(&dest_raster, host.info, 1, 0);
        dest_raster.add_noise = add_noise;
        if (add_noise > 0) reserve_noise_lines(dest_raster);
        for (int i = 0; i < MAX_INPUTS; ++i) init_source_image(inputs[i].data(), i + 1, source_elements[i]);
        reset_abort();
        if (keep_dest)
            dest.resize((size_t)shape.width * (size_t)shape.height * 3);
        else
            dest.assign((size_t)shape.width * (size_t)shape.height * 3, 0);
        const int result = evaluate_frame(dest.data(), 1);
        if (result == 0 && record.effect_genotype) note_params_rendered(record.effect_genotype);
        eval_hook = nullptr;
        disarm_abort(outer);
        return result;
    }

    // What sparkGetFrame gives, by input.
    std::vector<spark_host::ClipPtr>& clips() { return plugin_.inputs; }
    // Sample of the working scale of a host element.
    int source(int input, int x, int y, int c) const { return inputs[input][index(x, y, c)] >> 4; }
    int result(int x, int y, int c) const { return dest[index(x, y, c)] >> 4; }
    size_t index(int x, int y, int c) const { return ((size_t)y * (size_t)shape.width + (size_t)x) * 3 + (size_t)c; }

    Shape shape;
    HostOfTasks host;
    velloran::GlobalsV4Record record;
    HostFrame inputs[4], dest;
    uint64_t lost = 0;      // bit i: the host lost the content of the buffer with id i
    int absent_input = -1;  // the host has no frame for it
    int source_elements[4] = {3, 3, 3, 3};
    float add_noise = 0;     // the control
    bool keep_dest = false;  // render over what dest holds

private:
    bool lost_buffer(int id) const { return lost >> id & 1; }

    velloran::GlobalsV4Record* outer_;
    int outer_explicit_;
    std::map<int, HostVector<uint16_t>> buffers_;
    spark_host::Plugin plugin_;
};

}  // namespace velloran_tests
