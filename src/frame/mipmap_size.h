// Memory that the mipmap of a frame takes.
#pragma once

#include <cstddef>

namespace velloran {

constexpr int max_mipmap_levels = 15;
constexpr int mipmap_elements = 4;  // room for a colour with alpha, samples interleaved

// Bytes of the pyramid over a width by height image: level 0 alone with a border of one sample, or, for filtered
// look-ups, a rip-map with separate x and y levels. At least 8 bytes a pixel, so that a long image fits the same
// memory.
size_t mipmap_bytes(int width, int height, bool filtered);

}  // namespace velloran
