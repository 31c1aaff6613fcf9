// What the configuration says to rooms that stand below it.
#pragma once

namespace velloran {

// Hands on the values of config: who may abort a render and how, the most tasks, a forced rate and pixel aspect, the
// LUT files. Host's thread.
void apply_config();

}  // namespace velloran
