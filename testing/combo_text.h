// A signature of a node function as the rows of the table write it.
#pragma once

#include "genotype/node_fun_table.h"

#include <string>

namespace velloran_tests {

// "4<34" and so on.
inline std::string combo_text(const velloran::NodeFun& fun, int combo) {
    const uint32_t packed = fun.arg_type_combos[combo];
    std::string text = std::to_string(velloran::combo_return_elnum(packed)) + "<";
    for (int i = 0; i < fun.arg_number; ++i) text += std::to_string(velloran::combo_arg_elnum(packed, i));
    return text;
}

}  // namespace velloran_tests
