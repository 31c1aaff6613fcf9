// Opening and reading the files of this room: what is no plain file is refused before it is opened, since a pipe would
// hold the frame up for ever, and a fault of the disk is told apart from a file that ends early.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace velloran {

// Opens path to read, in binary. Null after a message. The file is closed if a fatal abort passes, so close_image_file
// has to be called in the order of opening, before anything else that registered a clean-up earlier. Host's thread.
FILE* open_image_file(const char* path);
void close_image_file(FILE* file);

// What opens a file; tests put one here whose reads fail.
extern FILE* (*open_image_stream)(const char* path);

// Bytes from the present position to the end; 0 if the file cannot tell.
uint64_t bytes_left(FILE* file);

// Whether reading failed for another reason than the file's end; the cause is reported.
bool image_file_failed(FILE* file, const char* path);

// Numbers of a file are little-endian.
inline uint16_t little_u16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline int16_t little_i16(const uint8_t* p) { return static_cast<int16_t>(little_u16(p)); }
inline uint32_t little_u32(const uint8_t* p) { return little_u16(p) | static_cast<uint32_t>(little_u16(p + 2)) << 16; }

}  // namespace velloran
