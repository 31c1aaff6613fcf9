// What a pass computes for one pixel, as a graph of values: the operations that row bodies are made of
// (rows/lanes-inl.h) on samples, each value with the range that it stays in. Values are numbered in the order they were
// made, arguments before users; the same operation on the same values is made once, and operations on constants at
// once.
//
// A range holds every result that the operation can have for arguments in theirs, to the rounding of floats and the
// wrapping of 32 bits; nothing else does, so nothing may be assumed of a value beyond it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velloran {

enum class ValueOp : uint8_t {
    constant,  // number
    sample,    // number: index into ValueGraph::samples
    table,     // a: 0 .. table_length - 1; number: index into ValueGraph::tables
    opaque,    // a, b: no operation is known for it
    // integers of 32 bits that wrap
    add,
    subtract,
    multiply,
    multiply_samples,  // the product shifted right by 12
    bit_and,
    bit_or,
    bit_xor,
    shift_left,   // by number
    shift_right,  // by number, arithmetically
    smaller,
    larger,
    magnitude,
    greater,  // a > b: a mask
    equal,
    select,  // a: a mask; b where it is set, c elsewhere
    // floats
    f_constant,  // number: its bits
    to_float,
    f_add,
    f_subtract,
    f_multiply,
    f_divide,
    f_negate,
    f_smaller,
    f_larger,
    f_magnitude,
    f_square_root,
    f_floor,
    f_round,
    f_with_sign,  // a, not negative, with the sign of b
    f_greater,
    f_greater_equal,
    f_equal,
    f_select,
    float_of_bits,
    bits_of_float,
    to_whole  // truncated, held at the ends of 32 bits, 0 for what is no number
};

enum class ValueKind : uint8_t { integer, real, mask };

// Of integers and floats; no_number: a float may be none.
struct ValueRange {
    double low = -2147483648.0, high = 2147483647.0;
    bool no_number = false;
    bool within(double from, double to) const { return low >= from && high <= to && !no_number; }
};
inline bool fits_16_bits(const ValueRange& r) { return r.within(-32768, 32767); }

constexpr int no_value = -1;
constexpr int base_none = -1;  // no sample: a constant
constexpr int base_many = -2;

struct Value {
    ValueOp op;
    ValueKind kind;
    bool opaque;  // it, or something that it is made of, is opaque
    int32_t number;
    int32_t a, b, c;
    int32_t base;  // the one sample (value) that all hangs on; base_none, base_many
    ValueRange range;
    // Of a float that is exact_scale_bits places of the integer exact_of, without rounding: that integer, or no_value.
    int32_t exact_of;
    int32_t exact_bits;
};

// Where samples come from: a channel of a host frame or a plane.
struct ValueSample {
    int32_t source;   // the pass's own number of the frame or plane
    int32_t channel;  // of a host frame; -1: a plane
    int32_t bytes;    // 1: of 256 values, each v of them as v << 4 | v >> 4
};

// The results of a function for 0 .. table_length - 1.
constexpr int table_length = 4096;
struct ValueTable {
    const int32_t* results;  // table_length; whoever made the graph keeps them
    int32_t low, high;
};

class ValueGraph {
public:
    std::vector<Value> values;
    std::vector<ValueSample> samples;
    std::vector<ValueTable> tables;

    const Value& operator[](int value) const { return values[static_cast<size_t>(value)]; }
    bool overflowed() const { return values.size() > most_values; }

    int constant(int32_t number);
    int real_constant(float number);
    int sample(int source, int channel, int low, int high, bool bytes = false);
    // index: in 0 .. table_length - 1.
    int table(int index, const int32_t* results);
    // Hangs on one sample, which has 256 values.
    bool of_bytes(int value) const {
        const int base = (*this)[value].base;
        return base >= 0 && samples[static_cast<size_t>((*this)[base].number)].bytes != 0;
    }
    int opaque(int a, int b);
    // number: of shifts.
    int make(ValueOp op, int a, int b = no_value, int c = no_value, int32_t number = 0);

    // What it costs to work a value from its samples, in operations on half as many lanes as there are 16-bit ones.
    int cost(int value) const;

private:
    static constexpr size_t most_values = 20000;

    int add(Value value);
    int fold(ValueOp op, int a, int b, int c, int32_t number);
    void find_exact(Value& value);
    int simpler(ValueOp op, int a, int b, int c, int32_t number);

    std::vector<int32_t> hash_heads_, hash_next_;
    mutable std::vector<uint32_t> marks_;
    mutable uint32_t mark_ = 0;
};

// The range of an operation's result; value_ranges.cpp.
ValueRange range_of_operation(const ValueGraph& graph, ValueOp op, int a, int b, int c, int32_t number);
ValueKind kind_of_operation(ValueOp op);

}  // namespace velloran
