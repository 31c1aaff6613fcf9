// Transform sizes: even, and with no prime factor above 5.
#pragma once

namespace velloran {

// The smallest such size from n on. The last ten answers are kept. Host's thread.
int good_size(int n);

// Size along one axis of a tile for a kernel of kernel samples over crop samples: the one from good_size(least) on for
// which all tiles together cost least.
int best_tile_size(int least, int kernel, int crop);

}  // namespace velloran
