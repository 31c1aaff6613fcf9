#include "compile/pass_tests.h"
#include "operators/blur/blur_functions.h"
#include "operators/blur/dir_blur_args.h"
#include "operators/blur/spread_inside_mask.h"

namespace velloran {

namespace {

enum MaskedDirBlurArg : int { arg_image, arg_mask, arg_line };

void spread_by_line(FixPixel* plane, SpreadOf what, int channel, const void* settings, const FilterFrame& frame) {
    DirBlur blur = *static_cast<const DirBlur*>(settings);
    if (what == of_mask) blur.gains[channel] = 1.0f;
    dir_blur_image(plane, plane, channel, blur, frame);
}

}  // namespace

void image_masked_dir_blur(Node* node) {
    const DirBlur blur = read_dir_blur(node, arg_line);
    spread_inside_mask(node, {spread_by_line, &blur, dir_blur_alike(blur)});
}

int pass_masked_dir_blur(Node* node) { return dir_blur_does_nothing(node, arg_line) ? arg_image : pass::none; }

// The mask is blurred along with the image.
void need_rect_masked_dir_blur(Node* node) { need::filter(node, 2, dir_blur_reach(node, arg_line)); }

}  // namespace velloran
