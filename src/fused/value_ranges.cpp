// Intervals. Integers first see whether 32 bits hold the result; what may wrap has the range of all integers. Bounds of
// floats are worked with the rounding that the operation itself has, which keeps order.
#include "fused/value_graph.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace velloran {
namespace {

constexpr double least = -2147483648.0, most = 2147483647.0;
constexpr ValueRange all_integers = {least, most, false};
constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr ValueRange all_floats = {-infinite, infinite, true};

ValueRange held_in_32_bits(double low, double high) {
    return low < least || high > most ? all_integers : ValueRange{low, high, false};
}
ValueRange hull(const ValueRange& a, const ValueRange& b) {
    return {std::min(a.low, b.low), std::max(a.high, b.high), a.no_number || b.no_number};
}
ValueRange products(const ValueRange& a, const ValueRange& b) {
    const double p[4] = {a.low * b.low, a.low * b.high, a.high * b.low, a.high * b.high};
    return {*std::min_element(p, p + 4), *std::max_element(p, p + 4), false};
}
double floor_shift(double v, int bits) { return std::floor(std::ldexp(v, -bits)); }

// All ones up to the highest bit of the numbers, none of them negative.
double ones_over(double high) { return static_cast<double>(std::bit_ceil(static_cast<uint64_t>(high) + 1) - 1); }
// Numbers of as many bits as the wider of two: results of bitwise operations.
ValueRange bitwise(const ValueRange& a, const ValueRange& b) {
    const ValueRange both = hull(a, b);
    const double size = ones_over(std::max(both.high, -both.low - 1));
    return {both.low < 0 ? -size - 1 : 0, size, false};
}
ValueRange bitwise_and(const ValueRange& a, const ValueRange& b) {
    if (a.low >= 0 && b.low >= 0) return {0, std::min(a.high, b.high), false};
    if (a.low >= 0) return {0, a.high, false};
    if (b.low >= 0) return {0, b.high, false};
    return bitwise(a, b);
}

// from + (to - from) * share: between the two where share is 0 to 1. True if the sum is one.
bool mix_range(const ValueGraph& graph, int from, int product, ValueRange* range) {
    const Value& p = graph[product];
    if (p.op != ValueOp::multiply_samples) return false;
    for (int side = 0; side < 2; ++side) {
        const Value& difference = graph[side ? p.b : p.a];
        const ValueRange& share = graph[side ? p.a : p.b].range;
        if (difference.op != ValueOp::subtract || difference.b != from || !share.within(0, 4096)) continue;
        const ValueRange& f = graph[from].range;
        const ValueRange& t = graph[difference.a].range;
        const double size = std::max(t.high - f.low, f.high - t.low);
        if (size > most || size * share.high > most) continue;  // the product may wrap
        *range = hull(f, t);
        return true;
    }
    return false;
}

constexpr double bits_of_infinity = 0x7f800000;
double bits_to_float(double bits) { return std::bit_cast<float>(static_cast<int32_t>(bits)); }
double float_to_bits(double v) { return std::bit_cast<int32_t>(static_cast<float>(v)); }

float rounded(double v) { return static_cast<float>(v); }

// Infinite numbers may meet in something that is none.
bool finite(const ValueRange& r) { return !r.no_number && std::isfinite(r.low) && std::isfinite(r.high); }

ValueRange float_range(double low, double high) {
    if (!std::isfinite(low) || !std::isfinite(high)) return all_floats;
    return {low, high, false};
}
ValueRange float_products(const ValueRange& a, const ValueRange& b) {
    if (!finite(a) || !finite(b)) return all_floats;
    float low = std::numeric_limits<float>::infinity(), high = -low;
    for (const double x : {a.low, a.high})
        for (const double y : {b.low, b.high}) {
            const float p = rounded(x) * rounded(y);
            low = std::min(low, p);
            high = std::max(high, p);
        }
    return float_range(low, high);
}
ValueRange float_quotients(const ValueRange& a, const ValueRange& b) {
    if (!finite(a) || !finite(b) || (b.low <= 0 && b.high >= 0)) return all_floats;
    float low = std::numeric_limits<float>::infinity(), high = -low;
    for (const double x : {a.low, a.high})
        for (const double y : {b.low, b.high}) {
            const float q = rounded(x) / rounded(y);
            low = std::min(low, q);
            high = std::max(high, q);
        }
    return float_range(low, high);
}

ValueRange integer_range(const ValueGraph& graph, ValueOp op, int a, int b, int32_t number) {
    const ValueRange &x = graph[a].range, y = b >= 0 ? graph[b].range : ValueRange{};
    switch (op) {
        case ValueOp::add: {
            ValueRange mixed;
            if (mix_range(graph, a, b, &mixed) || mix_range(graph, b, a, &mixed)) return mixed;
            return held_in_32_bits(x.low + y.low, x.high + y.high);
        }
        case ValueOp::subtract:
            if (a == b) return {0, 0, false};
            return held_in_32_bits(x.low - y.high, x.high - y.low);
        case ValueOp::multiply: {
            ValueRange p = products(x, y);
            if (a == b) p.low = std::max(p.low, 0.0);
            return held_in_32_bits(p.low, p.high);
        }
        case ValueOp::multiply_samples: {
            ValueRange p = products(x, y);
            if (a == b) p.low = std::max(p.low, 0.0);
            p = held_in_32_bits(p.low, p.high);
            return {floor_shift(p.low, 12), floor_shift(p.high, 12), false};
        }
        case ValueOp::bit_and:
            return bitwise_and(x, y);
        case ValueOp::bit_or:
        case ValueOp::bit_xor:
            return bitwise(x, y);
        case ValueOp::shift_left:
            return held_in_32_bits(std::ldexp(x.low, number), std::ldexp(x.high, number));
        case ValueOp::shift_right:
            return {floor_shift(x.low, number), floor_shift(x.high, number), false};
        case ValueOp::smaller:
            return {std::min(x.low, y.low), std::min(x.high, y.high), false};
        case ValueOp::larger:
            return {std::max(x.low, y.low), std::max(x.high, y.high), false};
        case ValueOp::magnitude:
            if (x.low == least) return all_integers;
            if (x.low >= 0) return x;
            return {x.high < 0 ? -x.high : 0, std::max(-x.low, x.high), false};
        default:
            return all_integers;
    }
}

ValueRange real_range(const ValueGraph& graph, ValueOp op, int a, int b) {
    const ValueRange &x = graph[a].range, y = b >= 0 ? graph[b].range : ValueRange{};
    const bool none = x.no_number || (b >= 0 && y.no_number);
    switch (op) {
        case ValueOp::to_float:
            return {rounded(x.low), rounded(x.high), false};
        case ValueOp::f_add:
            if (!finite(x) || !finite(y)) return all_floats;
            return float_range(rounded(x.low) + rounded(y.low), rounded(x.high) + rounded(y.high));
        case ValueOp::f_subtract:
            if (!finite(x) || !finite(y)) return all_floats;
            return float_range(rounded(x.low) - rounded(y.high), rounded(x.high) - rounded(y.low));
        case ValueOp::f_multiply: {
            ValueRange p = float_products(x, y);
            if (a == b && !p.no_number) p.low = std::max(p.low, 0.0);
            return p;
        }
        case ValueOp::f_divide:
            return float_quotients(x, y);
        case ValueOp::f_negate:
            return {-x.high, -x.low, x.no_number};
        case ValueOp::f_smaller:
            return none ? all_floats : ValueRange{std::min(x.low, y.low), std::min(x.high, y.high), false};
        case ValueOp::f_larger:
            return none ? all_floats : ValueRange{std::max(x.low, y.low), std::max(x.high, y.high), false};
        case ValueOp::f_magnitude:
        case ValueOp::f_with_sign: {
            const double size = std::max(-x.low, x.high);
            const double low = x.low > 0 ? x.low : x.high < 0 ? -x.high : 0;
            if (op == ValueOp::f_magnitude) return {low, size, x.no_number};
            return {-size, size, x.no_number};
        }
        case ValueOp::f_square_root:
            if (none || x.low < 0) return all_floats;
            return {std::sqrt(rounded(x.low)), std::sqrt(rounded(x.high)), false};
        case ValueOp::f_floor:
            return {std::floor(x.low), std::floor(x.high), x.no_number};
        case ValueOp::f_round:
            return {std::nearbyint(x.low), std::nearbyint(x.high), x.no_number};
        case ValueOp::float_of_bits:
            // The bits of numbers that are not negative are in their order.
            if (x.low < 0 || x.high > bits_of_infinity) return all_floats;
            return {bits_to_float(x.low), bits_to_float(x.high), false};
        default:
            return all_floats;
    }
}

ValueRange whole_range(const ValueRange& x) {
    ValueRange r = {std::clamp(std::trunc(x.low), least, most), std::clamp(std::trunc(x.high), least, most), false};
    if (x.no_number) r = {std::min(r.low, 0.0), std::max(r.high, 0.0), false};
    return r;
}

}  // namespace

