// Pictures as JPEG files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace velloran_tests {

struct JpegForm {
    int channels = 1;
    int density = 0;  // dots an inch; 0 none
    bool progressive = false;
};

// pixels: width * height * channels.
inline std::string jpeg_bytes(int width, int height, const std::vector<uint8_t>& pixels, const JpegForm& form = {}) {
    jpeg_compress_struct c;
    jpeg_error_mgr errors;
    c.err = jpeg_std_error(&errors);
    jpeg_create_compress(&c);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &memory, &size);
    c.image_width = static_cast<JDIMENSION>(width);
    c.image_height = static_cast<JDIMENSION>(height);
    c.input_components = form.channels;
    c.in_color_space = form.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 100, TRUE);
    if (form.progressive) jpeg_simple_progression(&c);
    c.density_unit = form.density ? 1 : 0;
    if (form.density) c.X_density = c.Y_density = static_cast<UINT16>(form.density);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        auto* row =
            const_cast<uint8_t*>(pixels.data()) + size_t{c.next_scanline} * static_cast<size_t>(width * form.channels);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::string bytes(reinterpret_cast<char*>(memory), size);
    std::free(memory);
    return bytes;
}

}  // namespace velloran_tests
