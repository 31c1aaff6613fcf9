// Functions that take fields apart and weave them together. A field is the even rows of a frame or the odd ones,
// counted from the bottom row, which is row 0; at a reduced resolution rows of samples count. Host's thread, no fork
// under way, but for the pixel function.
#pragma once

#include "records/node.h"

namespace velloran {

// image, field: keeps the rows of the field and makes each of the others the mean of its neighbours.
void image_extract_field(Node* node);
void need_rect_extract_field(Node* node);

// frame1, frame2, dominance: the rows of the field that is shown first from frame1, the others from frame2. A result of
// one element takes the first of each. Any task.
void pixel_interlace(Node* node);

// clip0, frame0, field0, clip1, frame1, field1, rev_field_mode, field_dominance: see interlace_get_frames.h
void image_interlace_get_frames(Node* node);

// source, max_len, detect_dominance; source: the pattern is in the params of the effect, see field_pattern.h. A frame
// without a usable pattern ends in the fatal abort, but for auto_reinterlace without any, which shows the source.
void image_auto_deinterlace(Node* node);
void image_auto_reinterlace(Node* node);

}  // namespace velloran
