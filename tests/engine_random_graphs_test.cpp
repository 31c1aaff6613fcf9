// Random graphs with shared values, filters, branches and params, rendered over frames in which params, inputs, the
// crop and the step change: every frame must be what the text says by itself, whatever was planned, shared, left out or
// kept. The filters are such that their arithmetic is exact: they do not spread, but work in planes as all filters do.

#include "testing/caught_messages.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int param_number = 4;
constexpr int planes_of_the_rig = 27;

// A value of the text at one pixel. Constants are folded, and a filter of constants is its image's value.
struct Value {
    int v;
    bool constant;
};

struct Place {
    const EngineRig* rig;
    const float* params;
    int x, y;    // sample
    int px, py;  // pixel of the inputs
};

struct Operation {
    const char* text;  // A and B stand for values, P for a param
    std::function<Value(const Place&, Value a, Value b, int p)> expected;
};

Value both(int v, Value a, Value b) { return {v, a.constant && b.constant}; }

const Operation operations[] = {
    {"(* (+ A B) 0.5)", [](const Place&, Value a, Value b, int) { return both((a.v + b.v) * 2048 >> 12, a, b); }},
    {"(* (- A B) 0.5)", [](const Place&, Value a, Value b, int) { return both((a.v - b.v) * 2048 >> 12, a, b); }},
    {"(max A B)", [](const Place&, Value a, Value b, int) { return both(std::max(a.v, b.v), a, b); }},
    {"(min A B)", [](const Place&, Value a, Value b, int) { return both(std::min(a.v, b.v), a, b); }},
    {"(* A P)",
     [](const Place&, Value a, Value, int p) {
         return Value{a.v * p >> 12, a.constant || !p};
     }},
    {"(copy A)", [](const Place&, Value a, Value, int) { return a; }},
    {"(if+ P A B)", [](const Place&, Value a, Value b, int p) { return p > 0 ? a : b; }},
    {"(if> P 0.25 A B)", [](const Place&, Value a, Value b, int p) { return p > 1024 ? a : b; }},
    {"(if+ P (max A B) (* (- B A) 0.5))",
     [](const Place&, Value a, Value b, int p) {
         return both(p > 0 ? std::max(a.v, b.v) : (b.v - a.v) * 2048 >> 12, a, b);
     }},
    {"(if+ x A B)",
     [](const Place& at, Value a, Value b, int) {
         return Value{x_at(at.rig->shape, at.x) > 0 ? a.v : b.v, false};
     }},
    {"(if> P y A B)",
     [](const Place& at, Value a, Value b, int p) {
         return Value{p > y_at(at.rig->shape, at.y) ? a.v : b.v, false};
     }},
    {"(blur A 0 1 0.5 0)",
     [](const Place&, Value a, Value, int) {
         return a.constant ? a : Value{a.v * 2048 >> 12, false};
     }},
    {"(blur A 0 1 P 0)",
     [](const Place&, Value a, Value, int p) {
         return a.constant ? a : Value{a.v * p >> 12, !p};
     }},
    // Inside a mask that is 1 or more throughout; with three work planes.
    {"(masked_blur A (max B 1) 0 1 0)", [](const Place&, Value a, Value b, int) { return both(a.v, a, b); }},
};

const Operation leaves[] = {
    {"(element_of Source 0)",
     [](const Place& at, Value, Value, int) {
         return Value{at.rig->source(0, at.px, at.py, 0), false};
     }},
    {"(element_of _clip2 1)",
     [](const Place& at, Value, Value, int) {
         return Value{at.rig->source(1, at.px, at.py, 1), false};
     }},
    {"x",
     [](const Place& at, Value, Value, int) {
         return Value{x_at(at.rig->shape, at.x), false};
     }},
    {"y",
     [](const Place& at, Value, Value, int) {
         return Value{y_at(at.rig->shape, at.y), false};
     }},
    {"P",
     [](const Place&, Value, Value, int p) {
         return Value{p, true};
     }},
};

// One assignment; its arguments are earlier ones.
struct Step {
    const Operation* operation;
    int a, b, p;
};

struct Graph {
    std::vector<Step> steps;

