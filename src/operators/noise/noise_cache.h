// The work record of a node of the cell rows (warp noise, spots, voronoi): the lattice cells it met last. It lives for
// a pass and belongs to one node of one task. Caches speed up; what they hold never decides a result.
#pragma once

#include <cstdint>

namespace velloran {

struct Node;

struct NoiseCacheEntry {
    int32_t cell_x, cell_y;
    int32_t values[3];
};

struct NoiseCache {
    int32_t last_x, last_y;
    int32_t last_key;  // the radius of spots, the angle of voronoi
    int32_t last_result[3];
    int32_t multi_x, multi_y;        // keys of the noise of two and three channels
    int32_t initialised;             // 1
    NoiseCacheEntry entries[8][16];  // by octave; a cell is at (x & 3) + 4 * (y & 3)
};

constexpr int32_t no_noise_cell = -32000;

// The node's cell_state becomes a fresh record, or is taken back.
void make_noise_cache(Node* node);
void free_noise_cache(Node* node);

}  // namespace velloran
