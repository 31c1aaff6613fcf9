#include "compile/pass_tests.h"
#include "engine/evaluate.h"
#include "operators/blur/blur_functions.h"
#include "operators/blur/dir_blur_args.h"

namespace velloran {

namespace {

enum DirBlurArg : int { arg_image, arg_line };

}  // namespace

void image_dir_blur(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    const FilterFrame frame = filter_frame();
    const DirBlur blur = read_dir_blur(node, arg_line);
    for (int c = 0; c < blur.n_channels; ++c) dir_blur_image(node->images[c], node->images[c], c, blur, frame);
}

int pass_dir_blur(Node* node) { return dir_blur_does_nothing(node, arg_line) ? arg_image : pass::none; }

void need_rect_dir_blur(Node* node) { need::filter(node, 1, dir_blur_reach(node, arg_line)); }

}  // namespace velloran
