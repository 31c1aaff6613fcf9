// The samples are packed by libdeflate, which takes a whole picture at once and is three times as fast as zlib for
// files that are smaller. What lies around them is little enough to be written here.
#include "hosts/pictures/png_file.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace spark_host {
namespace {

constexpr unsigned char signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr size_t chunk_frame = 12;  // length, type and check sum
constexpr uint32_t most_in_chunk = 0x7fffffff;

uint32_t big(const unsigned char* at) {
    return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 | static_cast<uint32_t>(at[2]) << 8 |
           at[3];
}

void put_big(unsigned char* at, uint32_t number) {
    for (int i = 0; i < 4; i++) at[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
}

// Distance of each byte from what the row above and the pixel to the left let expect. Rows have a pixel of zeros in
// front of them.
void expect_left(const unsigned char* row, const unsigned char*, size_t n, size_t pixel, unsigned char* out) {
    for (size_t i = 0; i < n; i++) out[i] = static_cast<unsigned char>(row[i] - (row - pixel)[i]);
}
void expect_above(const unsigned char* row, const unsigned char* above, size_t n, size_t, unsigned char* out) {
    for (size_t i = 0; i < n; i++) out[i] = static_cast<unsigned char>(row[i] - above[i]);
}
void expect_mean(const unsigned char* row, const unsigned char* above, size_t n, size_t pixel, unsigned char* out) {
    for (size_t i = 0; i < n; i++) out[i] = static_cast<unsigned char>(row[i] - (((row - pixel)[i] + above[i]) >> 1));
}
// The nearest of left, above and corner to left + above - corner (Alan Paeth's predictor).
void expect_nearest(const unsigned char* row, const unsigned char* above, size_t n, size_t pixel, unsigned char* out) {
    const unsigned char *const lefts = row - pixel, *const corners = above - pixel;
    for (size_t i = 0; i < n; i++) {
        const int16_t left = lefts[i], up = above[i], corner = corners[i];
        int16_t by_left = static_cast<int16_t>(up - corner), by_up = static_cast<int16_t>(left - corner),
                by_corner = static_cast<int16_t>(by_left + by_up);
        by_left = by_left < 0 ? static_cast<int16_t>(-by_left) : by_left;
        by_up = by_up < 0 ? static_cast<int16_t>(-by_up) : by_up;
        by_corner = by_corner < 0 ? static_cast<int16_t>(-by_corner) : by_corner;
        int16_t nearest = by_up <= by_corner ? up : corner;
        nearest = by_left <= by_up && by_left <= by_corner ? left : nearest;
        out[i] = static_cast<unsigned char>(row[i] - nearest);
    }
}

unsigned size_of_distances(const unsigned char* distances, size_t n) {
    unsigned sum = 0;
    for (size_t i = 0; i < n; i++) {
        const unsigned char d = distances[i], back = static_cast<unsigned char>(-d);
        sum += d < back ? d : back;
    }
    return sum;
}

// Rows as the file holds them, each behind the number of the filter that left the least.
Bytes filtered_rows(const PlainImage& image) {
    using Filter = void (*)(const unsigned char*, const unsigned char*, size_t, size_t, unsigned char*);
    static constexpr Filter filters[] = {expect_left, expect_above, expect_mean, expect_nearest};
    const size_t pixel = static_cast<size_t>(image.channels) * static_cast<size_t>(image.bytes);
    const size_t n = static_cast<size_t>(image.width) * pixel, height = static_cast<size_t>(image.height);
    Bytes rows((n + 1) * height), lines((n + pixel) * 2, 0), tried(n);
    unsigned char *row = lines.data() + pixel, *above = row + n + pixel;
    for (size_t y = 0; y < height; y++) {
        const unsigned char* const from = image.pixels + y * n;
        if (image.bytes == 1) {
            std::memcpy(row, from, n);
        } else {
            for (size_t i = 0; i < n; i += 2) {
                uint16_t sample;
                std::memcpy(&sample, from + i, 2);
                row[i] = static_cast<unsigned char>(sample >> 8);
                row[i + 1] = static_cast<unsigned char>(sample);
            }
        }
        unsigned char* const out = rows.data() + y * (n + 1);
        if (image.compression == Compression::none) {
            out[0] = 0;
            std::memcpy(out + 1, row, n);
            continue;
        }
        unsigned least = ~0u;
        for (unsigned char i = 0; i < 4; i++) {
            filters[i](row, above, n, pixel, tried.data());
            const unsigned size = size_of_distances(tried.data(), n);
            if (size >= least) continue;
            least = size;
            out[0] = static_cast<unsigned char>(i + 1);
            std::memcpy(out + 1, tried.data(), n);
        }
        std::swap(row, above);
    }
    return rows;
}

struct FreeCompressor {
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
    void operator()(libdeflate_decompressor* decompressor) const { libdeflate_free_decompressor(decompressor); }
};

uint8_t nearest_of(int left, int up, int corner) {
    const int by_left = std::abs(up - corner), by_up = std::abs(left - corner),
              by_corner = std::abs(left + up - 2 * corner);
    const int nearest = by_up <= by_corner ? up : corner;
    return static_cast<uint8_t>(by_left <= by_up && by_left <= by_corner ? left : nearest);
}

// The reverse of the filters, in place. pixel is known to the compiler, for what is left of a pixel is waited for.
template <size_t pixel>
bool restore_row(int filter, uint8_t* row, const uint8_t* above, size_t n) {
    uint8_t left[pixel] = {}, corner[pixel] = {};
    switch (filter) {
        case 0:
            return true;
        case 1:
            for (size_t i = 0; i < n; i += pixel)
                for (size_t c = 0; c < pixel; c++) row[i + c] = left[c] = static_cast<uint8_t>(row[i + c] + left[c]);
            return true;
        case 2:
            for (size_t i = 0; i < n; i++) row[i] = static_cast<uint8_t>(row[i] + above[i]);
            return true;
        case 3:
            for (size_t i = 0; i < n; i += pixel)
                for (size_t c = 0; c < pixel; c++)
                    row[i + c] = left[c] = static_cast<uint8_t>(row[i + c] + ((left[c] + above[i + c]) >> 1));
            return true;
        case 4:
            for (size_t i = 0; i < n; i += pixel)
                for (size_t c = 0; c < pixel; c++) {
                    const uint8_t up = above[i + c];
                    row[i + c] = left[c] = static_cast<uint8_t>(row[i + c] + nearest_of(left[c], up, corner[c]));
                    corner[c] = up;
                }
            return true;
        default:
            return false;
    }
}

using RestoreRow = bool (*)(int, uint8_t*, const uint8_t*, size_t);
RestoreRow restore_for(size_t pixel) {
    switch (pixel) {
        case 1:
            return restore_row<1>;
        case 2:
            return restore_row<2>;
        case 3:
            return restore_row<3>;
        case 4:
            return restore_row<4>;
        case 6:
            return restore_row<6>;
        case 8:
            return restore_row<8>;
        default:
            return nullptr;
    }
}

}  // namespace

std::vector<PngChunk> png_chunks(const unsigned char* file, size_t size, bool to_data) {
    std::vector<PngChunk> chunks;
    if (size < sizeof(signature) || std::memcmp(file, signature, sizeof(signature)) != 0) return {};
    for (size_t at = sizeof(signature); size - at >= chunk_frame;) {
        const PngChunk chunk = {big(file + at + 4), file + at + 8, big(file + at)};
        if (chunks.empty() && (chunk.type != png_type("IHDR") || chunk.size != 13)) return {};
        const bool samples = chunk.type == png_type("IDAT");
        if (samples && to_data) {
            chunks.push_back(chunk);
            return chunks;
        }
        if (chunk.size > most_in_chunk || chunk.size > size - at - chunk_frame) return {};
        if (libdeflate_crc32(0, file + at + 4, chunk.size + 4) != big(chunk.data + chunk.size)) return {};
        chunks.push_back(chunk);
        if (chunk.type == png_type("IEND")) return chunks;
        at += chunk_frame + chunk.size;
    }
    return {};
}

void add_png_chunk(Bytes& to, uint32_t type, const void* data, size_t size) {
    const size_t at = to.size();
    to.resize(at + chunk_frame + size);
    put_big(&to[at], static_cast<uint32_t>(size));
    put_big(&to[at + 4], type);
    if (size > 0) std::memcpy(&to[at + 8], data, size);
    put_big(&to[at + 8 + size], libdeflate_crc32(0, &to[at + 4], size + 4));
}

void add_png_text(Bytes& to, const std::string& key, const std::string& text) {
    const std::string both = key + '\0' + text;
    add_png_chunk(to, png_type("tEXt"), both.data(), both.size());
}

bool decode_png(const std::vector<PngChunk>& chunks, int width, int height, size_t pixel_bytes, bool deep,
                Bytes& pixels) {
    // No stream of this kind holds more than so many bytes in one.
    constexpr size_t most_packed = 1032;
    const size_t n = static_cast<size_t>(width) * pixel_bytes, rows = static_cast<size_t>(height);
    Bytes packed;
    for (const PngChunk& chunk : chunks)
        if (chunk.type == png_type("IDAT")) packed.append({chunk.data, chunk.size});
    const RestoreRow restore = restore_for(pixel_bytes);
    if (!restore || (n + 1) * rows / most_packed > packed.size()) return false;
    const std::unique_ptr<libdeflate_decompressor, FreeCompressor> decompressor(libdeflate_alloc_decompressor());
    if (!decompressor) throw std::bad_alloc();
    Bytes unpacked((n + 1) * rows);
    if (libdeflate_zlib_decompress(decompressor.get(), packed.data(), packed.size(), unpacked.data(), unpacked.size(),
                                   nullptr) != LIBDEFLATE_SUCCESS)
        return false;
    pixels.resize(n * rows);
    const Bytes nothing(n, 0);
    const uint8_t* above = nothing.data();
    for (size_t y = 0; y < rows; y++) {
        uint8_t* const row = unpacked.data() + y * (n + 1);
        if (!restore(row[0], row + 1, above, n)) return false;
        above = row + 1;
        uint8_t* const to = pixels.data() + y * n;
        if (!deep) {
            std::memcpy(to, above, n);
            continue;
        }
        for (size_t i = 0; i < n; i += 2) {
            const auto sample = static_cast<uint16_t>(above[i] << 8 | above[i + 1]);
            std::memcpy(to + i, &sample, 2);
        }
    }
    return true;
}

Bytes encode_png(const PlainImage& image, const Bytes& around) {
    static constexpr unsigned char kinds[] = {0, 0, 4, 2, 6};
    const Bytes rows = filtered_rows(image);
    const int level = image.compression == Compression::none ? 0 : image.compression == Compression::small ? 9 : 1;
    const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(libdeflate_alloc_compressor(level));
    if (!compressor) throw std::bad_alloc();
    Bytes packed(libdeflate_zlib_compress_bound(compressor.get(), rows.size()));
    packed.resize(libdeflate_zlib_compress(compressor.get(), rows.data(), rows.size(), packed.data(), packed.size()));

    Bytes file;
    file.reserve(packed.size() + around.size() + 256);
    file.append(signature);
    unsigned char header[13] = {};
    put_big(header, static_cast<uint32_t>(image.width));
    put_big(header + 4, static_cast<uint32_t>(image.height));
    header[8] = static_cast<unsigned char>(image.bytes * 8);
    header[9] = kinds[image.channels];
    add_png_chunk(file, png_type("IHDR"), header, sizeof(header));
    file.append(around);
    for (size_t at = 0; at < packed.size(); at += most_in_chunk)
        add_png_chunk(file, png_type("IDAT"), &packed[at], std::min<size_t>(packed.size() - at, most_in_chunk));
    add_png_chunk(file, png_type("IEND"), nullptr, 0);
    return file;
}

}  // namespace spark_host
