#include "engine/watch.h"

#include "engine/evaluate.h"
#include "engine/fused_pass.h"
#include "support/memory.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <iterator>

namespace velloran {
namespace {

WatchedNode* watched(FrameWatch* watch, const Node* node) {
    const int row = watched_row(watch, node);
    return row < 0 ? nullptr : &watch->nodes[row];
}

// The time since the span began, without what was taken inside; counted as taken inside the one around it.
struct Taken {
    WatchedNode* node;
    int row;
    int64_t own;
    WatchSpan* around;
    bool ended;
};
Taken take_span(FrameWatch* watch) {
    if (watch->depth <= 0) return {};
    const WatchSpan& span = watch->spans[--watch->depth];
    Taken taken = {};
    taken.ended = true;
    taken.row = span.node;
    taken.node = span.node < 0 ? nullptr : &watch->nodes[span.node];
    const int64_t whole = watch_clock() - span.start;
    taken.own = std::max<int64_t>(whole - span.inner, 0);
    taken.around = watch->depth > 0 ? &watch->spans[watch->depth - 1] : nullptr;
    if (taken.around) taken.around->inner += span.inner + (taken.node ? taken.own : 0);
    if (taken.node) {
        const size_t peak = std::max(span.peak, frame_bytes_peak());
        taken.node->work_bytes = std::max(taken.node->work_bytes, peak - std::min(peak, span.bytes_before));
    }
    restart_frame_peak();
    return taken;
}

void note_variable(FrameWatch* watch, const Node* node) {
    WatchedNode* const var = node->type == node_var && !node->image_count ? watched(watch, node) : nullptr;
    if (var && var->way == way_none) var->way = is_input(node) ? way_read : way_coordinate;
}

void note_pass(FrameWatch* watch, int root) {
    if (!eval_node_count && root >= 0) note_variable(watch, &watch->genotype->nodes[root]);
    for (int i = 0; i < eval_node_count; ++i) {
        WatchedNode* const node = watched(watch, eval_nodes[i]);
        if (node) node->pass = static_cast<int16_t>(root);
        if (eval_nodes[i]->type != node_function || eval_nodes[i]->eval_fun == image_line_reader) continue;
        for (int a = 0; a < eval_nodes[i]->eval_arg_number; ++a) note_variable(watch, eval_nodes[i]->args[a]);
    }
}

// Functions that take frames of a clip read the input themselves.
void note_clips(FrameWatch* watch) {
    for (int i = 0; i < watch->genotype->node_number; ++i) {
        const Node& node = watch->genotype->nodes[i];
        if (watch->nodes[i].way != way_image && watch->nodes[i].way != way_row) continue;
        for (int a = 0; a < node.eval_arg_number; ++a)
            if (is_input(node.args[a])) note_variable(watch, node.args[a]);
    }
}

}  // namespace

int64_t watch_clock() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void start_watch(FrameWatch* watch, const Genotype* genotype) {
    watch->genotype = genotype && genotype->node_number <= max_watched_nodes ? genotype : nullptr;
    watch->whole = false;
    watch->depth = 0;
    watch->plane_bytes = the_frame->short_image_size;
    std::memset(watch->nodes, 0, sizeof watch->nodes);
    for (WatchedNode& node : watch->nodes) node.pass = -1;
    restart_frame_peak();
    watch->nanoseconds = watch_clock();
}

void end_watch(FrameWatch* watch, bool whole) {
    watch->nanoseconds = watch_clock() - watch->nanoseconds;
    // The rows of one field are not the frame.
    if (watch->genotype) note_clips(watch);
    watch->whole = whole && watch->genotype && !the_frame->render_field;
}

int watched_row(const FrameWatch* watch, const Node* node) {
    const Genotype* const genotype = watch->genotype;
    if (!genotype || std::less<>()(node, genotype->nodes) ||
        !std::less<>()(node, genotype->nodes + genotype->node_number))
        return -1;
    return static_cast<int>(node - genotype->nodes);
}

void begin_span(FrameWatch* watch, const Node* node) {
    if (watch->depth >= static_cast<int>(std::size(watch->spans))) {
        watch->genotype = nullptr;  // never so deep; better no account than a wrong one
        watch->depth = 0;
    }
    if (watch->depth > 0) {
        WatchSpan& around = watch->spans[watch->depth - 1];
        around.peak = std::max(around.peak, frame_bytes_peak());
    }
    restart_frame_peak();
    watch->spans[watch->depth++] = {watched_row(watch, node), watch_clock(), 0, frame_bytes_now(), 0};
}

void end_span(FrameWatch* watch, WatchedWay way) {
    const Taken taken = take_span(watch);
    if (!taken.node) return;
    taken.node->nanoseconds += taken.own;
    taken.node->way = way;
}

void end_image_function(FrameWatch* watch, const Node* node) {
    end_span(watch, way_image);
    WatchedNode* const found = watched(watch, node);
    if (!found) return;
    if (node->fun_info->def_flags & def_needs_mipmap) found->shared_bytes += the_frame->mipmap.capacity;
    if (node->fun_info->def_flags & def_needs_long_image) found->shared_bytes += the_frame->long_image.capacity;
}

void end_row_pass(FrameWatch* watch, const PassTimes& times, bool root_takes) {
    const Taken taken = take_span(watch);
    if (!taken.ended) return;
    note_pass(watch, taken.row);
    int64_t sum = times.out;
    for (int i = 0; i < eval_node_count; ++i) sum += times.nodes[i];
    for (const std::atomic<int64_t>& input : times.inputs) sum += input;
    int64_t given = 0;
    const auto give = [&](WatchedNode* node, int64_t part) {
        if (!node) return;
        const auto share = static_cast<int64_t>(static_cast<double>(taken.own) * static_cast<double>(part) /
                                                static_cast<double>(std::max<int64_t>(sum, 1)));
        node->nanoseconds += share;
        given += share;
    };
    for (int i = 0; i < eval_node_count; ++i) {
        WatchedNode* const node = watched(watch, eval_nodes[i]);
        give(node, times.nodes[i]);
        const bool read = eval_nodes[i]->eval_fun == image_line_reader;
        if (node && !read) node->way = way_row;
        if (node && read && node->way == way_none) node->way = way_kept;
    }
    bool given_to[MAX_INPUTS] = {};
    for (int i = 0; watch->genotype && i < watch->genotype->node_number; ++i) {
        const Node& node = watch->genotype->nodes[i];
        if (!is_input(&node) || watch->nodes[i].way != way_read) continue;
        const int input = node.var_index - first_input_var;
        if (!given_to[input]) give(&watch->nodes[i], times.inputs[input]);
        given_to[input] = true;
    }
    if (taken.node && root_takes)
        taken.node->nanoseconds += std::max<int64_t>(taken.own - given, 0);
    else if (taken.node && taken.around)
        taken.around->inner -= std::max<int64_t>(taken.own - given, 0);
    else if (!taken.node && taken.around)
        taken.around->inner += given;
}

void end_fused_pass(FrameWatch* watch) {
    const Taken taken = take_span(watch);
    if (!taken.ended) return;
    note_pass(watch, taken.row);
    for (int i = 0; i < eval_node_count; ++i) {
        WatchedNode* const node = watched(watch, eval_nodes[i]);
        if (!node) continue;
        const bool read = eval_nodes[i]->type != node_function || eval_nodes[i]->eval_fun == image_line_reader;
        if (!read) node->way = fused_table_p(i) ? way_table : way_fused;
        if (read && node->way == way_none) node->way = way_kept;
    }
    if (taken.node) taken.node->nanoseconds += taken.own;
}

bool watched_sample(const FrameWatch* watch, int* column, int* row) {
    if (watch->column < 0 || watch->row < 0) return false;
    const rinfo& working = the_frame->temp_raster_info;
    const int step = std::max(working.render_step, 1);
    *column = watch->column / step;
    *row = watch->row / step;
    const int x = *column - working.x / step, y = *row - working.y / step;
    return x >= 0 && y >= 0 && x < working.width && y < working.height;
}

void watch_value(FrameWatch* watch, const Node* node, const int32_t* value, int n, bool made) {
    WatchedNode* const found = watched(watch, node);
    if (!found || (found->has_value && !made)) return;
    found->has_value = true;
    for (int e = 0; e < 4; ++e) found->value[e] = value[std::min(e, n - 1)];
}

void watch_planes(FrameWatch* watch, const Node* node, const fix_plane* planes, int n) {
    WatchedNode* const found = watched(watch, node);
    if (!found) return;
    if (planes == node->images)
        found->plane_bytes = static_cast<size_t>(node->image_count) * the_frame->short_image_size;
    int column, row;
    if (!watched_sample(watch, &column, &row)) return;
    const rinfo& working = the_frame->temp_raster_info;
    const int step = std::max(working.render_step, 1);
    const ptrdiff_t at = static_cast<ptrdiff_t>(row - working.y / step) * working.width + column - working.x / step;
    int32_t value[4] = {};
    for (int e = 0; e < std::min(n, 4); ++e) value[e] = planes[e][at];
    watch_value(watch, node, value, std::min(n, 4), true);
}

}  // namespace velloran