    Graph(std::mt19937& rng, int size) {
        const auto below = [&](int n) { return (int)(rng() % (unsigned)n); };
        for (const Operation& leaf : leaves) steps.push_back({&leaf, 0, 0, below(param_number)});
        for (int i = 0; i < size; ++i) {
            // Mostly of late values, so that the graph is deep.
            const int n = (int)steps.size();
            const auto earlier = [&] { return below(2) ? n - 1 - below(std::min(n, 3)) : below(n); };
            steps.push_back(
                {&operations[below((int)std::size(operations))], earlier(), earlier(), below(param_number)});
        }
        const int n = (int)steps.size();
        steps.push_back({&operations[0], n - 1, n - 2, 0});
    }

    std::string text() const {
        std::string body;
        for (int p = 0; p < param_number; ++p) body += "p" + std::to_string(p) + " = 1 (ignore) ";
        for (size_t i = 0; i < steps.size(); ++i) {
            body += i + 1 < steps.size() ? "v" + std::to_string(i) + " = " : "dest = ";
            for (const char* c = steps[i].operation->text; *c; ++c) {
                if (*c == 'A' || *c == 'B')
                    body += "v" + std::to_string(*c == 'A' ? steps[i].a : steps[i].b);
                else if (*c == 'P')
                    body += "p" + std::to_string(steps[i].p);
                else
                    body += *c;
            }
            body += '\n';
        }
        return body;
    }

    int expected(const Place& at) const {
        std::vector<Value> values;
        for (const Step& s : steps) {
            const Value none = {0, true};
            const bool leaf = values.size() < std::size(leaves);
            values.push_back(s.operation->expected(at, leaf ? none : values[(size_t)s.a],
                                                   leaf ? none : values[(size_t)s.b], (int)(at.params[s.p] * 4096)));
        }
        return std::clamp(values.back().v, 0, 4095);
    }
};

void expect_frame(const EngineRig& rig, const Graph& graph, const float* params) {
    const RasterRect& crop = rig.shape.crop;
    for (int y = 0; y < rig.shape.height; ++y)
        for (int x = 0; x < rig.shape.width; ++x) {
            const bool inside = !crop.w || (x >= crop.x && x < crop.x + crop.w && y >= crop.y && y < crop.y + crop.h);
            const int i = x / rig.shape.step, j = y / rig.shape.step;
            const Place place = {&rig, params, i, j, i * rig.shape.step, j * rig.shape.step};
            ASSERT_EQ(rig.result(x, y, 1), inside ? graph.expected(place) : 0) << x << "," << y;
        }
}

TEST(EngineRandomGraphs, EveryFrameIsWhatTheTextSays) {
    Messages messages;  // names that nothing reads are reported
    int rendered = 0, filters = 0;
    for (unsigned seed = 1; seed <= 400; ++seed) {
        std::mt19937 rng(seed);
        const auto chance = [&](unsigned one_in) { return rng() % one_in == 0; };
        const Graph graph(rng, 4 + (int)(rng() % 12));
        EngineRig rig(1 + (int)(seed % 3), {9, 5});
        Genotype* g = rig.load_body(graph.text());
        ASSERT_TRUE(g) << graph.text();
        if (g->temp_image_number + g->cache_image_number > planes_of_the_rig) continue;
        ++rendered;
        float params[param_number];
        for (int frame = 0; frame < 8; ++frame) {
            for (int p = 0; p < param_number; ++p) {
                const float values[] = {0, 0.5f, 1, -1};
                if (!frame || chance(3)) params[p] = values[rng() % 4];
                const std::string name = "p" + std::to_string(p);
                if (get_param_by_name(g, name.c_str())) rig.set_param(name.c_str(), params[p]);
            }
            if (chance(2)) std::rotate(rig.inputs[0].begin(), rig.inputs[0].begin() + 7, rig.inputs[0].end());
            if (chance(4)) rig.shape.crop = rig.shape.crop.w ? RasterRect{} : RasterRect{2, 1, 4, 3};
            if (chance(6)) rig.shape.step = 3 - rig.shape.step;
            if (chance(6)) recompile_genotype(g, 1);
            rig.lost = chance(4) ? rng() : 0;
            ASSERT_EQ(rig.render(), 0);
            filters += ran(event_image_function, "blur") + ran(event_image_function, "masked_blur");
            expect_frame(rig, graph, params);
            if (HasFatalFailure()) FAIL() << "seed " << seed << ", frame " << frame << "\n" << graph.text();
        }
    }
    EXPECT_GT(rendered, 300);
    EXPECT_GT(filters, 1000);
}

}  // namespace