ValueKind kind_of_operation(ValueOp op) {
    switch (op) {
        case ValueOp::greater:
        case ValueOp::equal:
        case ValueOp::f_greater:
        case ValueOp::f_greater_equal:
        case ValueOp::f_equal:
            return ValueKind::mask;
        case ValueOp::f_constant:
        case ValueOp::to_float:
        case ValueOp::f_add:
        case ValueOp::f_subtract:
        case ValueOp::f_multiply:
        case ValueOp::f_divide:
        case ValueOp::f_negate:
        case ValueOp::f_smaller:
        case ValueOp::f_larger:
        case ValueOp::f_magnitude:
        case ValueOp::f_square_root:
        case ValueOp::f_floor:
        case ValueOp::f_round:
        case ValueOp::f_with_sign:
        case ValueOp::f_select:
        case ValueOp::float_of_bits:
            return ValueKind::real;
        default:
            return ValueKind::integer;
    }
}

ValueRange range_of_operation(const ValueGraph& graph, ValueOp op, int a, int b, int c, int32_t number) {
    switch (op) {
        case ValueOp::select:
        case ValueOp::f_select:
            return hull(graph[b].range, graph[c].range);
        case ValueOp::to_whole:
            return whole_range(graph[a].range);
        case ValueOp::bits_of_float:
            if (graph[a].range.no_number || !(graph[a].range.low > 0)) return all_integers;
            return {float_to_bits(graph[a].range.low), float_to_bits(graph[a].range.high), false};
        case ValueOp::opaque:
            return all_integers;
        default:
            break;
    }
    switch (kind_of_operation(op)) {
        case ValueKind::mask:
            return {0, 1, false};
        case ValueKind::real:
            return real_range(graph, op, a, b);
        default:
            return integer_range(graph, op, a, b, number);
    }
}

}  // namespace velloran
