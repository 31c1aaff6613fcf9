// Writing files of many stamps (.qmi); src/operators/image_files/qmi_file.h describes them.
#pragma once

#include "hosts/stamps/stamp_picture.h"

#include <string>
#include <vector>

namespace stamp_maker {

constexpr int most_stamps = 350, most_side = 32767;

// Answers what went wrong, empty for nothing. The file has its name only when it is whole.
std::string write_qmi(const std::string& path, const std::vector<StampPicture>& stamps);

}  // namespace stamp_maker
