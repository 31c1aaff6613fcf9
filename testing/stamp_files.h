// Files of stamps, written out byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velloran_tests {

inline void append_16(std::string* to, int v) {
    *to += static_cast<char>(v);
    *to += static_cast<char>(v >> 8);
}

struct QmiImage {
    int width, height;
    std::string data;
    int compression = 0;
    int x_resolution = 100, y_resolution = 100;
    int64_t size = -1;  // of the data, if the header lies about it
};

inline std::string qmi_bytes(const std::vector<QmiImage>& images, int version = 1) {
    std::string bytes = "QMIF";
    bytes += static_cast<char>(version);
    bytes.resize(16, 'r');
    for (const QmiImage& image : images) {
        bytes += static_cast<char>(image.compression);
        append_16(&bytes, image.width);
        append_16(&bytes, image.height);
        append_16(&bytes, image.x_resolution);
        append_16(&bytes, image.y_resolution);
        const auto size = static_cast<uint32_t>(image.size < 0 ? static_cast<int64_t>(image.data.size()) : image.size);
        append_16(&bytes, static_cast<int>(size & 0xffff));
        append_16(&bytes, static_cast<int>(size >> 16));
        bytes += image.data;
    }
    return bytes;
}

// A stamp that is itself in no mirror: bright at one corner, with a hole.
inline std::string stamp_samples(int width, int height, int phase = 0) {
    std::string samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            samples +=
                static_cast<char>(x == width / 2 && y < height / 2 ? 0 : 255 - (11 * x + 23 * y + 37 * phase) % 200);
    return samples;
}

// Stamps that are large for their few samples, so that frames of a few pixels show them.
inline std::string coarse_stamps(int count) {
    std::vector<QmiImage> images;
    for (int i = 0; i < count; ++i) images.push_back({9 + i, 6, stamp_samples(9 + i, 6, i), 0, 2, 2});
    return qmi_bytes(images);
}

}  // namespace velloran_tests
