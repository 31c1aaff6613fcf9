#include "frame/mipmap_size.h"

#include <algorithm>

namespace velloran {
namespace {

// Sum of the level sizes of one axis, each with its border of one sample a side.
size_t level_total(int size, bool filtered) {
    size_t total = 0;
    for (int level = 0; level < max_mipmap_levels; ++level) {
        total += static_cast<size_t>(size) + 2;
        if (!filtered || (size == 1 && level > 0)) break;
        size = (size + 1) >> 1;
    }
    return total;
}

}  // namespace

size_t mipmap_bytes(int width, int height, bool filtered) {
    const size_t pyramid = level_total(width, filtered) * level_total(height, filtered) * mipmap_elements * 2;
    return std::max(pyramid, static_cast<size_t>(width) * static_cast<size_t>(height) * 8);
}

}  // namespace velloran
