#include "engine/fused_pass.h"

#include "engine/evaluate.h"
#include "engine/fused_luts.h"
#include "engine/passes.h"
#include "frame/pixel_formats.h"
#include "frame/pixel_formats_rows.h"
#include "fused/fused_code.h"
#include "fused/fused_plan.h"
#include "fused/recorder.h"
#include "fused/value_graph.h"
#include "records/frame.h"
#include "records/run_state.h"
#include "support/memory.h"
#include "support/unload.h"
#include "support/user_abort.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace velloran {

int fuse_passes_p = 1;
int least_fused_samples = 16384;
int n_fused_passes = 0;

namespace {

constexpr int rows_between_polls = 64;
constexpr int largest_block_bytes = 192;  // of one source
// A look-up costs about as much as so many operations on half a vector.
constexpr int least_table_cost = 60;
// What is chosen out of the 256 results of a byte costs less; a LUT is such a table already.
constexpr int least_byte_table_cost = 11;
constexpr size_t most_tables_made = 64;

struct Source {
    const uint8_t* start;  // of the area's first row and column
    ptrdiff_t pitch;       // bytes
    int pixel_bytes;
    // Planes are told apart by where they are, frames by their input.
    const void* plane;
    int input;
};

// The pass in hand. It is kept, so that a fatal abort finds nothing to free.
struct FusedPass {
    std::vector<Source> sources;
    std::vector<uint8_t> source_forms;
    std::array<uint8_t*, max_fused_outputs> outputs;
    int n_outputs;
    ptrdiff_t output_pitch;
    int output_pixel_bytes;
    int width;
    const FusedCode* code;
    FusedConstants constants;
    FusedPlan plan;
    std::vector<Node> nodes;
    std::vector<int32_t> tokens;
    std::vector<ValueRange> ranges;                              // four a node
    std::vector<uint8_t> tables;                                 // of nodes: 1 for a table
    std::vector<std::vector<int32_t>> results;                   // of nodes for all samples of a host frame
    std::array<std::vector<int32_t>, max_fused_outputs> stored;  // the same of outputs, through the LUT
};
FusedPass pass;

// What VELLORAN_FUSING says; looked at once.
enum Fusing : int { fusing_off, fusing_of_large_areas, fusing_of_all };
Fusing fusing_of_run() {
    static const Fusing fusing = [] {
        const char* const word = std::getenv("VELLORAN_FUSING");
        if (word && std::strcmp(word, "off") == 0) return fusing_off;
        return word && std::strcmp(word, "all") == 0 ? fusing_of_all : fusing_of_large_areas;
    }();
    return fusing;
}

bool worth_fusing(const FusedArea& area) {
    const Fusing fusing = fusing_of_run();
    if (!fuse_passes_p || fusing == fusing_off || !fused_code_possible()) return false;
    return fusing == fusing_of_all || static_cast<int64_t>(area.width) * area.height >= least_fused_samples;
}

void free_pass() { pass = {}; }

// ---- From nodes to values

// A recorder in hand, for functions of one sample in some place. A fatal abort, which passes it, ends it too.
class Recording {
public:
    Recording(Recorder* in_hand, int place)
        : samples_before_(n_pixels), row_before_(eval_block_row), column_before_(eval_block_column) {
        n_pixels = 1;
        eval_block_row = eval_block_column = place;
        recorder = in_hand;
        push_abort_cleanup([](void*) { recorder = nullptr; }, nullptr);
    }
    ~Recording() {
        pop_abort_cleanup();
        recorder = nullptr;
        n_pixels = samples_before_;
        eval_block_row = row_before_;
        eval_block_column = column_before_;
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

private:
    int samples_before_, row_before_, column_before_;
};

class Tracer {
public:
    Tracer(const Node* root, const FusedArea& area)
        : root_(root), area_(area), recorder_(graph), results_(pass.results) {}

    ValueGraph graph;
    std::vector<int> outputs;

