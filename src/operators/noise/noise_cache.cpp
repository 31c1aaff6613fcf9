#include "operators/noise/noise_cache.h"

#include "records/node.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {

void make_noise_cache(Node* node) {
    auto* cache = frame_array<NoiseCache>(1);
    std::memset(cache, 0, sizeof *cache);
    cache->last_x = cache->last_y = no_noise_cell;
    cache->multi_x = cache->multi_y = no_noise_cell;
    cache->initialised = 1;
    for (auto& octave : cache->entries)
        for (NoiseCacheEntry& entry : octave) entry.cell_x = entry.cell_y = no_noise_cell;
    node->cell_state = cache;
}

void free_noise_cache(Node* node) {
    frame_free(node->cell_state);
    node->cell_state = nullptr;
}

}  // namespace velloran
