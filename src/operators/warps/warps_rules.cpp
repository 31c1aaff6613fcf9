#include "operators/warps/warps_rules.h"

#include "compile/pass_tests.h"
#include "records/frame.h"
#include "records/rinfo.h"

namespace velloran {

using namespace pass;

// A warp by the unmoved position.
int pass_warp(Node* n) {
    enum { image, coords };
    constexpr int xy = 2;  // the variable
    if (n->args[coords]->type != node_var || n->args[coords]->var_index != xy) return none;
    return the_frame->temp_raster_info.wrap.wrap_clipped ? none : image;
}

}  // namespace velloran
