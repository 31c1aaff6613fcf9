// Image functions of lightning. Each draws into its node's first plane. Host's thread, no fork under way; a user's
// abort leaves the plane unfinished.
//
// Places count in pixels from the lower left corner, lengths in halves of the frame's width, widths in hundredths of
// that.
#pragma once

#include "records/node.h"

namespace velloran {

// start, end, vary_end, bolts, width_vary, end_pointiness, start_len, wrinkle_curve, branchiness, branch_ang_len,
// seed_phase
void image_zap(Node* node);
// to_obj, center, radius, bolts_points, width_vary, end_pointiness, start_len, wrinkle_amp, branchiness,
// branch_ang_len, seed_phase, threshold_show
void image_zap_to(Node* node);
// from_obj, max_len_vary, vary_spacing, bolts, width_vary, end_pointiness, start_len, wrinkle_curve, branchiness,
// branch_ang_len, seed_phase, threshold_show
void image_zap_from(Node* node);
// from_obj, mask, max_len_vary_spacing, bolts, and the same
void image_zap_from_mask(Node* node);

}  // namespace velloran
