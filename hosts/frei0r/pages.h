// What editing programs are told beside the modules themselves.
#pragma once

#include "hosts/frei0r/records.h"

namespace frei0r {

// A page of MLT, and the name of its file.
std::string mlt_name(const Module& module);
std::string mlt_page(const Module& module);

// A page of Kdenlive, and its file below Kdenlive's directory of data. Effects with three inputs have none, for
// Kdenlive lays one track over another; the page is then empty.
std::string kdenlive_name(const Module& module);
std::string kdenlive_page(const Module& module);

}  // namespace frei0r
