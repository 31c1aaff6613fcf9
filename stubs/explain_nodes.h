// What a watched frame tells, in the terms of stubs/describe.h.
#pragma once

#include "records/frame_watch.h"
#include "stubs/describe.h"

#include <algorithm>
#include <vector>

namespace stub {

inline bool varies(const velloran::Node& node) { return !velloran::is_constant(&node); }

// The node that is read in the place of one that passes an argument through.
inline int stands_for(const velloran::Genotype& effect, int row) {
    const velloran::Node* node = &effect.nodes[row];
    while (varies(*node) && node->pass_arg >= 0) {
        row = node->arg_indices[node->pass_arg];
        node = &effect.nodes[row];
    }
    return row;
}

inline int way_of(const velloran::Node& node, const velloran::WatchedNode& seen) {
    if (!varies(node)) return SPARK_NODE_FOLDED;
    if (node.type == velloran::node_function && node.pass_arg >= 0) return SPARK_NODE_PASSED;
    return seen.way;
}

inline SparkNodeInfo explain_node(const velloran::FrameWatch& watch, int row) {
    const velloran::Genotype& effect = *watch.genotype;
    const velloran::Node& node = effect.nodes[row];
    const velloran::WatchedNode& seen = watch.nodes[row];
    const bool call = node.type == velloran::node_function;
    SparkNodeInfo info = {};
    info.Index = row;
    info.Name = node.name && !(call && node.name[0] == '_') ? node.name : "";
    const int input = node.var_index - velloran::first_input_var;
    if (velloran::is_input(&node) && input < velloran::MAX_INPUTS) info.Name = effect.input_names[input];
    info.Function = call ? node.fun_info->name : nullptr;
    const int param = node.param_index - 1;
    if (param >= 0 && param < effect.param_number && effect.params[param]) info.Param = effect.params[param]->name;
    info.Elements = std::clamp<int>(node.elnum, 1, 4);
    info.Arguments = call ? std::min<int>(node.arg_number, velloran::MAX_ARG_NUMBER) : 0;
    info.Evaluated = call ? std::min<int>(node.eval_arg_number, info.Arguments) : 0;
    for (int a = 0; a < info.Arguments; a++) {
        info.ArgumentIndices[a] = node.arg_indices[a];
        info.ArgumentNames[a] = node.fun_info->arg_names[a];
    }
    const bool ever = (node.flags & velloran::node_constant_at_compile) != 0;
    info.Constant = varies(node) ? 0 : ever && !info.Param ? 2 : 1;
    info.How = way_of(node, seen);
    info.StandsFor = info.How == SPARK_NODE_PASSED ? stands_for(effect, row) : -1;
    info.Pass = seen.pass;
    const bool passed = info.StandsFor >= 0;
    const velloran::Node& source = passed ? effect.nodes[info.StandsFor] : node;
    const velloran::WatchedNode& source_seen = passed ? watch.nodes[info.StandsFor] : seen;
    info.HasValue = !varies(source) || source_seen.has_value;
    std::copy_n(!varies(source) ? source.vals : source_seen.value, 4, info.Value);
    info.Seconds = static_cast<double>(seen.nanoseconds) / 1e9;
    info.PlaneBytes = seen.plane_bytes;
    info.LineBytes = seen.line_bytes;
    info.WorkBytes = seen.work_bytes;
    info.SharedBytes = seen.shared_bytes;
    return info;
}

// Rows stand before those that they are written with.
inline bool explain_frame(const velloran::FrameWatch& watch, const SparkExplainVisitor& visitor) {
    if (!watch.whole || !watch.genotype) return false;
    const velloran::Genotype& effect = *watch.genotype;
    const SparkFrameExplanation frame = {effect.name, static_cast<double>(watch.nanoseconds) / 1e9, watch.plane_bytes,
                                         effect.temp_image_number + effect.cache_image_number};
    visitor.Frame(visitor.Context, &frame);
    std::vector<bool> written(static_cast<size_t>(effect.node_number), false);
    std::vector<int> open = {0};
    written[0] = true;
    while (!open.empty()) {
        const velloran::Node& node = effect.nodes[open.back()];
        open.pop_back();
        for (int a = 0; node.type == velloran::node_function && a < node.arg_number; a++) {
            const int arg = node.arg_indices[a];
            if (!written[static_cast<size_t>(arg)]) open.push_back(arg);
            written[static_cast<size_t>(arg)] = true;
        }
    }
    for (int row = 0; row < effect.node_number; row++) {
        if (!written[static_cast<size_t>(row)]) continue;
        const SparkNodeInfo info = explain_node(watch, row);
        visitor.Node(visitor.Context, &info);
    }
    return true;
}

}  // namespace stub
