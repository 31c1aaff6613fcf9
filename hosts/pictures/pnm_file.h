// Portable grey and colour maps (P2, P3, P5, P6), which the picture library reads one step too dark from the middle of
// 16 bits on.
#pragma once

#include "hosts/pictures/pictures.h"

#include <cstddef>

namespace spark_host {

struct PnmHeader {
    int width = 0, height = 0;  // at most 1,048,576
    int channels = 0;           // 1 or 3
    int white = 0;              // the largest sample, 1 to 65535
    bool words = false;         // samples are numbers in words, not bytes
    size_t data = 0;            // where they begin
    int bytes() const { return white < 256 ? 1 : 2; }
};
// False if this is no header of such a file, or not all of it.
bool read_pnm_header(const unsigned char* file, size_t size, PnmHeader& header);

// Samples of header.bytes() in the processor's order, scaled so that white is 255 or 65535; top row first. False if
// some are missing or above white. Throws std::bad_alloc.
bool decode_pnm(const unsigned char* file, size_t size, const PnmHeader& header, Bytes& pixels);

}  // namespace spark_host
