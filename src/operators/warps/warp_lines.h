// What the passes of the warps share: reading coordinates from the lines of a pass over several values.
#pragma once

#include "operators/mipmap/look_up.h"
#include "records/node.h"

#include <algorithm>

namespace velloran {

// The variable xy, as a value of a pass: the coordinates of the pixels themselves, as the values beside it saw them.
inline Node own_coordinates() {
    Node node = {};
    node.type = node_var;
    node.elnum = 2;
    node.var_index = 2;
    node.pass_arg = -1;
    return node;
}

// Element of an argument, a constant.
inline int32_t warp_arg(const Node* node, int arg, int element = 0) {
    return node->arg_vals[arg][std::min(element, std::max(node->args[arg]->elnum - 1, 0))];
}
inline float warp_arg_float(const Node* node, int arg, int element = 0) {
    return static_cast<float>(warp_arg(node, arg, element)) * fix_to_float_scale;
}

// Weights of the two ends of a way by an argument ends_brightness: in proportion to its two elements, 4096 on average.
struct RampEnds {
    float start, end;
};
inline RampEnds ramp_ends(const Node* node, int arg) {
    const int64_t first = std::max(warp_arg(node, arg, 0), 0), last = std::max(warp_arg(node, arg, 1), 0);
    const int64_t start = (first << 13) / std::max<int64_t>(first + last, 1);
    return {static_cast<float>(start), static_cast<float>(8192 - start)};
}

// The mipmap of a node's first argument. False: the user aborted.
inline bool warp_mipmap(const Node* node, int wrap_arg, bool multi_level, bool whole_range = false) {
    return mipmap_setup(node->args[0], {multi_level, wrap_kind(warp_arg(node, wrap_arg, 0)),
                                        wrap_kind(warp_arg(node, wrap_arg, 1)), whole_range});
}

// The lines of value arg of a pass, seen as an axis; own: value that holds the pixels' own coordinates, -1 where value
// arg holds movements. column and row are in samples of the planes.
inline AxisLine x_line_of(const Node* root, int arg, int own, const LookUp& look_up, int column) {
    return {root->arg_lines[arg][0],
            own < 0 ? nullptr : root->arg_lines[own][0],
            !is_constant(root->args[arg]),
            true,
            (column - look_up.left) * fix_scale,
            fix_scale,
            look_up.x_scale};
}
inline AxisLine y_line_of(const Node* root, int arg, int own, const LookUp& look_up, int row) {
    const int e = std::min(1, root->args[arg]->elnum - 1);
    return {root->arg_lines[arg][e],
            own < 0 ? nullptr : root->arg_lines[own][1],
            !is_constant(root->args[arg]),
            true,
            (row - look_up.bottom) * fix_scale,
            0,
            look_up.y_scale};
}

// Both axes of the value's line.
struct PlaceLines {
    AxisLine x, y;
    // Where the n samples from `first` of the line look the picture up.
    void positions(const SampleRows& rows, int first, Positions* p, int n) const {
        rows.positions(x, first, p->x, n);
        rows.positions(y, first, p->y, n);
    }
};
inline PlaceLines place_lines(const Node* root, int arg, int own, const LookUp& look_up, int column, int row) {
    return {x_line_of(root, arg, own, look_up, column), y_line_of(root, arg, own, look_up, row)};
}

// Calls body(first, n) for the blocks of a line.
template <class Body>
void for_each_block(int n, const Body& body) {
    for (int first = 0; first < n; first += look_up_block) body(first, std::min(look_up_block, n - first));
}

// Planes from a sample on.
struct PlanesAt {
    FixPixel* planes[4];
    PlanesAt(fix_plane const* from, int elements, ptrdiff_t offset) : planes{} {
        for (int c = 0; c < elements; ++c) planes[c] = from[c] + offset;
    }
};

}  // namespace velloran
