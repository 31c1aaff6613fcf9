// Files of many stamps (.qmi). All numbers are little-endian.
//
//     16 bytes   "QMIF", a version, 11 bytes that are not used
//     then images to the end of the file, each
//     13 bytes   compression: 0 none, 1 runs, another: the image is passed over; width, height, x and y resolution
//                (16 bits each), number of data bytes (32 bits)
//     data       grey samples of 8 bits, the top row first. Runs: the first byte is the escape, and then it stands
//                before a count and a value; all other bytes are samples
#pragma once

#include "operators/image_files/stamp.h"

namespace velloran {

constexpr int stamps_unreadable = -1;

// Adds the stamps of a file to the collection and answers how many. What is wrong with the file is told; stamps that
// are not whole are left out. stamps_unreadable, and nothing added: the file could not be opened or the disk failed, so
// that another time it may be whole. Host's thread. Exhausted memory takes the fatal abort; the collection is the
// caller's to free then.
int load_stamps_from_qmi(const char* path, StampCollection* collection);

}  // namespace velloran