    bool run(int n_outputs) {
        const size_t count = static_cast<size_t>(eval_node_count);
        pass.nodes.resize(std::max<size_t>(count, 1));
        pass.tokens.assign(count * 4 + first_node_token, 0);
        pass.ranges.assign(count * 4, {});
        pass.tables.assign(count, 0);
        results_.clear();
        results_.resize(count);
        for (int i = 0; i < MAX_INPUTS; ++i)
            for (int e = 0; e < 4; ++e) lines_.input_lines[i][e] = &pass.tokens[static_cast<size_t>(4 * i + e)];
        lines_.x_line = &pass.tokens[16];
        lines_.y_line = &pass.tokens[17];

        if (!count) return read_root(n_outputs);
        for (int i = 0; i < eval_node_count; ++i)
            if (!trace(i)) return false;
        for (int e = 0; e < n_outputs; ++e) outputs.push_back(value_of_node(eval_node_count - 1, e));
        return true;
    }

private:
    static constexpr size_t first_node_token = 20;

    int32_t* token(int node, int element) {
        return &pass.tokens[first_node_token + static_cast<size_t>(4 * node + element)];
    }
    int value_of_node(int node, int element) { return recorder_.values.at(token(node, element)); }

    bool read_root(int n_outputs) {
        for (int e = 0; e < n_outputs; ++e) {
            if (is_constant(root_)) {
                outputs.push_back(graph.constant(root_->vals[e]));
            } else {
                if (!is_input(root_) || !input_value(root_->var_index - first_input_var, e)) return false;
                outputs.push_back(recorder_.values.at(lines_.input_lines[root_->var_index - first_input_var][e]));
            }
        }
        return true;
    }

    // Enters the line of an input's channel.
    bool input_value(int input, int channel) {
        const int32_t* const line = lines_.input_lines[input][channel];
        if (recorder_.values.contains(line)) return true;
        if (channel == 3) {
            recorder_.values[line] = graph.constant(fix_scale);
            return true;
        }
        const int source = frame_source(input);
        if (source < 0) return false;
        const int form = pass.source_forms[static_cast<size_t>(source)];
        const int value = graph.sample(source, channel, 0, fix_max, form == form_rgb8);
        const int32_t* const lut = fused_input_lut(form);
        recorder_.values[line] = lut ? graph.table(value, lut) : value;
        return true;
    }
    int frame_source(int input) {
        for (size_t s = 0; s < pass.sources.size(); ++s)
            if (!pass.sources[s].plane && pass.sources[s].input == input) return static_cast<int>(s);
        const void* const frame = input_frame(input);
        const rinfo& raster = the_frame->source_raster_infos[input];
        const int form = host_form_of(raster.pixel_type);
        const bool covers = raster.render_step == 1 && raster.x <= area_.left && raster.y <= area_.bottom &&
                            raster.x + raster.width >= area_.left + area_.width &&
                            raster.y + raster.height >= area_.bottom + area_.height;
        if (!frame || form < 0 || !covers || pass.sources.size() >= max_fused_sources) return -1;
        const auto* const row = static_cast<const uint8_t*>(source_row_of(raster, frame, area_.bottom - raster.y));
        pass.sources.push_back({row + static_cast<ptrdiff_t>(area_.left - raster.x) * raster.bytes_per_pixel,
                                static_cast<ptrdiff_t>(host_row_pitch(raster)), raster.bytes_per_pixel, nullptr,
                                input});
        pass.source_forms.push_back(static_cast<uint8_t>(form));
        return static_cast<int>(pass.sources.size()) - 1;
    }
    int plane_source(const FixPixel* plane) {
        for (size_t s = 0; s < pass.sources.size(); ++s)
            if (pass.sources[s].plane == plane) return static_cast<int>(s);
        if (!plane || pass.sources.size() >= max_fused_sources) return -1;
        const ptrdiff_t offset =
            static_cast<ptrdiff_t>(area_.bottom - area_.base_row) * area_.pitch + area_.left - area_.base_column;
        pass.sources.push_back(
            {reinterpret_cast<const uint8_t*>(plane + offset), static_cast<ptrdiff_t>(area_.pitch) * 2, 2, plane, -1});
        pass.source_forms.push_back(form_planes);
        return static_cast<int>(pass.sources.size()) - 1;
    }

