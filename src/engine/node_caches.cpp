#include "engine/node_caches.h"

#include "records/node.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {

void make_nodes_array_caches(Node** nodes, int count) {
    for (int i = 0; i < count; ++i) {
        if (nodes[i]->type != node_function || nodes[i]->fun_info->category != category_cell) continue;
        auto* cache = frame_array<NoiseCache>(1);
        std::memset(cache, 0, sizeof *cache);
        cache->last_x = cache->last_y = no_noise_cell;
        cache->multi_x = cache->multi_y = no_noise_cell;
        cache->initialised = 1;
        for (auto& octave : cache->entries)
            for (NoiseCacheEntry& entry : octave) entry.cell_x = entry.cell_y = no_noise_cell;
        nodes[i]->cell_state = cache;
    }
}

void free_nodes_array_caches(Node** nodes, int count) {
    for (int i = 0; i < count; ++i) {
        if (nodes[i]->type != node_function || nodes[i]->fun_info->category != category_cell) continue;
        frame_free(nodes[i]->cell_state);
        nodes[i]->cell_state = nullptr;
    }
}

}  // namespace velloran
