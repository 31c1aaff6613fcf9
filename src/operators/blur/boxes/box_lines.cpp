#include "operators/blur/boxes/box_lines.h"

#include "operators/blur/boxes/box_line_rows.h"
#include "operators/blur/boxes/box_taps.h"

#include <algorithm>
#include <cmath>

namespace velloran {

BoxLinesFunction box_rows_function(const BoxLines& lines) {
    return (box_taps_apply(lines) ? box_tap_rows() : box_chain_rows()).rows;
}

BoxLinesFunction box_columns_function(const BoxLines& lines, const BoxSource& source, const BoxSink& sink) {
    // Taps ask again for samples behind the place of the result, so the two must be apart; and a long image is where
    // columns come from after rows. Scaled by so much less than 1, a result cannot leave 32 bits.
    const bool by_taps = source.long_image && sink.plane && std::abs(sink.factor) < 0.99f && box_taps_apply(lines) &&
                         lines.passes[lines.n_passes - 1].shift_after == 0;
    return (by_taps ? box_tap_rows() : box_chain_rows()).columns;
}

size_t box_lines_scratch(const BoxLines& lines, int lanes) {
    return std::max(box_chain_scratch(lines, lanes), box_taps_apply(lines) ? box_tap_scratch(lines) : 0);
}

}  // namespace velloran