    bool trace(int i) {
        const Node* const original = eval_nodes[i];
        Node& node = pass.nodes[static_cast<size_t>(i)];
        node = *original;
        for (int e = 0; e < node.elnum; ++e) node.lines[e] = token(i, e);
        if (original->type != node_function || original->eval_fun == image_line_reader) {
            // Read from its images.
            for (int e = 0; e < original->elnum; ++e) {
                const int source = plane_source(original->images[e]);
                if (source < 0) return false;
                recorder_.values[token(i, e)] = graph.sample(source, -1, INT16_MIN, INT16_MAX);
            }
            return true;
        }
        if (original->fun_info->make_state_fun || original->eval_fun != original->pixel_fun || !original->pixel_fun)
            return false;
        node.source_lines = &lines_;
        node.cell_state = nullptr;
        for (int a = 0; a < node.arg_number; ++a)
            if (!link(&node, a)) return false;

        // Told twice, of other samples in another place: what does not tell the same hangs on more than its arguments.
        std::array<int, 4> first = {}, second = {};
        if (!record(&node, i, 1000, 0, &first) || !record(&node, i, -3000, 1, &second) || first != second) return false;
        for (int e = 0; e < node.elnum; ++e) {
            make_table(i, e);
            pass.ranges[static_cast<size_t>(4 * i + e)] = graph[value_of_node(i, e)].range;
        }
        pass.tables[static_cast<size_t>(i)] = 1;
        for (int e = 0; e < node.elnum; ++e)
            if (graph[value_of_node(i, e)].op != ValueOp::table) pass.tables[static_cast<size_t>(i)] = 0;
        return !graph.overflowed();
    }

    bool link(Node* node, int a) {
        Node* const arg = node->args[a];
        const int at = arg->ref_index;
        if (at >= 0 && at < eval_node_count && eval_nodes[at] == arg) {
            Node* const copy = &pass.nodes[static_cast<size_t>(at)];
            node->args[a] = copy;
            node->arg_lines[a] = copy->lines;
            return true;
        }
        if (arg->type == node_var && !arg->image_count) {
            if (!is_input(arg)) return a >= node->eval_arg_number;
            const int input = arg->var_index - first_input_var;
            for (int e = 0; a < node->eval_arg_number && e < arg->elnum; ++e)
                if (!input_value(input, e)) return false;
            node->arg_lines[a] = lines_.input_lines[input];
            return true;
        }
        node->arg_lines[a] = arg->lines;
        return is_constant(arg) || a >= node->eval_arg_number;
    }

    bool record(Node* node, int i, int32_t sample, int row, std::array<int, 4>* values) {
        std::fill(pass.tokens.begin(), pass.tokens.end(), sample);
        for (int e = 0; e < node->elnum; ++e) recorder_.values.erase(token(i, e));
        {
            const Recording recording(&recorder_, row);
            node->eval_fun(node);
        }
        if (recorder_.refused) return false;
        for (int e = 0; e < node->elnum; ++e) {
            const auto found = recorder_.values.find(token(i, e));
            if (found == recorder_.values.end()) return false;
            (*values)[static_cast<size_t>(e)] = found->second;
        }
        return true;
    }

    // ---- Tables of what hangs on one sample of a host frame

    bool of_one_sample(int value) const {
        const int base = graph[value].base;
        return base == base_none || (base >= 0 && graph.samples[static_cast<size_t>(graph[base].number)].channel >= 0);
    }
    void make_table(int i, int e) {
        const int id = value_of_node(i, e);
        const Value v = graph[id];
        if (v.base < 0 || v.op == ValueOp::table || v.op == ValueOp::sample || !of_one_sample(id)) return;
        const int least = graph.of_bytes(id) ? least_byte_table_cost : least_table_cost;
        if (!v.opaque && graph.cost(id) < least) return;
        if (graph.tables.size() >= most_tables_made) return;
        recorder_.values[token(i, e)] = graph.table(v.base, results_of(i) + static_cast<ptrdiff_t>(e) * table_length);
    }

    // The node's results for the samples 0 to 4095, from the row kernels themselves. All samples of host frames go
    // through their values together and planes are black: what hangs on one sample alone is the same for whatever the
    // others may be, but not for values that they cannot lead to.
    const int32_t* results_of(int i) {
        std::vector<int32_t>& lines = results_[static_cast<size_t>(i)];
        const Node* const original = eval_nodes[i];
        if (!lines.empty()) return lines.data();
        lines.assign(static_cast<size_t>(original->elnum) * table_length, 0);
        if (original->eval_fun == image_line_reader) return lines.data();
        if (white_.empty()) white_.assign(table_length, fix_scale);
        Node node = pass.nodes[static_cast<size_t>(i)];
        int32_t* arg_lines[MAX_ARG_NUMBER][4];
        for (int e = 0; e < node.elnum; ++e) node.lines[e] = lines.data() + static_cast<ptrdiff_t>(e) * table_length;
        for (int a = 0; a < node.eval_arg_number; ++a) {
            Node* const arg = original->args[a];
            const int at = arg->ref_index;
            if (at >= 0 && at < eval_node_count && eval_nodes[at] == arg) {
                const int32_t* const from = results_of(at);
                for (int e = 0; e < 4; ++e)
                    arg_lines[a][e] = const_cast<int32_t*>(
                        from + static_cast<ptrdiff_t>(std::min<int>(e, arg->elnum - 1)) * table_length);
                node.arg_lines[a] = arg_lines[a];
            } else if (is_input(arg) && !arg->image_count) {
                int32_t* const ramp = ramp_of(arg->var_index - first_input_var);
                for (int e = 0; e < 4; ++e) arg_lines[a][e] = e == 3 ? white_.data() : ramp;
                node.arg_lines[a] = arg_lines[a];
            }
        }
        const int n_before = n_pixels;
        n_pixels = table_length;
        node.eval_fun(&node);  // which allocates nothing
        n_pixels = n_before;
        return lines.data();
    }

