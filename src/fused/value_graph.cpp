#include "fused/value_graph.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace velloran {
namespace {

constexpr size_t hash_size = 4096;
constexpr double largest_exact = 16777216.0;  // whole numbers up to here are floats

int32_t bits(float v) { return std::bit_cast<int32_t>(v); }
float real_of(int32_t v) { return std::bit_cast<float>(v); }
int32_t wrapped(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }

bool commutes(ValueOp op) {
    switch (op) {
        case ValueOp::add:
        case ValueOp::multiply:
        case ValueOp::multiply_samples:
        case ValueOp::bit_and:
        case ValueOp::bit_or:
        case ValueOp::bit_xor:
        case ValueOp::smaller:
        case ValueOp::larger:
        case ValueOp::equal:
        case ValueOp::f_add:
        case ValueOp::f_multiply:
            return true;
        default:
            return false;
    }
}

// The operation on numbers; floats as their bits, a mask as 0 or 1.
int32_t result_of(ValueOp op, int32_t a, int32_t b, int32_t c, int32_t number) {
    const float x = real_of(a), y = real_of(b);
    switch (op) {
        case ValueOp::add:
            return wrapped(int64_t{a} + b);
        case ValueOp::subtract:
            return wrapped(int64_t{a} - b);
        case ValueOp::multiply:
            return wrapped(int64_t{a} * b);
        case ValueOp::multiply_samples:
            return wrapped(int64_t{a} * b) >> 12;
        case ValueOp::bit_and:
            return a & b;
        case ValueOp::bit_or:
            return a | b;
        case ValueOp::bit_xor:
            return a ^ b;
        case ValueOp::shift_left:
            return wrapped(int64_t{a} << number);
        case ValueOp::shift_right:
            return a >> number;
        case ValueOp::smaller:
            return std::min(a, b);
        case ValueOp::larger:
            return std::max(a, b);
        case ValueOp::magnitude:
            return a < 0 ? wrapped(-int64_t{a}) : a;
        case ValueOp::greater:
            return a > b;
        case ValueOp::equal:
            return a == b;
        case ValueOp::select:
        case ValueOp::f_select:
            return a ? b : c;
        case ValueOp::to_float:
            return bits(static_cast<float>(a));
        case ValueOp::f_add:
            return bits(x + y);
        case ValueOp::f_subtract:
            return bits(x - y);
        case ValueOp::f_multiply:
            return bits(x * y);
        case ValueOp::f_divide:
            return bits(x / y);
        case ValueOp::f_negate:
            return a ^ INT32_MIN;
        case ValueOp::f_smaller:
            return x < y ? a : b;
        case ValueOp::f_larger:
            return x > y ? a : b;
        case ValueOp::f_magnitude:
            return a & INT32_MAX;
        case ValueOp::f_square_root:
            return bits(std::sqrt(x));
        case ValueOp::f_floor:
            return bits(std::floor(x));
        case ValueOp::f_round:
            return bits(std::nearbyint(x));
        case ValueOp::f_with_sign:
            return (a & INT32_MAX) | (b & INT32_MIN);
        case ValueOp::f_greater:
            return x > y;
        case ValueOp::f_greater_equal:
            return x >= y;
        case ValueOp::f_equal:
            return x == y;
        case ValueOp::to_whole:
            if (std::isnan(x)) return 0;
            return static_cast<int32_t>(
                std::clamp(static_cast<double>(std::trunc(x)), double{INT32_MIN}, double{INT32_MAX}));
        default:  // between floats and their bits
            return a;
    }
}

// The whole number and the places of a float that has few bits; false for others. Samples have 12 places, so that their
// products are all of one kind.
bool exact_parts(float v, int32_t* whole, int32_t* places) {
    for (*places = std::fabs(v) < 4096 ? 12 : 0; *places <= 24; ++*places) {
        const double scaled = std::ldexp(static_cast<double>(v), *places);
        if (std::fabs(scaled) > largest_exact) return false;
        if (scaled == std::trunc(scaled)) {
            *whole = static_cast<int32_t>(scaled);
            return true;
        }
    }
    return false;
}

}  // namespace

