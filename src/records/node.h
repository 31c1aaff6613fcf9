// One row of a genotype's node table. Fields only.
#pragma once

#include "records/fix_pixel.h"
#include "records/node_fun.h"

#include <cstdint>

namespace velloran {

constexpr int MAX_NODE_IMAGE_COUNT = 24;

enum NodeType : int8_t {
    node_ref = 0,       // a name that stands for another node until references are resolved
    node_constant = 1,  // a number or vector
    node_function = 2,  // a call
    node_var = 4,       // x, y, xy or an input
    node_output = 5     // the word "Output"
};

// Node::var_index: 0 x, 1 y, 2 xy, 3 and on the inputs.
constexpr int first_input_var = 3;

// Bits of Node::flags.
enum : uint8_t {
    node_needed = 1,               // reachable from the root through live nodes this frame
    node_direct = 2,               // scratch of the spatial walk
    node_constant_p = 4,           // same value for every pixel of this frame
    node_constant_at_compile = 8,  // node_constant_p of the first analysis
    node_changed = 16,             // may differ from the previous frame
    node_volatile = 32,            // node_changed of the first analysis: changes though all params stand still
    node_images_valid = 64         // its images hold the current value
};

struct SourceLines;

struct NeedRect {
    int16_t min_x, max_x, min_y, max_y;  // pixels, inclusive
    uint8_t empty;
};

struct Node {
    char* name;  // owned; variable name, or "_" + function name for an unnamed call; null for an unnamed constant
    int8_t type;
    int8_t elnum;
    int8_t var_index;
    int8_t arg_number;                    // as written
    int8_t eval_arg_number;               // as evaluated
    int32_t vals[4];                      // constant value, 4096 is 1.0, padded to four
    int32_t* lines[4];                    // where each element's samples are; at rest each points at its entry of vals
    int32_t** arg_lines[MAX_ARG_NUMBER];  // each argument's lines array
    int32_t* arg_vals[MAX_ARG_NUMBER];    // each argument's vals
    int32_t line_offset;                  // running read position of a node read from images
    const NodeFun* fun_info;
    PixelFun eval_fun;                    // runs on each line
    PixelFun pixel_fun;                   // chosen entry of pixel_funs, pixel functions
    PixelFun image_fun;                   // chosen entry, image functions, run once a frame
    Node* args[MAX_ARG_NUMBER];           // effective arguments: pass-through is followed
    int16_t arg_indices[MAX_ARG_NUMBER];  // as written, survive a move of the table
    uint8_t flags;
    int8_t image_count;
    int16_t image_index;
    int16_t image_end;
    int8_t in_cache_images;
    int8_t ref_count;
    int8_t pass_arg;  // argument that stands in for this node, or -1
    int8_t if_arg;    // index of the else branch of a frame-constant test, or -1
    int8_t if_bit;
    uint32_t if_mask;
    uint16_t mark;
    fix_plane images[MAX_NODE_IMAGE_COUNT];
    SourceLines* source_lines;
    void* cell_state;  // work record during a pass, of functions that have one
    int16_t ref_index;
    int16_t assign_order;
    int32_t param_index;  // index of its Param plus 1; 0 none
    NeedRect* need_rect;
    // Places in the text being read, for messages: the first byte of the row's word, and of the call that was assigned
    // to it; 0 unknown.
    int32_t text_position, call_position;
};

inline bool is_constant(const Node* node) { return (node->flags & node_constant_p) != 0; }
inline bool is_input(const Node* node) { return node->type == node_var && node->var_index >= first_input_var; }

// Samples in a line of the current pass (1 while constants are folded). Task-local: a line may be worked in blocks, so
// tasks differ in their last block.
extern constinit thread_local int n_pixels;

}  // namespace velloran
