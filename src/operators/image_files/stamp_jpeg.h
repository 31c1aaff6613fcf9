// Stamps from JPEG files, one a file.
#pragma once

#include "operators/image_files/stamp.h"

namespace velloran {

enum StampJpegResult : int {
    stamp_jpeg_done,
    stamp_jpeg_refused,    // something is wrong with the file
    stamp_jpeg_unreadable  // it could not be opened, or the disk failed: another time it may be whole
};

// Fills an empty stamp from the grey of a picture. deferred: the size alone is read, and the pixels are left to
// read_deferred_stamp. What goes wrong is told, leaves the stamp as it was, and never ends the process. Host's thread.
// Exhausted memory takes the fatal abort; the stamp, which is not on the stack, is the caller's to free then.
StampJpegResult load_stamp_from_jpeg(const char* path, bool deferred, Stamp* stamp);

// The pixels of a deferred stamp, if they are still in its file. A stamp that was refused once stays so, without
// another word.
StampJpegResult read_deferred_stamp(Stamp* stamp);

}  // namespace velloran
