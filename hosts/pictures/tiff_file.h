// TIFF files of one plain layer, through libtiff.
#pragma once

#include "hosts/pictures/png_file.h"

#include <cstdint>
#include <string>

namespace spark_host {

// A whole file; with a fourth channel alpha stands beside colours that are not multiplied by it. Empty, and the reason
// in *error without a path, if it cannot be made.
Bytes encode_tiff(const PlainImage& image, const ColourNotes& notes, std::string* error);

// Puts how a picture is made into a whole file, and finds it again; false, and the reason, if that fails.
bool note_in_tiff(Bytes& file, const std::string& making, std::string* error);
std::string making_of_tiff(const std::string& path);

}  // namespace spark_host
