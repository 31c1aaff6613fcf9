// Row functions for every instruction set: the one mechanism, and the pattern of a row file.
//
// A row file is compiled once per target (plain, SSE4, AVX2, AVX-512) by Highway's foreach_target and offers one table
// of function pointers. Whoever loops over rows fetches the table once per pass, before the fork, and calls through it.
//
//   // box_rows.h: the table, and the function that gives the best one for this machine
//   struct BoxRows {
//       void (*sum)(const int16_t* in, int32_t* out, int n);
//   };
//   const BoxRows& box_rows();
//
//   // box_rows.cpp
//   #include "operators/blur/boxes/box_rows.h"
//
//   #undef HWY_TARGET_INCLUDE
//   #define HWY_TARGET_INCLUDE "operators/blur/boxes/box_rows.cpp"  // this very file
//   #include "hwy/foreach_target.h"  // must stand before row_targets.h
//   #include "rows/row_targets.h"
//
//   HWY_BEFORE_NAMESPACE();
//   namespace velloran::HWY_NAMESPACE {
//   namespace {                                    // everything that a target compiles for itself
//
//   void sum(const int16_t* in, int32_t* out, int n) {
//       INDEPENDENT_ITERATIONS
//       for (int i = 0; i < n; ++i) out[i] += in[i];
//   }
//   constexpr BoxRows rows = {sum};
//
//   }  // namespace
//   const BoxRows* box_rows_of_target() { return &rows; }
//   }  // namespace velloran::HWY_NAMESPACE
//   HWY_AFTER_NAMESPACE();
//
//   #if HWY_ONCE
//   namespace velloran {
//   HWY_EXPORT(box_rows_of_target);
//   const BoxRows& box_rows() { return *HWY_DYNAMIC_DISPATCH(box_rows_of_target)(); }
//   }  // namespace velloran
//   #endif
//
// Rules
//   - The plain target defines the result; the others are equal to the bit. testing/row_targets.h runs a body for each.
//   - A plain loop that the compiler vectorises is the first choice; hn:: (hwy::HWY_NAMESPACE, an alias goes inside the
//     inner namespace) for a gather, a transpose, a saturation or a polynomial that a bench shows to matter. The plain
//     target has vectors of one lane, without halves and shuffles: code with hn:: stands under #if !ROW_TARGET_PLAIN
//     beside the plain loop that says what it means.
//   - Helpers of a row stand inside the target's namespace, also templates: an inline function shared between targets
//     may end up compiled for the newest of them and then run on all. From headers outside only constexpr arithmetic.
//   - The anonymous namespace keeps helpers of the same name in two row files apart.
//   - A variable at file level, or an include that must be read once, goes above foreach_target behind its own guard.
//
// VELLORAN_TARGET in the environment (SCALAR for the plain target, SSE4, AVX2, AVX3) keeps a whole run to one of them.
// It is looked at once, when the library is loaded.

// No guard around this part: it is read again for each target.
#include "hwy/highway.h"

#undef ROW_TARGET_PLAIN
#define ROW_TARGET_PLAIN (HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128)
// Whether gathers are instructions; elsewhere Highway makes them of single loads, and a plain loop is as good.
#undef ROW_TARGET_GATHERS
#define ROW_TARGET_GATHERS (HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3)

#ifndef VELLORAN_SUPPORT_ROW_TARGETS_H
#define VELLORAN_SUPPORT_ROW_TARGETS_H

// Before a loop whose iterations are independent although the compiler cannot see it (in and out that do not overlap,
// or overlap exactly).
#if defined(__clang__)
#define INDEPENDENT_ITERATIONS _Pragma("clang loop vectorize(assume_safety)")
#elif defined(__GNUC__)
#define INDEPENDENT_ITERATIONS _Pragma("GCC ivdep")
#else
#define INDEPENDENT_ITERATIONS
#endif

#include "rows/row_target.h"

namespace velloran {

// Every file that offers rows brings this along, so that it is done before the first table is asked for.
inline const int64_t row_target_of_run = take_row_target_of_environment();

}  // namespace velloran

#endif
