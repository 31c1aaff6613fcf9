// A picture does not depend on whether a value happens to be constant. Random graphs over all pixel functions that have
// code, with some values that are numbers of the text, numbers that a param was moved to, or the same numbers at every
// pixel of something that varies.
#include "testing/caught_messages.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int number_count = 6;  // numbers of four elements each, of which a use takes the first few
enum class Form { written, param, varying };

const char* const leaves[] = {"x", "xy", "Source", "(v3_to_v4 Back y)"};  // of 1 to 4 elements

struct Step {
    const NodeFun* fun;  // null: a leaf
    int combo;
    std::vector<int> args;  // an earlier step, or -1 - n for number n
};

bool no_law(const NodeFun& fun) {
    // A power of 1 passes its base with its sign, 0 to any power is 0 where the base is a number. Squares of distances
    // leave what planes hold: where a value is kept as an image it is held to that.
    static constexpr const char* exempt[] = {"expt", "dist_squared", "mag_squared"};
    const auto named = [&fun](const char* name) { return !std::strcmp(fun.name, name); };
    return fun.image_fun_p || !fun.pixel_funs[0] || fun.category == category_query ||
           std::any_of(std::begin(exempt), std::end(exempt), named);
}

using Numbers = std::array<int, 4 * number_count>;

// Many that the compiler looks for.
Numbers draw_numbers(std::mt19937& rng) {
    static constexpr int edges[] = {0, 0, 0, 4096, 4096, -4096, 6144};
    Numbers numbers;
    for (size_t n = 0; n < numbers.size(); n += 4) {
        const int same = edges[rng() % std::size(edges)];
        const unsigned kind = rng() % 5;
        for (size_t e = n; e < n + 4; ++e)
            numbers[e] = kind < 3    ? same
                         : kind == 3 ? edges[rng() % std::size(edges)]
                                     : static_cast<int>(rng() % 16384) - 8192;
    }
    return numbers;
}

int arg_elnum(const Step& step, int a) { return combo_arg_elnum(step.fun->arg_type_combos[step.combo], a); }
int result_elnum(const Step& step) {
    return step.fun ? combo_return_elnum(step.fun->arg_type_combos[step.combo]) : step.combo + 1;
}

struct Graph {
    std::vector<Step> steps;

    Graph(std::mt19937& rng, const std::vector<const NodeFun*>& functions, int size, const NodeFun* last) {
        for (int i = 0; i < 4; ++i) steps.push_back({nullptr, i, {}});
        while (size-- > 0) {
            Step step{size ? functions[rng() % functions.size()] : last, 0, {}};
            step.combo = static_cast<int>(rng() % static_cast<unsigned>(step.fun->arg_type_combo_number));
            for (int a = 0; a < step.fun->arg_number; ++a) {
                std::vector<int> fit;
                for (size_t s = 0; s < steps.size(); ++s)
                    if (result_elnum(steps[s]) == arg_elnum(step, a)) fit.push_back(static_cast<int>(s));
                const bool number = step.fun->arg_restrictions[a] == 16 || rng() % 3;
                step.args.push_back(number ? -1 - static_cast<int>(rng() % number_count) : fit[rng() % fit.size()]);
            }
            steps.push_back(step);
        }
    }

    static std::string number(int n, int elnum, Form form, const Numbers& numbers) {
        std::string text;
        for (int e = 0; e < elnum; ++e) {
            char name[32];
            if (form == Form::param)
                std::snprintf(name, sizeof name, " p%d", 4 * n + e);
            else
                std::snprintf(name, sizeof name, " %.6f", numbers[static_cast<size_t>(4 * n + e)] / 4096.0);
            text += name;
        }
        if (form == Form::param) return elnum == 1 ? text : "(v" + std::to_string(elnum) + text + ")";
        if (elnum > 1) text = "[" + text + "]";
        return form == Form::varying ? "(min " + text + " (+ x 64))" : text;
    }

    std::string text(Form form, const Numbers& numbers) const {
        std::string body;
        for (int p = 0; form == Form::param && p < 4 * number_count; ++p)
            body += "p" + std::to_string(p) + " = 0.75 (ignore) ";
        for (size_t s = 0; s < steps.size(); ++s) {
            const Step& step = steps[s];
            body += "v" + std::to_string(s) + " = ";
            if (!step.fun) {
                body += std::string(leaves[s]) + "\n";
                continue;
            }
            body += std::string("(") + step.fun->name;
            for (int a = 0; a < step.fun->arg_number; ++a) {
                const bool whole_frame = step.fun->arg_restrictions[a] == 16;
                const int arg = step.args[static_cast<size_t>(a)];
                body += arg >= 0 ? " v" + std::to_string(arg)
                                 : " " + number(-1 - arg, arg_elnum(step, a),
                                                whole_frame && form == Form::varying ? Form::written : form, numbers);
            }
            body += ")\n";
        }
        // The low bits of all elements.
        const std::string last = "v" + std::to_string(steps.size() - 1);
        const int n = result_elnum(steps.back());
        const auto element = [&](int e) {
            return n == 1 ? last : "(element_of " + last + " " + std::to_string(std::min(e, n - 1)) + ")";
        };
        return body + "dest = (mod (v3 (+ " + element(0) + " " + element(3) + ") " + element(1) + " " + element(2) +
               ") 1)";
    }
};

TEST(Constancy, APictureDoesNotDependOnIt) {
    const Messages messages;  // names that nothing reads are reported
    fill_node_fun_tables();
    std::vector<const NodeFun*> functions, ruled;
    for (int i = 0; i < node_fun_number; ++i) {
        if (no_law(node_funs[i])) continue;
        functions.push_back(&node_funs[i]);
        if (node_funs[i].pass_arg_fun) ruled.push_back(&node_funs[i]);
    }
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        std::mt19937 rng(seed);
        const Graph graph(rng, functions, 1 + static_cast<int>(rng() % 3), ruled[seed % ruled.size()]);
        EngineRig rig(1 + static_cast<int>(seed % 2), {9, 5});
        const auto picture = [&](Form form, const Numbers& numbers) {
            EXPECT_TRUE(form == Form::param || rig.load_body(graph.text(form, numbers)));
            for (int p = 0; form == Form::param && p < static_cast<int>(numbers.size()); ++p) {
                const std::string name = "p" + std::to_string(p);
                if (get_param_by_name(rig.record.effect_genotype, name.c_str()))
                    rig.set_param(name.c_str(), static_cast<float>(numbers[static_cast<size_t>(p)]) / 4096.0f);
            }
            EXPECT_EQ(rig.render(), 0);
            return rig.dest;
        };
        Numbers numbers[3];
        HostFrame moved[3];
        ASSERT_TRUE(rig.load_body(graph.text(Form::param, numbers[0]))) << graph.text(Form::param, numbers[0]);
        for (int frame = 0; frame < 3; ++frame) {
            numbers[frame] = draw_numbers(rng);
            moved[frame] = picture(Form::param, numbers[frame]);
        }
        for (int frame = 0; frame < 3; ++frame)
            for (const Form form : {Form::written, Form::varying})
                ASSERT_EQ(picture(form, numbers[frame]), moved[frame]) << "seed " << seed << ", frame " << frame << '\n'
                                                                       << graph.text(form, numbers[frame]);
    }
}

}  // namespace
