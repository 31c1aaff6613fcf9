// Dirt drawn from noise and curves. The same seed gives the same stamps.
#pragma once

#include "hosts/stamps/stamp_picture.h"

#include <string>
#include <vector>

namespace stamp_maker {

// kind: "film-stains", "dust" or "hairs"; another one gives none.
std::vector<StampPicture> draw_dirt(const std::string& kind, int count, unsigned seed);

}  // namespace stamp_maker