int ValueGraph::add(Value value) {
    const auto same = [&](const Value& v) {
        return v.op == value.op && v.number == value.number && v.a == value.a && v.b == value.b && v.c == value.c &&
               v.kind == value.kind;
    };
    uint32_t hash = static_cast<uint32_t>(value.op) * 0x9e3779b1u;
    for (const int32_t part : {value.number, value.a, value.b, value.c})
        hash = (hash ^ static_cast<uint32_t>(part)) * 0x85ebca6bu + (hash >> 15);
    if (hash_heads_.empty()) hash_heads_.assign(hash_size, no_value);
    int32_t& head = hash_heads_[(hash >> 8) % hash_size];
    for (int32_t v = head; v != no_value; v = hash_next_[static_cast<size_t>(v)])
        if (same(values[static_cast<size_t>(v)])) return v;
    const int id = static_cast<int>(values.size());
    values.push_back(value);
    hash_next_.push_back(head);
    head = id;
    return id;
}

int ValueGraph::constant(int32_t number) {
    Value v = {ValueOp::constant, ValueKind::integer, false, number, no_value, no_value, no_value, base_none, {}, 0, 0};
    v.range = {static_cast<double>(number), static_cast<double>(number), false};
    v.exact_of = no_value;
    return add(v);
}

int ValueGraph::real_constant(float number) {
    Value v = {
        ValueOp::f_constant, ValueKind::real, false, bits(number), no_value, no_value, no_value, base_none, {}, 0, 0};
    v.range = {number, number, std::isnan(number)};
    v.exact_of = no_value;
    int32_t whole, places;
    if (exact_parts(number, &whole, &places)) {
        v.exact_of = constant(whole);
        v.exact_bits = places;
    }
    return add(v);
}

int ValueGraph::sample(int source, int channel, int low, int high, bool bytes) {
    int index = 0;
    for (; index < static_cast<int>(samples.size()); ++index)
        if (samples[static_cast<size_t>(index)].source == source &&
            samples[static_cast<size_t>(index)].channel == channel)
            break;
    if (index == static_cast<int>(samples.size())) samples.push_back({source, channel, bytes});
    Value v = {ValueOp::sample, ValueKind::integer, false, index, no_value, no_value, no_value, 0, {}, no_value, 0};
    v.range = {static_cast<double>(low), static_cast<double>(high), false};
    const int id = add(v);
    values[static_cast<size_t>(id)].base = id;
    return id;
}

int ValueGraph::table(int index, const int32_t* results) {
    if ((*this)[index].op == ValueOp::constant) return constant(results[(*this)[index].number]);
    ValueTable table = {results, *std::min_element(results, results + table_length),
                        *std::max_element(results, results + table_length)};
    if (table.low == table.high) return constant(table.low);
    int number = 0;
    for (; number < static_cast<int>(tables.size()); ++number)
        if (std::equal(results, results + table_length, tables[static_cast<size_t>(number)].results)) break;
    if (number == static_cast<int>(tables.size())) tables.push_back(table);
    Value v = {ValueOp::table, ValueKind::integer, false, number, index, no_value, no_value, no_value, {}, no_value, 0};
    v.base = (*this)[index].base;
    v.opaque = (*this)[index].opaque;
    v.range = {static_cast<double>(table.low), static_cast<double>(table.high), false};
    return add(v);
}

int ValueGraph::opaque(int a, int b) { return make(ValueOp::opaque, a, b); }

int ValueGraph::fold(ValueOp op, int a, int b, int c, int32_t number) {
    const auto number_of = [&](int v) { return v == no_value ? 0 : (*this)[v].number; };
    const int32_t result = result_of(op, number_of(a), number_of(b), number_of(c), number);
    if (kind_of_operation(op) == ValueKind::real) return real_constant(real_of(result));
    if (kind_of_operation(op) == ValueKind::integer) return constant(result);
    // A constant mask is a number that selects understand.
    Value v = {ValueOp::constant, ValueKind::mask, false,         result,   no_value, no_value,
               no_value,          base_none,       {0, 1, false}, no_value, 0};
    return add(v);
}

