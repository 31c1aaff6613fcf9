#include "engine/clip_args.h"

#include "compile/compile.h"
#include "support/errors.h"

namespace velloran {
namespace {

constexpr uint32_t arg_is_image = 64;  // of NodeFun::arg_restrictions

}  // namespace

int clip_number(const Node* node, int arg) {
    const Node* const clip = maybe_pass_through_args(node->args[arg]);
    return is_input(clip) ? clip->var_index - first_input_var : -1;
}

bool clip_args_p(const Node* node) {
    const NodeFun& fun = *node->fun_info;
    int clips = 0, missing = 0;
    for (int a = 0; a < fun.arg_number; ++a) {
        if (fun.arg_restrictions[a] != arg_is_image) continue;
        ++clips;
        missing += clip_number(node, a) < 0;
    }
    if (!missing) return true;
    V_error(level_error,
            clips > 1 ? "get_interlaced_frame: clip args are not both clips." : "time_warp: first arg must be a clip.");
    return false;
}

}  // namespace velloran
