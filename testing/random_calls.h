// Random calls of a function of the table, as effect texts: for laws that every function keeps. Every signature comes
// up, every argument that may vary does, and what is constant takes values inside and outside of what makes sense.
#pragma once

#include "functions/function_table.h"
#include "genotype/node_fun_table.h"

#include <random>
#include <string>
#include <vector>

namespace velloran_tests {

struct RandomCall {
    struct Arg {
        std::string varying;        // an expression over the inputs, empty: constant
        std::vector<float> values;  // of a constant, one for each element
    };
    const velloran::NodeFun* fun;
    int result;  // element count
    std::vector<Arg> args;
};

inline int draw_below(std::mt19937& rng, int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }

// An expression of so many elements over the inputs A and B, within about -1 to 2.
inline std::string draw_varying(std::mt19937& rng, int elnum) {
    static const char* const pictures[] = {"A", "B", "(- A 0.5)", "(* 1.75 B)"};
    const auto picture = [&] { return std::string(pictures[draw_below(rng, 4)]); };
    const auto element = [&] { return "(element_of " + picture() + " " + std::to_string(draw_below(rng, 3)) + ")"; };
    switch (elnum) {
        case 1:
            return element();
        case 2:
            return "(v2 " + element() + " " + element() + ")";
        case 3:
            return picture();
        default:
            return "(v3_to_v4 " + picture() + " " + element() + ")";
    }
}

inline RandomCall draw_call(std::mt19937& rng, const velloran::NodeFun& fun, int combo_index) {
    static const float values[] = {0, 0.125f, 0.25f, 0.5f, 1, 1, 2, 3, -0.25f};
    const uint32_t combo = fun.arg_type_combos[combo_index];
    RandomCall call = {&fun, velloran::combo_return_elnum(combo), {}};
    for (int a = 0; a < fun.arg_number; ++a) {
        const int elnum = velloran::combo_arg_elnum(combo, a);
        const bool held = (fun.arg_restrictions[a] & velloran::arg_acts_as_param) && fun.params_hold;
        RandomCall::Arg arg;
        const bool clip = (fun.fun_flags & velloran::fun_reads_other_frames) && fun.arg_restrictions[a] == 64;
        if (clip && elnum == 3)
            arg.varying = draw_below(rng, 2) ? "A" : "B";
        else if (!held && (a == 0 || draw_below(rng, 4) > 0))
            arg.varying = draw_varying(rng, elnum);
        else
            for (int e = 0; e < elnum; ++e) arg.values.push_back(values[draw_below(rng, std::size(values))]);
        call.args.push_back(arg);
    }
    return call;
}

inline std::string vector_text(const std::vector<float>& values) {
    std::string text = values.size() > 1 ? "[" : "";
    for (size_t e = 0; e < values.size(); ++e) {
        char number[32];
        std::snprintf(number, sizeof number, "%s%g", e ? " " : "", static_cast<double>(values[e]));
        text += number;
    }
    return values.size() > 1 ? text + "]" : text;
}

// An effect of the inputs A and B that shows the call. Constants stand in it as they are, or as params p0, p1, ... by
// argument, with these values less `moved` as defaults.
inline std::string text_of(const RandomCall& call, bool as_params = false, float moved = 0) {
    std::string params, made = "(" + std::string(call.fun->name);
    for (size_t a = 0; a < call.args.size(); ++a) {
        const RandomCall::Arg& arg = call.args[a];
        if (!arg.varying.empty()) {
            made += " " + arg.varying;
        } else if (as_params) {
            std::vector<float> defaults = arg.values;
            for (float& value : defaults) value -= moved;
            const std::string name = "p" + std::to_string(a);
            params += "  " + name + " = " + vector_text(defaults) + " (min -16 max 16 step 0.125)\n";
            made += " " + name;
        } else {
            made += " " + vector_text(arg.values);
        }
    }
    // What these read of the panel instead of an argument.
    if (std::string(call.fun->name).rfind("auto_", 0) == 0)
        params +=
            "  pattern_length = 2 (max 16 int ignore)\n  pattern_phase = 1 (int ignore)\n  field_dominance = 1 (int "
            "ignore)\n"
            "  pattern_1 = 3 (int ignore)\n  pattern_2 = 2 (int ignore)\n";
    static const char* const shown[] = {"(coerce_to_v3 made)", "(v3 (element_of made 0) (element_of made 1) 0)", "made",
                                        "(+ (remove_alpha made) (* 0.5 (element_of made 3)))"};
    return "(def_effect Law (A B) ()\n" + params + "  made = " + made + ")\n  dest = " + shown[call.result - 1] +
           "\n)\n";
}

// The image functions of the table that have code.
inline std::vector<const velloran::NodeFun*> image_functions() {
    velloran::fill_node_fun_tables();
    std::vector<const velloran::NodeFun*> list;
    for (int i = 0; i < velloran::node_fun_number; ++i)
        if (velloran::node_funs[i].image_fun_p && velloran::node_funs[i].pixel_funs[0])
            list.push_back(&velloran::node_funs[i]);
    return list;
}

}  // namespace velloran_tests
