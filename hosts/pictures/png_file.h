// PNG files as this program writes all of them, and reads those without anything unusual.
#pragma once

#include "hosts/pictures/pictures.h"

#include <cstdint>
#include <string>
#include <vector>

namespace spark_host {

// A part of a PNG file. data lies in the file's bytes.
struct PngChunk {
    uint32_t type = 0;  // four letters, the first one highest
    const unsigned char* data = nullptr;
    uint32_t size = 0;
};
constexpr uint32_t png_type(const char (&letters)[5]) {
    return static_cast<uint32_t>(letters[0]) << 24 | static_cast<uint32_t>(letters[1]) << 16 |
           static_cast<uint32_t>(letters[2]) << 8 | static_cast<uint32_t>(letters[3]);
}
// The chunks up to the end, or with to_data up to the first with samples, which is the last one and may be cut. Empty
// if these are no whole chunks of a PNG file; check sums of the samples are not looked at.
std::vector<PngChunk> png_chunks(const unsigned char* file, size_t size, bool to_data);

void add_png_chunk(Bytes& to, uint32_t type, const void* data, size_t size);
// A text of printable ASCII under a key.
void add_png_text(Bytes& to, const std::string& key, const std::string& text);

// What a file may say about its samples and pixels, as other formats can say it too.
struct ColourNotes {
    uint32_t density[2] = {0, 0};  // pixels in a metre across and down; 0 unknown
    bool srgb = false;
    bool primaries = false;        // chromaticities are known
    float chromaticities[8] = {};  // x and y of white, red, green, blue
};

struct PlainImage {
    int width = 0, height = 0;
    int channels = 3;                       // 1 grey, 2 with alpha, 3 colours, 4 with alpha
    int bytes = 1;                          // of a sample, 1 or 2; two in the processor's order
    const unsigned char* pixels = nullptr;  // top row first
    Compression compression = Compression::usual;
};
// Samples of 8 or 16 bits without a palette, rows in order, as PlainImage has them; chunks are those of png_chunks, all
// of them. False if they are damaged. Throws std::bad_alloc.
bool decode_png(const std::vector<PngChunk>& chunks, int width, int height, size_t pixel_bytes, bool deep,
                Bytes& pixels);
// A whole file. around: chunks that stand before the samples, as add_png_chunk makes them.
Bytes encode_png(const PlainImage& image, const Bytes& around);

}  // namespace spark_host
