// How the values of a graph are worked: those that the outputs need, in an order that keeps few of them alive, each in
// lanes of 16 bits where its range and those of its arguments allow it, else in lanes of 32.
//
// A plan says nothing of the numbers of constants and of what tables hold. Plans that are equal in all that
// plan_key writes down are worked by the same code.
#pragma once

#include "frame/pixel_formats_rows.h"
#include "fused/value_graph.h"

#include <cstdint>
#include <vector>

namespace velloran {

constexpr int max_fused_sources = 24;
constexpr int max_fused_outputs = 4;

// Of a source or of the output: a HostForm, or planes of 16-bit samples.
constexpr uint8_t form_planes = 3;

enum PlanFlags : uint8_t {
    plan_unsigned = 1,         // a product of numbers that are not negative
    plan_narrow_factors = 2,   // a product in 32 bits of factors in 16
    plan_sum_of_products = 4,  // a * b + c * d, all factors in 16 bits
    plan_safe = 8,             // no float beyond 32 bits or without a number comes to a whole one
    plan_clip_low = 16,        // an output may lie below or above what is stored
    plan_clip_high = 32
};

// Entries of 16 or 32 bits; of_bytes: 256 of 16 bits, by the upper 8 bits of a sample.
enum TableKind : uint8_t { table_narrow, table_wide, table_of_bytes };
constexpr int byte_table_length = 256;

struct PlannedValue {
    ValueOp op;
    ValueKind kind;
    uint8_t wide;  // worked in lanes of 32 bits
    uint8_t flags;
    uint8_t shift_a, shift_b;  // of the factors of a product whose upper half is the result
    int16_t a, b, c, d;        // earlier values of the plan, or -1
    int16_t unused;
    int32_t number;  // of shifts; of samples and tables the index in the plan
};

struct PlannedOutput {
    int16_t value;
    uint8_t flags;
    uint8_t unused;
};

struct FusedPlan {
    std::vector<PlannedValue> values;
    std::vector<int32_t> numbers;      // of constants, by value
    std::vector<ValueSample> samples;  // by number of a value
    std::vector<ValueTable> tables;
    std::vector<uint8_t> table_kinds;  // TableKind
    std::vector<PlannedOutput> outputs;
    uint8_t output_form;
    std::vector<uint8_t> source_forms;  // by ValueSample::source
};

// outputs: values of the graph; three or one into a host form, else one a plane. False if some value has no operation
// or there are too many.
bool make_fused_plan(const ValueGraph& graph, const std::vector<int>& outputs, uint8_t output_form,
                     const std::vector<uint8_t>& source_forms, FusedPlan* plan);

// What the code of a plan hangs on.
void plan_key(const FusedPlan& plan, std::vector<uint8_t>* key);

}  // namespace velloran
