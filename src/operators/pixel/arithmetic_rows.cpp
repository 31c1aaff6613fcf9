// Rows of integer arithmetic on samples of 12 fraction bits: products wrap in 32 bits and are shifted arithmetically.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/arithmetic_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"
#include "rows/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {
#include "operators/pixel/arithmetic_bodies.inc"

}  // namespace

void fill_arithmetic_rows(RowTable& table) { fill_arithmetic_into(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
