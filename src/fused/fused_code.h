// Code made for a plan, and calls of it. Builds without VELLORAN_JIT and machines without AVX2 have none. What is in
// this room throws std::bad_alloc where memory ends, which engine/fused_pass catches.
#pragma once

#include "fused/fused_plan.h"

#include <cstdint>
#include <vector>

namespace velloran {

// What the code reads; the order is known to it.
struct FusedCall {
    int64_t blocks;  // of fused_lanes pixels
    const uint8_t* constants;
    uint8_t* outputs[max_fused_outputs];  // the host's row, or a row of each plane
    const uint8_t* sources[max_fused_sources];
};
using FusedFun = void (*)(const FusedCall* call);

// 64 bytes that the code reads in its loop.
struct ConstantRow {
    enum Kind : uint8_t { lanes_of_16, lanes_of_32, pairs, literal } kind;
    uint8_t shift;      // of lanes_of_16
    int16_t a, b;       // values of the plan; b of pairs
    uint8_t bytes[64];  // of a literal
};

struct FusedCode {
    FusedFun function;
    int lanes;  // pixels of a block
    std::vector<ConstantRow> rows;
};

// What a frame's constants and tables are to the code: rows, then tables. Aligned to 64 bytes; kept between frames.
class FusedConstants {
public:
    void fill(const FusedPlan& plan, const FusedCode& code);
    const uint8_t* data() const { return start_; }

private:
    std::vector<uint8_t> memory_;
    uint8_t* start_ = nullptr;
};
// Bytes from the start of the constants to each table.
std::vector<int32_t> table_offsets(const FusedPlan& plan, size_t n_rows);

// Code for the plan and the row target in force, kept from before or made now; null where there can be none. It stays
// good until the next call. Host's thread.
const FusedCode* fused_code_for(const FusedPlan& plan);
// Frees all of it, and tries again should the system have refused pages.
void forget_fused_code();
// Whether there may be any, so that it is worth looking at a pass.
bool fused_code_possible();

extern int n_fused_compilations;  // for tests
// For tests: what a system does that allows no executable pages.
extern bool executable_pages_forbidden;

}  // namespace velloran
