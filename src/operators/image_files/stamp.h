// A stamp: a small grey picture that says how much of a piece of dirt covers, with smaller versions of itself.
#pragma once

#include "records/fix_pixel.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

constexpr int max_stamps = 350;                 // of a collection
constexpr int max_stamp_side = 32767;           // as the files count
constexpr int64_t max_stamp_samples = 1 << 24;  // a file that claims more is not a stamp
constexpr int max_stamp_levels = 16;

// Samples 0 .. 4095, the top row first. Around them lies a border of one sample, all 0, so that a look-up between the
// last sample and nothing needs no case of its own.
struct StampLevel {
    int32_t width, height;
    int32_t pitch;
    FixPixel* samples;  // the first of the top row
};

struct Stamp {
    int32_t width, height;
    float x_scale, y_scale;  // size of a sample; 1 is a 1920th of the frame's width
    int32_t level_count;     // 0: the pixels are still in the file
    StampLevel levels[max_stamp_levels];
    FixPixel* data;   // of all levels
    char* path;       // of a deferred picture, else null
    bool unreadable;  // the pixels of a deferred picture were refused, which has been told
    Stamp* mirrored;  // at the diagonal; made when it is first drawn
};

struct StampCollection {
    int32_t count;
    Stamp stamps[max_stamps];  // beyond count: empty, but for the one that is being read
};

// 100 units are the resolution at which a sample counts 1. What no picture can have counts as that.
inline float stamp_sample_scale(int resolution) {
    return resolution > 0 ? 100.0f / static_cast<float>(resolution) : 1.0f;
}
inline bool stamp_size_p(int64_t width, int64_t height) {
    return width >= 1 && height >= 1 && width <= max_stamp_side && height <= max_stamp_side &&
           width * height <= max_stamp_samples;
}
constexpr FixPixel stamp_sample(uint8_t s) { return static_cast<FixPixel>(s << 4 | s >> 4); }

// All below: host's thread. Exhausted memory takes the fatal abort and leaves the stamp as something free_stamp takes.

// Sizes and memory of all levels, the samples 0. The size is one of stamp_size_p.
void make_stamp_levels(Stamp* stamp, int width, int height);
// The smaller versions from the largest.
void fill_stamp_levels(const Stamp& stamp);
// The stamp with x and y exchanged. The stamp has its pixels. Owned by the stamp.
const Stamp* mirrored_stamp(Stamp* stamp);
void free_stamp(Stamp* stamp);  // leaves it empty

StampCollection* new_stamp_collection();
void free_stamp_collection(StampCollection* collection);  // null is ignored

}  // namespace velloran
