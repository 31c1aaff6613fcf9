#include "engine/fused_luts.h"

#include "frame/lut_files.h"
#include "frame/pixel_formats_rows.h"

#include <algorithm>
#include <array>

namespace velloran {
namespace {

std::array<std::array<int32_t, table_length>, n_host_forms> inputs, outputs;

}  // namespace

const int32_t* fused_input_lut(int form) {
    const bool bytes = form == form_rgb8;
    const int32_t* const table = bytes ? input_lut_8 : input_lut_12;
    if (!use_input_lut || !table) return nullptr;
    auto& results = inputs.at(static_cast<size_t>(form));
    // A byte's sample has the byte in its upper bits.
    for (int i = 0; i < table_length; ++i) results[static_cast<size_t>(i)] = table[bytes ? i >> 4 : i];
    return results.data();
}

const int32_t* fused_output_lut(int form) {
    const bool bytes = form == form_rgb8;
    if (!use_output_lut || !(bytes ? output_lut_8 != nullptr : output_lut_16 != nullptr)) return nullptr;
    auto& results = outputs.at(static_cast<size_t>(form));
    for (int i = 0; i < table_length; ++i) {
        const int32_t t = bytes ? output_lut_8[i] << 4 : output_lut_16[i];
        // As rows store it: 4096 is 0 in words of 10 bits and 1 in others.
        results[static_cast<size_t>(i)] = (form == form_rgb16 ? t | t >> 12 : t) & fix_max;
    }
    return results.data();
}

void chain_lut(const int32_t* first, const int32_t* then, std::vector<int32_t>* results) {
    results->resize(table_length);
    std::transform(first, first + table_length, results->begin(),
                   [&](int32_t v) { return then[std::clamp<int32_t>(v, 0, fix_max)]; });
}

}  // namespace velloran
