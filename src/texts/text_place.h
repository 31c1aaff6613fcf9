// Places in texts, and the map from a filtered text back to the text that a person wrote.
#pragma once

#include <cstdint>

namespace velloran {

// Line and column count from 1, the column in bytes; offset is the byte from 0. A line of 0 means unknown.
struct TextPlace {
    int line, column;
    long offset;
};

constexpr TextPlace text_start = {1, 1, 0};

// Where each byte of a filtered text stood in the original. origin is the place, in the file that the original was cut
// from, of its first byte; the caller sets it. The arrays come from frame_malloc: the map is good for the call in hand.
struct TextMap {
    TextPlace origin = text_start;
    int length = 0;                  // of the filtered text
    int32_t* offsets = nullptr;      // length + 1 entries: offset in the original of each byte, and of the end
    int n_lines = 0;                 // of the original
    int32_t* line_starts = nullptr;  // offset of the first byte of each line
};

// Place of the byte at offset of the filtered text, from 0 to its length; others are held to that.
TextPlace map_text_place(const TextMap& map, long offset);
// Frees the arrays, keeps the origin.
void free_text_map(TextMap& map);

}  // namespace velloran
