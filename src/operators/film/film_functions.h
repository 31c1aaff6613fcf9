// Image functions of film. Each evaluates its image, works in its node's planes on the tasks of the host, and leaves
// the result in the first elnum of them; alpha stays as it is. Host's thread, no fork under way. A user's abort leaves
// the planes unfinished.
#pragma once

#include "records/node.h"

namespace velloran {

// image, films_fields_blur, cc_gammas, neg_exposure, print_exposure, offset_scale, glow_brightness, glow_soft_focus,
// glow_width, grain_amp, midtones_mono, grain_blur, grain_misc
void image_film_effect(Node* node);
// image, grain_amp, midtones, darks_brights, grain_mono, grain_blur, grain_hold, seed
void image_grain(Node* node);

// What the compiler asks of them; see compile/need_rect.h.
void need_rect_film_effect(Node* node);
void need_rect_grain(Node* node);

}  // namespace velloran
