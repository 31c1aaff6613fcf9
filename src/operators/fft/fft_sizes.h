// Transform sizes: even, and with no prime factor above 5.
#pragma once

namespace velloran {

// The smallest such size from n on. The last ten answers are kept. Host's thread.
int good_size(int n);

// Sizes of one transform of at least w by h samples: the good ones, or where these make a large transform somewhat
// larger ones whose lines take less time.
void whole_size(int least_w, int least_h, int* w, int* h);

// Size of the tiles for a kernel over a crop: the pair for which all tiles together cost least, never less than about
// twice the kernel.
void best_tile_size(int kernel_w, int kernel_h, int crop_w, int crop_h, int* w, int* h);

}  // namespace velloran
