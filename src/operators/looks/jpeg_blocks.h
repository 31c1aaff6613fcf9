// A picture through libjpeg and back, with a hand on the decoder's tables and blocks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velloran {

struct JpegDecoding;

// Called for each block between dequantisation and the inverse transform, with its 64 coefficients by rows of
// frequencies upwards. False ends the round trip.
using JpegBlockHook = bool (*)(int16_t* block, JpegDecoding* decoding);

// What the decoder does beside decoding.
struct JpegDecoding {
    float table_factors[2][64];      // of the entries of quantisation tables 0 and 1, in the decoder alone
    JpegBlockHook block_hook;        // null: none
    int32_t block_count, block_run;  // the hook's own
    const void* settings;            // the hook's own
};

enum JpegResult : int { jpeg_done, jpeg_stopped, jpeg_failed };
constexpr int jpeg_message_size = 200;

// Bytes that a compressed picture takes at the most.
size_t jpeg_most_bytes(int width, int height);

// Compresses pixels (interleaved R G B, rows without gaps) at quality 0 to 100 and writes what is decoded over them.
// work: jpeg_most_bytes of them. What goes wrong is told in message and leaves the pixels unfinished; nothing is ever
// printed and the process never ends. Any task; all memory is given back.
JpegResult jpeg_round_trip(uint8_t* pixels, int width, int height, int quality, JpegDecoding* decoding, uint8_t* work,
                           char (&message)[jpeg_message_size]);

}  // namespace velloran
