// Luma of a colour, as used by every pixel row: the weights of ITU-R BT.709.
#pragma once

namespace velloran {

constexpr float luma_red = 0.2126f, luma_blue = 0.0722f;  // green has the rest: a grey's luma is the grey itself

}  // namespace velloran
