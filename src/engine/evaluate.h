// Evaluation: a frame is a sequence of passes, one for each image node and a last one into the destination. A pass
// works line by line on all tasks; a line is worked in blocks of samples, so that the lines of a tree stay in the first
// cache.
//
// Line samples are i32 with 12 fraction bits, unclipped. All functions here but those marked so: host's thread, outside
// forks.
#pragma once

#include "records/genotype.h"
#include "records/node.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// The lines of a pass's variables; the order is what expression_var_ptr_from_index answers into.
struct SourceLines {
    int32_t* x_line;
    int32_t* y_line;
    int32_t* input_lines[4][4];
};

// Takes n_pixels samples of root's lines away. column and row are in samples of the working area, offset is the
// sample's index in a plane. Runs on worker tasks, once for each block of a line.
using EvalLineFun = void (*)(Node* root, int column, int row, int offset);

enum EvalMode : int {
    eval_as_leaf = 0,   // a root with images is read from them
    eval_as_target = 1  // the root's own images are being made
};

// Position of the block in hand, in samples of the full frame: for pixel functions that depend on where they are.
extern thread_local int eval_block_column, eval_block_row;

// Update, image nodes and the last pass into dest, the host's frame. 0, or -1 after a message. copy_params 0: the
// values in the constant nodes stand.
int evaluate_frame(void* dest, int copy_params);

// Runs the image nodes of the selected genotype. 0, or -1 after a message.
int perform_effect();
// The last pass, into dest. rebuild: 1 to build the array of nodes anew.
void render_dest(void* dest, int rebuild);

// One pass over node's tree. line_fun null: into the destination.
void eval_node_tree_pixel_loop(Node* node, EvalLineFun line_fun, int mode, int rebuild);

// One pass over several values at once, at most MAX_ARG_NUMBER, for image functions that read them together. line_fun's
// root has them as its arguments: element e of value i is in arg_lines[i][e], a single number where args[i] is
// constant.
void eval_node_trees_pixel_loop(Node* const* values, int n, EvalLineFun line_fun);

// The value of node into min(elnum, 4) planes; for image functions to get their arguments. The samples are clipped to
// +-32767. first_slot: slot of the first of planes (node's image_index convention), which decides the order of copying
// where both lie in one pool. allow_copy: node's images may be copied if they are valid.
void eval_node_tree_into_images(Node* node, fix_plane* planes, int first_slot, int allow_copy);
// The value of node, of one element, into eval_long_image, row pitch temp_raster_info's width.
void eval_node_tree_into_long_image(Node* node);

// The nodes of the current pixel tree in evaluation order.
extern Node* eval_nodes[];
extern int eval_node_count;
void build_eval_nodes(Node* node, int mode);

// Entry of a record of lines by variable index: 0 and 2 the record's start, 1 the y entry, 3 to 6 an input. Null after
// a message for any other.
int32_t** expression_var_ptr_from_index(SourceLines* record, int index);

// The eval_fun of a node that is read from its images.
void image_line_reader(Node* node);

// What passes into planes cover, each within the working area, for which alone there are planes.
extern int expanded_rendering_p;  // 1: the wrap area, or the working area on the block grid
extern int crop_images_p;         // 1: while eval_to_dest_line is set, the crop only
// Samples of an image, in either direction, from one sample of the pass to the next. 1 in normal operation: images and
// passes lie on one grid. The row pitch of planes is temp_raster_info's width all the same.
extern int image_step;

// What a frame runs, for tests: set a function to be told on the host's thread.
enum EvalEvent : int {
    event_image_function,  // node's image function is about to run
    event_pass,            // a pass over node's tree begins
    event_pixel_function,  // node's pixel function is part of the pass
    event_image_read,      // node is read from its images in the pass
    event_source_copy,     // node, an input, goes into planes by the whole-image converter
    event_dest_copy        // node's valid images go into the destination as they stand
};
extern void (*eval_hook)(EvalEvent event, const Node* node);

}  // namespace velloran
