#include "fused/fused_plan.h"

#include <cmath>
#include <cstring>

namespace velloran {
namespace {

constexpr size_t most_planned = 4000;
constexpr size_t most_tables = 24, most_byte_tables = 64;

// Bits that a range may be shifted left by and still be 16 bits.
int room(const ValueRange& r, bool without_sign) {
    int shift = 0;
    const double low = without_sign ? 0 : -32768, high = without_sign ? 65535 : 32767;
    while (shift < 4 && r.low * (2 << shift) >= low && r.high * (2 << shift) <= high) ++shift;
    return shift;
}

class Planner {
public:
    Planner(const ValueGraph& graph, FusedPlan* plan)
        : graph_(graph), plan_(*plan), place_(graph.values.size(), int16_t{-1}) {}

    // The value and what it needs, arguments first. False: it cannot be.
    bool add(int root) {
        std::vector<int> waiting = {root};
        while (!waiting.empty()) {
            const int id = waiting.back();
            if (place_[static_cast<size_t>(id)] >= 0) {
                waiting.pop_back();
                continue;
            }
            const Value& v = graph_[id];
            if (v.op == ValueOp::opaque) return false;
            int args[4];
            const int n = arguments(id, args);
            bool ready = true;
            for (int k = n - 1; k >= 0; --k)
                if (place_[static_cast<size_t>(args[k])] < 0) {
                    waiting.push_back(args[k]);
                    ready = false;
                }
            if (!ready) continue;
            waiting.pop_back();
            if (plan_.values.size() >= most_planned || !place(id, args, n)) return false;
        }
        return true;
    }
    int16_t at(int id) const { return place_[static_cast<size_t>(id)]; }

private:
    bool of_bytes(int table) const {
        const int index = graph_[table].a;
        return narrow(table) && graph_[index].op == ValueOp::sample && graph_.of_bytes(index);
    }
    bool narrow(int id) const { return fits_16_bits(graph_[id].range); }
    // A product that no lane of 16 bits holds, of factors that they do.
    bool product_of_narrow(int id) const {
        const Value& v = graph_[id];
        return v.op == ValueOp::multiply && narrow(v.a) && narrow(v.b) && !narrow(id);
    }
    bool sum_of_products(const Value& v) const {
        return v.op == ValueOp::add && product_of_narrow(v.a) && product_of_narrow(v.b);
    }
    int arguments(int id, int* args) const {
        const Value& v = graph_[id];
        int n = 0;
        if (sum_of_products(v)) {
            for (const int product : {v.a, v.b}) {
                args[n++] = graph_[product].a;
                args[n++] = graph_[product].b;
            }
            return n;
        }
        for (const int arg : {v.a, v.b, v.c})
            if (arg != no_value) args[n++] = arg;
        return n;
    }

    bool place(int id, const int* args, int n) {
        const Value& v = graph_[id];
        PlannedValue p = {};
        p.op = v.op;
        p.kind = v.kind;
        p.a = n > 0 ? at(args[0]) : int16_t{-1};
        p.b = n > 1 ? at(args[1]) : int16_t{-1};
        p.c = n > 2 ? at(args[2]) : int16_t{-1};
        p.d = n > 3 ? at(args[3]) : int16_t{-1};
        int32_t number = 0;
        switch (v.op) {
            case ValueOp::constant:
            case ValueOp::f_constant:
                number = v.number;
                break;
            case ValueOp::sample:
                p.number = static_cast<int32_t>(plan_.samples.size());
                plan_.samples.push_back(graph_.samples[static_cast<size_t>(v.number)]);
                break;
            case ValueOp::table:
                p.wide = !narrow(id);
                if (plan_.tables.size() >= (of_bytes(id) ? most_byte_tables : most_tables)) return false;
                p.number = static_cast<int32_t>(plan_.tables.size());
                plan_.tables.push_back(graph_.tables[static_cast<size_t>(v.number)]);
                plan_.table_kinds.push_back(of_bytes(id) ? table_of_bytes : p.wide ? table_wide : table_narrow);
                break;
            default:
                p.number = v.number;
                choose_lanes(id, &p);
        }
        place_[static_cast<size_t>(id)] = static_cast<int16_t>(plan_.values.size());
        plan_.values.push_back(p);
        plan_.numbers.push_back(number);
        return true;
    }