// Selections and conversions that say nothing; a whole number that went through floats without rounding. no_value: it
// has to be worked.
int ValueGraph::simpler(ValueOp op, int a, int b, int c, int32_t number) {
    if (op == ValueOp::select || op == ValueOp::f_select) {
        if ((*this)[a].op == ValueOp::constant) return (*this)[a].number ? b : c;
        if (b == c) return b;
    }
    if (op == ValueOp::smaller || op == ValueOp::larger) {
        const ValueRange &x = (*this)[a].range, &y = (*this)[b].range;
        const bool less = x.high <= y.low, more = x.low >= y.high;
        if (less || more) return less == (op == ValueOp::smaller) ? a : b;
    }
    if ((op == ValueOp::smaller || op == ValueOp::larger) && (*this)[b].op == ValueOp::constant) {
        const Value inner = (*this)[a];
        if (inner.op == op && (*this)[inner.b].op == ValueOp::constant) return make(op, inner.a, make(op, inner.b, b));
    }
    if (op == ValueOp::greater) {
        const ValueRange &x = (*this)[a].range, &y = (*this)[b].range;
        if (x.low > y.high || x.high <= y.low) {
            Value v = {ValueOp::constant, ValueKind::mask, false,         x.low > y.high, no_value, no_value,
                       no_value,          base_none,       {0, 1, false}, no_value,       0};
            return add(v);
        }
    }
    if ((op == ValueOp::add || op == ValueOp::bit_or) && (*this)[b].op == ValueOp::constant && (*this)[b].number == 0)
        return a;
    if (op == ValueOp::subtract && (*this)[b].op == ValueOp::constant && (*this)[b].number == 0) return a;
    if (op == ValueOp::multiply_samples && (*this)[b].op == ValueOp::constant && (*this)[b].number > 0 &&
        std::has_single_bit(static_cast<uint32_t>((*this)[b].number))) {
        // A power of two shifts, unless the product may wrap.
        const int places = std::countr_zero(static_cast<uint32_t>((*this)[b].number)) - 12;
        const double size = std::ldexp(1.0, places + 12);
        if ((*this)[a].range.within(-2147483648.0 / size, 2147483647.0 / size)) {
            if (places == 0) return a;
            return make(places > 0 ? ValueOp::shift_left : ValueOp::shift_right, a, no_value, no_value,
                        std::abs(places));
        }
    }
    if (op == ValueOp::shift_right && number == 0) return a;
    if (op == ValueOp::bit_and && (*this)[b].op == ValueOp::constant) {
        const int32_t mask = (*this)[b].number;
        if (mask > 0 && (mask & (mask + 1)) == 0 && (*this)[a].range.within(0, mask)) return a;
    }
    if (op == ValueOp::to_whole && (*this)[a].exact_of != no_value) {
        const int whole = (*this)[a].exact_of, places = (*this)[a].exact_bits;
        if (places < 0 || places > 30) return no_value;
        if ((*this)[whole].range.low >= 0) return make(ValueOp::shift_right, whole, no_value, no_value, places);
        // Towards 0.
        const int sign = make(ValueOp::shift_right, whole, no_value, no_value, 31);
        const int rest = make(ValueOp::bit_and, sign, constant(static_cast<int32_t>((1u << places) - 1)));
        return make(ValueOp::shift_right, make(ValueOp::add, whole, rest), no_value, no_value, places);
    }
    return no_value;
}

