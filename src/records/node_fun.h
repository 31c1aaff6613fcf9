// The record of one node function: a row of the table that effect texts draw their vocabulary from.
#pragma once

#include <cstdint>

namespace velloran {

struct Node;

constexpr int MAX_FUN_NUMBER = 206;
constexpr int MAX_ARG_NUMBER = 15;
constexpr int MAX_FUN_NAME_LEN = 32;
constexpr int MAX_ARG_TYPE_COMBOS = 22;

// Bits of NodeFun::fun_flags, each with what the engine does because of it.
enum : uint8_t {
    fun_never_constant = 1,       // counts as varying even when all arguments are constant
    fun_changes_each_frame = 2,   // depends on the frame: never cached, marks the effect
    fun_has_need_rect = 8,        // reads pixels around the one it writes
    fun_reads_other_frames = 16,  // marks the effect
    fun_uses_timewarp = 32,       // reported to the buffer planner
    fun_keeps_own_images = 64,    // its images are not taken from the pools
    fun_no_cache = 128            // a node using it is never cached
};

constexpr uint32_t arg_acts_as_param = 16;  // of NodeFun::arg_restrictions

// Bits of NodeFun::def_flags.
enum : uint8_t {
    def_defined = 1,
    def_needs_long_image = 2,
    def_needs_mipmap = 4,
    def_needs_filter_mipmap = 8,
    def_last_arg_type_only = 16,  // the last argument only fixes the element counts and is not evaluated
    def_needs_whole_plane = 32,   // what it makes of a crop's border depends on the whole picture: crops spare nothing
    def_uses_percent_time = 64    // its value changes with the length of the clip
};

// Category codes: they group rows.
enum : uint16_t {
    category_query = 0,
    category_basic = 1,
    category_logic = 2,
    category_math = 4,
    category_random = 8,
    category_blur = 16,
    category_gradient = 32,
    category_warp = 64,
    category_paint = 256,
    category_kaleido = 512,
    category_pattern = 2048,
    category_cell = 4096,
    category_frames = 8192,
    category_other = 16384
};

using PixelFun = void (*)(Node* node);
// The argument whose value is the node's, or -1; looks at the node's constants, element counts and types alone.
using PassArgFun = int (*)(Node* node);
// Widens the needed regions of the node's arguments by what the node reads for its own.
using NeedRectFun = void (*)(Node* node);
// Writes node->vals, the node's value if all its arguments are constant.
using FoldFun = void (*)(Node* node);
// What the author of a text should know of this call, static words, or null. Looks at element counts and types alone.
using CallHintFun = const char* (*)(const Node* node);
// Makes or frees node->cell_state. Any task, on its own nodes.
using NodeStateFun = void (*)(Node* node);

struct NodeFun {
    char name[MAX_FUN_NAME_LEN];
    int32_t arg_number;
    uint16_t category;
    uint16_t cost;
    float weight;
    uint8_t image_fun_p;  // 1: the result is whole images, run once a frame
    int8_t image_arg;     // argument whose images the function may work in, -1 none
    int8_t images_per_element;
    int8_t extra_images;
    int8_t min_images;
    int32_t arg_type_combo_number;
    uint32_t arg_type_combos[MAX_ARG_TYPE_COMBOS];  // bits 0-1 result elnum - 1, 2 + 2i and 3 + 2i argument i's
    uint32_t arg_restrictions[MAX_ARG_NUMBER];      // arg_acts_as_param, 32 per-pixel, 64 filtered image, 0
    const char* arg_names[MAX_ARG_NUMBER];          // static
    PixelFun pixel_funs[MAX_ARG_TYPE_COMBOS];       // one a signature
    uint8_t fun_flags;
    uint8_t def_flags;
    bool params_hold;  // arguments that act as params are read once a frame: they may not vary with the pixel
    int8_t arg_enable_runtime, arg_scale_runtime, arg_scale_passes;  // argument index or -1
    uint8_t aux_count_1, aux_count_2;
    NeedRectFun need_rect_fun;
    PassArgFun pass_arg_fun;
    int8_t most_images;  // the code makes do with so many images where the columns give more; 0 no bound
    FoldFun fold_fun;    // null: pixel functions run on one sample, image functions take their image argument
    int8_t else_arg;     // of a branch: the else side, the argument before it the then side; -1 none
    int8_t filter_arg;   // argument that switches the filtered look-ups of def_needs_filter_mipmap on; -1 always on
    NodeStateFun make_state_fun, free_state_fun;  // both or none: a node has a work record for the length of a pass
    CallHintFun call_hint_fun;                    // null: there is nothing to be known
    const char* meaning;                          // one line for people, static
};

}  // namespace velloran
