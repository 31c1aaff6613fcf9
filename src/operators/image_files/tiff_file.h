// Pictures in TIFF files. The marker of a file is "MM" and its numbers are in the order of this machine, so the reader
// knows the files of the writer below and, on machines of the usual order, no others.
#pragma once

#include <cstdint>
#include <cstdio>

namespace velloran {

// What a file's directory says. Host's thread.
struct tinfo {
    FILE* file_ptr = nullptr;
    const char* name = "";  // for messages
    uint32_t image_width = 0, image_length = 0;
    uint32_t bits_per_sample = 1, compression = 1, photometric = 0, samples_per_pixel = 1;
    uint32_t rows_per_strip = 0;
    uint32_t strip_number = 0, strip_offsets = 0, strip_offsets_type = 0;
    uint32_t strip_byte_counts = 0, strip_byte_counts_number = 0, strip_byte_counts_type = 0;
    uint32_t x_resolution = 0, y_resolution = 0, resolution_unit = 0;  // the first two: where the file has them
};

// Reads the directory of info->file_ptr, which stands at its first byte. False after a message. No file takes the fatal
// abort.
bool read_tinfo(tinfo* info);

// The strips in turn into pixels, which holds image_width * image_length * samples_per_pixel bytes. False after a
// message; what is in pixels is then of no use.
bool read_tiff_pixels(const tinfo& info, uint8_t* pixels);

// Pixels as the caller wants them: bytes side by side, the top row first.
enum TiffLayout : int { tiff_grey = 1, tiff_rgb = 3, tiff_rgba = 4 };

struct TiffPicture {
    int width, height;
    uint8_t* pixels;  // freed with safe_free
};

// Reads a file of 8-bit samples, one or three to a pixel. A grey of red, green and blue is their mean by 77, 150 and 29
// parts; alpha is 255. False after a message, with nothing in picture. Exhausted memory takes the fatal abort.
bool read_tiff(const char* path, TiffLayout layout, TiffPicture* picture);

// Writes width * height * 3 bytes, the top row first. The file has its name only when it is whole. False after a
// message.
bool write_rgb_tiff_file(const char* path, int width, int height, const uint8_t* pixels);

}  // namespace velloran