// Sums and products of floats that a float's 24 bits hold, as whole numbers.
void ValueGraph::find_exact(Value& value) {
    const auto small = [&](int v) { return (*this)[v].range.within(-largest_exact, largest_exact); };
    if (value.op == ValueOp::to_float) {
        if (small(value.a)) value.exact_of = value.a;
        return;
    }
    if (value.op != ValueOp::f_add && value.op != ValueOp::f_subtract && value.op != ValueOp::f_multiply) return;
    const Value x = (*this)[value.a], y = (*this)[value.b];
    if (x.exact_of == no_value || y.exact_of == no_value) return;
    if (value.op == ValueOp::f_multiply) {
        // A power of two changes the places alone.
        const Value factor = (*this)[y.exact_of];
        const bool power = factor.op == ValueOp::constant && factor.number > 0 &&
                           std::has_single_bit(static_cast<uint32_t>(factor.number));
        const int product = power ? x.exact_of : make(ValueOp::multiply, x.exact_of, y.exact_of);
        const int bits_of_factor = power ? std::countr_zero(static_cast<uint32_t>(factor.number)) : 0;
        if (!small(product)) return;
        value.exact_of = product;
        value.exact_bits = x.exact_bits + y.exact_bits - bits_of_factor;
        return;
    }
    if (x.exact_bits < 0 || y.exact_bits < 0) return;
    const int places = std::max(x.exact_bits, y.exact_bits);
    if (places > 24) return;
    const auto brought = [&](const Value& v) {
        return make(ValueOp::shift_left, v.exact_of, no_value, no_value, places - v.exact_bits);
    };
    const int left = x.exact_bits == places ? x.exact_of : brought(x);
    const int right = y.exact_bits == places ? y.exact_of : brought(y);
    const int sum = make(value.op == ValueOp::f_add ? ValueOp::add : ValueOp::subtract, left, right);
    if (!small(left) || !small(right) || !small(sum)) return;
    value.exact_of = sum;
    value.exact_bits = places;
}

int ValueGraph::make(ValueOp op, int a, int b, int c, int32_t number) {
    if (overflowed()) return constant(0);  // the graph is of no use any more
    const auto is_constant_value = [&](int v) {
        return v == no_value || ((*this)[v].base == base_none && !(*this)[v].opaque);
    };
    if (op != ValueOp::opaque && is_constant_value(a) && is_constant_value(b) && is_constant_value(c))
        return fold(op, a, b, c, number);
    // Constants behind, where operations take them from memory.
    if (commutes(op) && ((*this)[a].base == base_none || ((*this)[b].base != base_none && b < a))) std::swap(a, b);
    if (const int simple = simpler(op, a, b, c, number); simple != no_value) return simple;
    Value value = {op, kind_of_operation(op), op == ValueOp::opaque, number, a, b, c, base_none, {}, no_value, 0};
    for (const int arg : {a, b, c}) {
        if (arg == no_value) continue;
        const Value& v = (*this)[arg];
        value.opaque |= v.opaque;
        if (v.base == base_none) continue;
        value.base = value.base == base_none || value.base == v.base ? v.base : base_many;
    }
    value.range = range_of_operation(*this, op, a, b, c, number);
    if (value.kind == ValueKind::real) find_exact(value);
    return add(value);
}

int ValueGraph::cost(int value) const {
    marks_.resize(values.size(), 0);
    ++mark_;
    std::vector<int> waiting = {value};
    int sum = 0;
    while (!waiting.empty()) {
        const int id = waiting.back();
        waiting.pop_back();
        if (id == no_value || marks_[static_cast<size_t>(id)] == mark_) continue;
        marks_[static_cast<size_t>(id)] = mark_;
        const Value& v = (*this)[id];
        switch (v.op) {
            case ValueOp::constant:
            case ValueOp::f_constant:
            case ValueOp::sample:
                continue;
            case ValueOp::table:
                sum += of_bytes(id) && (*this)[v.a].op == ValueOp::sample ? 10 : 40;
                break;
            case ValueOp::opaque:
                sum += 1000;
                break;
            case ValueOp::f_divide:
            case ValueOp::f_square_root:
                sum += 10;
                break;
            default:
                sum += fits_16_bits(v.range) && v.kind != ValueKind::real ? 1 : 2;
        }
        for (const int arg : {v.a, v.b, v.c}) waiting.push_back(arg);
    }
    return sum;
}

}  // namespace velloran