    void choose_lanes(int id, PlannedValue* p) const {
        const Value& v = graph_[id];
        const bool a = v.a == no_value || narrow(v.a), b = v.b == no_value || narrow(v.b);
        switch (v.op) {
            case ValueOp::add:
                if (sum_of_products(v)) p->flags |= plan_sum_of_products;
                [[fallthrough]];
            case ValueOp::subtract:
            case ValueOp::shift_left:
            case ValueOp::magnitude:
                p->wide = !(a && b && narrow(id));
                break;
            case ValueOp::multiply:
                p->wide = !(a && b && narrow(id));
                if (p->wide && a && b) p->flags |= plan_narrow_factors;
                break;
            case ValueOp::multiply_samples:
                choose_shifts(v, id, p);
                break;
            case ValueOp::bit_and:
            case ValueOp::bit_or:
            case ValueOp::bit_xor:
            case ValueOp::smaller:
            case ValueOp::larger:
            case ValueOp::shift_right:
            case ValueOp::greater:
            case ValueOp::equal:
                p->wide = !(a && b);
                break;
            case ValueOp::select:
                p->wide = !(narrow(v.b) && narrow(v.c));
                break;
            case ValueOp::to_whole:
                p->wide = 1;
                if (graph_[v.a].range.within(-2147483648.0, 2147483520.0)) p->flags |= plan_safe;
                break;
            default:  // floats
                p->wide = 1;
        }
    }

    // A product shifted right by 12 is the upper half of a product of 16-bit factors that were shifted left by 4
    // between them.
    void choose_shifts(const Value& v, int id, PlannedValue* p) const {
        const ValueRange &x = graph_[v.a].range, &y = graph_[v.b].range;
        const bool factors = narrow(v.a) && narrow(v.b);
        if (factors && narrow(id)) {
            const bool positive = x.low >= 0 && y.low >= 0;
            // Constants are shifted beforehand.
            const int of_b = room(y, positive), of_a = room(x, positive);
            if (of_a + of_b >= 4) {
                const bool b_is_constant = graph_[v.b].base == base_none;
                p->shift_b = static_cast<uint8_t>(b_is_constant || of_b == 4 ? of_b : 4 - of_a < 0 ? 0 : 4 - of_a);
                p->shift_a = static_cast<uint8_t>(4 - p->shift_b);
                if (positive) p->flags |= plan_unsigned;
                return;
            }
        }
        p->wide = 1;
        if (factors) p->flags |= plan_narrow_factors;
    }

    const ValueGraph& graph_;
    FusedPlan& plan_;
    std::vector<int16_t> place_;
};

template <class T>
void append(const std::vector<T>& items, std::vector<uint8_t>* key) {
    const size_t before = key->size(), bytes = items.size() * sizeof(T);
    const uint32_t n = static_cast<uint32_t>(items.size());
    key->resize(before + sizeof n + bytes);
    std::memcpy(key->data() + before, &n, sizeof n);
    if (bytes) std::memcpy(key->data() + before + sizeof n, items.data(), bytes);
}

}  // namespace

bool make_fused_plan(const ValueGraph& graph, const std::vector<int>& outputs, uint8_t output_form,
                     const std::vector<uint8_t>& source_forms, FusedPlan* plan) {
    *plan = {};
    if (graph.overflowed() || outputs.empty() || outputs.size() > max_fused_outputs) return false;
    plan->output_form = output_form;
    plan->source_forms = source_forms;
    Planner planner(graph, plan);
    // What is stored: 0 to 4095 in host frames.
    const double low = output_form == form_planes ? -fix_image_limit : 0;
    const double high = output_form == form_planes ? fix_image_limit : fix_max;
    for (const int id : outputs) {
        if (graph[id].opaque && graph[id].op == ValueOp::opaque) return false;
        if (!planner.add(id)) return false;
        PlannedOutput output = {planner.at(id), 0, 0};
        if (graph[id].range.low < low) output.flags |= plan_clip_low;
        if (graph[id].range.high > high) output.flags |= plan_clip_high;
        plan->outputs.push_back(output);
    }
    return true;
}

void plan_key(const FusedPlan& plan, std::vector<uint8_t>* key) {
    key->clear();
    append(plan.values, key);
    append(plan.samples, key);
    append(plan.table_kinds, key);
    append(plan.outputs, key);
    append(plan.source_forms, key);
    key->push_back(plan.output_form);
}

}  // namespace velloran
