// What the tests of the pixel formats share: frames of random pixels with guard bytes around them, the LUT tables, and
// the conversion of one element spelled out from the number formats.
#pragma once

#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "frame/rasters.h"
#include "records/fix_pixel.h"
#include "spark/spark.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace velloran_tests {

struct FormCase {
    const char* name;
    int depth;  // host's code
    int element_bytes;
};
inline constexpr FormCase form_cases[] = {
    {"rgb8", SPARK_DEPTH_8, 1}, {"rgb10", SPARK_DEPTH_10, 2}, {"rgb16", SPARK_DEPTH_12, 2}};

inline SparkInfoStruct frame_info(const FormCase& form, int width, int height) {
    SparkInfoStruct info = {};
    info.FrameWidth = width;
    info.FrameHeight = height;
    info.FrameDepth = form.depth;
    info.FramePixels = static_cast<long>(width) * height;
    info.FrameBytes = info.FramePixels * 3 * form.element_bytes;
    return info;
}

// Tables of random entries, also beyond 12 and 16 bits, in the place of those of LUT files.
class RandomLuts {
public:
    explicit RandomLuts(std::mt19937& rng) {
        for (auto* table : {&in8_, &in12_, &out16_})
            for (int32_t& entry : *table) entry = static_cast<int32_t>(rng()) >> 8;
        for (size_t i = 0; i < out16_.size(); i += 2) out16_[i] &= 4095;
        for (uint8_t& entry : out8_) entry = static_cast<uint8_t>(rng());
        velloran::input_lut_8 = in8_.data();
        velloran::input_lut_12 = in12_.data();
        velloran::output_lut_8 = out8_.data();
        velloran::output_lut_16 = out16_.data();
    }
    ~RandomLuts() {
        velloran::input_lut_8 = velloran::input_lut_12 = velloran::output_lut_16 = nullptr;
        velloran::output_lut_8 = nullptr;
    }
    RandomLuts(const RandomLuts&) = delete;
    RandomLuts& operator=(const RandomLuts&) = delete;

private:
    std::vector<int32_t> in8_ = std::vector<int32_t>(256), in12_ = std::vector<int32_t>(4096),
                         out16_ = std::vector<int32_t>(4096);
    std::vector<uint8_t> out8_ = std::vector<uint8_t>(4096);
};

// One element of a host frame as a sample.
inline int expected_sample(const FormCase& form, int v, bool lut) {
    if (form.depth == SPARK_DEPTH_8) return lut ? static_cast<int16_t>(velloran::input_lut_8[v]) : v * 16 + v / 16;
    int sample = v / 16;
    if (form.depth == SPARK_DEPTH_10) {
        const int ten = v / 64;
        sample = ten * 4 + ten / 256;
    }
    return lut ? static_cast<int16_t>(velloran::input_lut_12[sample]) : sample;
}

// One sample as an element, over what the element held.
inline int expected_element(const FormCase& form, int old, int64_t s, bool lut) {
    const int clipped = static_cast<int>(s < 0 ? 0 : s > 4095 ? 4095 : s);
    if (form.depth == SPARK_DEPTH_8) return lut ? velloran::output_lut_8[clipped] : clipped / 16;
    const int t = lut ? velloran::output_lut_16[clipped] : clipped;
    if (form.depth == SPARK_DEPTH_10) return old % 64 + ((t >> 2) & 1023) * 64;
    return old % 16 + (lut ? (t | (t >> 12)) & 4095 : t) * 16;
}

// A frame of random elements, a third of them at the ends of their range, some bytes off any alignment.
class TestFrame {
public:
    static constexpr size_t guard = 256;

    TestFrame(const FormCase& form, int width, int height, std::mt19937& rng, size_t shift = 0)
        : form_(form), width_(width), shift_(shift) {
        bytes_.resize(2 * guard + shift +
                      static_cast<size_t>(width) * static_cast<size_t>(height) * 3 *
                          static_cast<size_t>(form.element_bytes));
        for (uint8_t& b : bytes_) {
            const unsigned draw = rng();
            b = static_cast<uint8_t>(draw % 6 == 0 ? 0 : draw % 6 == 1 ? 255 : draw >> 8);
        }
    }

    void* data() { return bytes_.data() + guard + shift_; }
    const std::vector<uint8_t>& bytes() const { return bytes_; }

    int element(int x, int y, int c) const {
        const uint8_t* const at = address(x, y, c);
        uint16_t v = *at;
        if (form_.element_bytes == 2) std::memcpy(&v, at, 2);
        return v;
    }
    void set_element(int x, int y, int c, int value) {
        const auto v = static_cast<uint16_t>(value);
        std::memcpy(const_cast<uint8_t*>(address(x, y, c)), &v, static_cast<size_t>(form_.element_bytes));
    }
    void copy_pixel(int x, int y, int from_x, int from_y) {
        for (int c = 0; c < 3; ++c) set_element(x, y, c, element(from_x, from_y, c));
    }

private:
    const uint8_t* address(int x, int y, int c) const {
        return bytes_.data() + guard + shift_ + static_cast<size_t>(((y * width_ + x) * 3 + c) * form_.element_bytes);
    }
    FormCase form_;
    int width_;
    size_t shift_;
    std::vector<uint8_t> bytes_;
};

// Samples inside, around and far outside the range that a host can hold.
template <class Sample>
Sample random_sample(std::mt19937& rng) {
    constexpr int edges[] = {-32768, -32767, -5, -1, 0, 1, 15, 16, 4080, 4094, 4095, 4096, 9000, 32767};
    const unsigned draw = rng();
    if (draw % 4 == 0) return static_cast<Sample>(edges[draw / 4 % std::size(edges)]);
    if (draw % 4 == 1) return static_cast<Sample>(rng());  // the whole of the type
    return static_cast<Sample>(draw / 4 % 4096);
}

}  // namespace velloran_tests
