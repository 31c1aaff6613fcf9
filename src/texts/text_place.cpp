#include "texts/text_place.h"

#include "support/memory.h"

namespace velloran {

TextPlace map_text_place(const TextMap& map, long offset) {
    if (!map.offsets || map.n_lines < 1) return {0, 0, -1};
    if (offset < 0) offset = 0;
    if (offset > map.length) offset = map.length;
    const int32_t original = map.offsets[offset];
    int first = 0, end = map.n_lines;  // the line looked for is in [first, end)
    while (end - first > 1) {
        const int middle = first + (end - first) / 2;
        if (map.line_starts[middle] <= original)
            first = middle;
        else
            end = middle;
    }
    TextPlace place;
    place.line = map.origin.line + first;
    place.column = original - map.line_starts[first] + (first == 0 ? map.origin.column : 1);
    place.offset = map.origin.offset + original;
    return place;
}

void free_text_map(TextMap& map) {
    frame_free(map.offsets);
    frame_free(map.line_starts);
    map.offsets = map.line_starts = nullptr;
    map.length = map.n_lines = 0;
}

}  // namespace velloran