    // What an input's channels are for the samples 0 to 4095 of its frame.
    int32_t* ramp_of(int input) {
        const int form = host_form_of(the_frame->source_raster_infos[input].pixel_type);
        std::vector<int32_t>& ramp = ramps_.at(static_cast<size_t>(std::max(form, 0)));
        if (!ramp.empty()) return ramp.data();
        ramp.resize(table_length);
        for (int k = 0; k < table_length; ++k) ramp[static_cast<size_t>(k)] = k;
        if (const int32_t* const lut = form < 0 ? nullptr : fused_input_lut(form))
            std::copy(lut, lut + table_length, ramp.begin());
        return ramp.data();
    }

    const Node* root_;
    const FusedArea& area_;
    SourceLines lines_;
    Recorder recorder_;
    std::vector<std::vector<int32_t>>& results_;
    std::array<std::vector<int32_t>, n_host_forms> ramps_;
    std::vector<int32_t> white_;
};

// What is stored for an output that goes through a LUT into a host frame.
int through_lut(ValueGraph& graph, size_t output, int value, const int32_t* lut) {
    const Value v = graph[value];
    if (v.op == ValueOp::table) {
        std::vector<int32_t>& results = pass.stored.at(output);
        chain_lut(graph.tables[static_cast<size_t>(v.number)].results, lut, &results);
        return graph.table(v.a, results.data());
    }
    const int held =
        graph.make(ValueOp::smaller, graph.make(ValueOp::larger, value, graph.constant(0)), graph.constant(fix_max));
    return graph.table(held, lut);
}

bool set_output(const FusedArea& area, void* dest, fix_plane* planes, int n_planes, uint8_t* form) {
    if (planes) {
        const ptrdiff_t offset =
            static_cast<ptrdiff_t>(area.bottom - area.base_row) * area.pitch + area.left - area.base_column;
        for (int e = 0; e < n_planes; ++e)
            pass.outputs[static_cast<size_t>(e)] = reinterpret_cast<uint8_t*>(planes[e] + offset);
        pass.n_outputs = n_planes;
        pass.output_pitch = static_cast<ptrdiff_t>(area.pitch) * 2;
        pass.output_pixel_bytes = 2;
        *form = form_planes;
        return true;
    }
    const rinfo& raster = the_frame->dest_raster_info;
    const int host_form = host_form_of(raster.pixel_type);
    const RasterRect& crop = the_frame->render_info.croprect;
    const bool inside = area.left >= std::max(raster.x, crop.x) && area.bottom >= std::max(raster.y, crop.y) &&
                        area.left + area.width <= std::min(raster.x + raster.w, crop.x + crop.w) &&
                        area.bottom + area.height <= std::min(raster.y + raster.h, crop.y + crop.h);
    if (host_form < 0 || !inside || raster.add_noise > 0) return false;
    pass.output_pitch = static_cast<ptrdiff_t>(host_row_pitch(raster));
    pass.output_pixel_bytes = raster.bytes_per_pixel;
    pass.outputs[0] = static_cast<uint8_t*>(dest) + static_cast<ptrdiff_t>(area.bottom - raster.y) * pass.output_pitch +
                      static_cast<ptrdiff_t>(area.left - raster.x) * raster.bytes_per_pixel;
    pass.n_outputs = 1;
    *form = static_cast<uint8_t>(host_form);
    return true;
}

// The pixels at a row's end that make no block: the code works copies that are as long as one.
void run_rest(FusedCall call, int n) {
    alignas(64) uint8_t in[max_fused_sources][largest_block_bytes];
    alignas(64) uint8_t out[max_fused_outputs][largest_block_bytes];
    for (size_t s = 0; s < pass.sources.size(); ++s) {
        std::memset(in[s], 0, sizeof in[s]);
        std::memcpy(in[s], call.sources[s], static_cast<size_t>(n * pass.sources[s].pixel_bytes));
        call.sources[s] = in[s];
    }
    const size_t bytes = static_cast<size_t>(n * pass.output_pixel_bytes);
    uint8_t* outputs[max_fused_outputs];
    for (int o = 0; o < pass.n_outputs; ++o) {
        outputs[o] = call.outputs[o];
        std::memset(out[o], 0, sizeof out[o]);
        std::memcpy(out[o], outputs[o], bytes);
        call.outputs[o] = out[o];
    }
    call.blocks = 1;
    pass.code->function(&call);
    for (int o = 0; o < pass.n_outputs; ++o) std::memcpy(outputs[o], out[o], bytes);
}

void run_row(int row) {
    FusedCall call;
    const int lanes = pass.code->lanes;
    call.constants = pass.constants.data();
    call.blocks = pass.width / lanes;
    for (size_t s = 0; s < pass.sources.size(); ++s)
        call.sources[s] = pass.sources[s].start + row * pass.sources[s].pitch;
    for (int o = 0; o < pass.n_outputs; ++o)
        call.outputs[o] = pass.outputs[static_cast<size_t>(o)] + row * pass.output_pitch;
    if (call.blocks) pass.code->function(&call);
    const int rest = pass.width % lanes;
    if (!rest) return;
    const ptrdiff_t done = pass.width - rest;
    for (size_t s = 0; s < pass.sources.size(); ++s) call.sources[s] += done * pass.sources[s].pixel_bytes;
    for (int o = 0; o < pass.n_outputs; ++o) call.outputs[o] += done * pass.output_pixel_bytes;
    run_rest(call, rest);
}

}  // namespace

namespace {

bool prepare(const Node* root, const FusedArea& area, void* dest, fix_plane* planes, int n_planes) {
    free_at_unload(free_pass);
    pass.sources.clear();
    pass.source_forms.clear();
    pass.width = area.width;
    uint8_t form;
    if (!set_output(area, dest, planes, n_planes, &form)) return false;
    const int n = planes ? n_planes : root->elnum < 3 ? 1 : 3;
    Tracer tracer(root, area);
    if (n > root->elnum || !tracer.run(n)) return false;
    // Values of 16 bits are held to what is stored where that may be one with what the text does; others as they are
    // stored.
    const int32_t* const lut = planes ? nullptr : fused_output_lut(form);
    for (size_t o = 0; lut && o < tracer.outputs.size(); ++o)
        tracer.outputs[o] = through_lut(tracer.graph, o, tracer.outputs[o], lut);
    for (int& output : tracer.outputs)
        if (!planes && fits_16_bits(tracer.graph[output].range))
            output = tracer.graph.make(ValueOp::smaller,
                                       tracer.graph.make(ValueOp::larger, output, tracer.graph.constant(0)),
                                       tracer.graph.constant(fix_max));
    if (!make_fused_plan(tracer.graph, tracer.outputs, form, pass.source_forms, &pass.plan)) return false;
    pass.code = fused_code_for(pass.plan);
    if (!pass.code) return false;
    pass.constants.fill(pass.plan, *pass.code);
    return true;
}

}  // namespace

bool prepare_fused_pass(const Node* root, const FusedArea& area, void* dest, fix_plane* planes, int n_planes) {
    if (!worth_fusing(area)) return false;
    if (the_frame->render_field || image_step != 1) return false;
    try {
        if (!prepare(root, area, dest, planes, n_planes)) return false;
    } catch (const std::bad_alloc&) {
        return false;  // the row kernels need less
    }
    ++n_fused_passes;
    return true;
}

ValueRange fused_range(int node, int element) { return pass.ranges.at(static_cast<size_t>(4 * node + element)); }

bool fused_table_p(int node) { return pass.tables.at(static_cast<size_t>(node)) != 0; }

void run_fused_rows(int first, int count) {
    for (int k = 0; k < count; ++k) {
        if (k % rows_between_polls == 0 && poll_abort()) break;
        run_row(first + k);
    }
}

}  // namespace velloran
