// The functions of the noise family, as the table calls them: pixel_NAME on lines (see operators/pixel/pixel_funs.h for
// lines and aliasing), image_NAME on planes.
//
// Every value is a pure function of seed and place, so that a frame is the same alone and in a run, on any number of
// tasks, in a crop and on every machine. rand_seed counts in whole numbers. Params that vary from sample to sample are
// possible and slow.
#pragma once

namespace velloran {

struct Node;

void pixel_warp_noise(Node* node);
void pixel_warp_noise2(Node* node);
void pixel_warp_noise3(Node* node);
void pixel_spots(Node* node);
void pixel_voronoi(Node* node);
void pixel_hex_tiles(Node* node);
void pixel_simplex_noise(Node* node);
void pixel_perlin_noise(Node* node);
const char* hint_perlin_noise(const Node* node);

// White noise, new for each sample of the frame and for each frame. In a crop each place has what it has in the whole.
void pixel_static(Node* node);
void pixel_static2(Node* node);
void pixel_static3(Node* node);
void pixel_random(Node* node);

void pixel_sawtooth_plus_noise(Node* node);

// Noise over the whole frame by subdivision (fractal_noise.h). Host's thread, outside forks.
void image_noise(Node* node);
void image_noise2(Node* node);
void image_noise3(Node* node);
// A strength of 0 makes nothing of it.
int pass_noise2(Node* node);

}  // namespace velloran
