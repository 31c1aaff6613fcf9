// Laws that every row of the function table keeps, and faulty rows.
#include "compile/compile.h"
#include "genotype/fun_row.h"
#include "testing/combo_text.h"
#include "testing/genotype_reading.h"

#include <set>

namespace {

using TableTest = GenotypeTest;

// An argument text of so many elements.
const char* argument(int elnum) {
    static const char* const texts[] = {"", "0.5", "[0.5 0.25]", "[0.5 0.25 0.125]", "[0.5 0.25 0.125 1]"};
    return texts[elnum];
}

std::string call(const NodeFun& fun, int combo, int n_args) {
    std::string text = std::string("(") + fun.name;
    for (int i = 0; i < n_args; ++i) {
        text += ' ';
        text += argument(i < fun.arg_number ? combo_arg_elnum(fun.arg_type_combos[combo], i) : 1);
    }
    return text + ')';
}

TEST_F(TableTest, RowsAreWholeAndFoundByName) {
    ASSERT_EQ(node_fun_number, 204);
    std::set<std::string> names;
    for (int i = 0; i < node_fun_number; ++i) {
        const NodeFun& fun = node_funs[i];
        SCOPED_TRACE(fun.name);
        EXPECT_TRUE(names.insert(fun.name).second);
        EXPECT_EQ(find_node_fun(fun.name), &fun);
        EXPECT_GT(fun.arg_type_combo_number, 0);
        EXPECT_TRUE(fun.meaning && *fun.meaning);
        EXPECT_TRUE(fun.arg_number > 0 || fun.arg_type_combo_number == 1);
        EXPECT_TRUE(!fun.need_rect_fun || !(fun.def_flags & def_needs_whole_plane));  // the plane covers any region
        EXPECT_TRUE(!(fun.fun_flags & fun_changes_each_frame) || (fun.fun_flags & fun_no_cache));
        EXPECT_TRUE(!(fun.def_flags & def_needs_filter_mipmap) || (fun.def_flags & def_needs_mipmap));
        if (!fun.image_fun_p) continue;
        // A constant image node takes the value of its image argument.
        EXPECT_TRUE(fun.image_arg >= 0 || (fun.fun_flags & fun_never_constant));
        for (int c = 0; c < fun.arg_type_combo_number; ++c)
            EXPECT_LE(node_image_count(fun, combo_return_elnum(fun.arg_type_combos[c])), MAX_NODE_IMAGE_COUNT);
    }
    EXPECT_EQ(find_node_fun("no_such_function"), nullptr);
}

TEST_F(TableTest, EveryCombinationTypesAndWrongCountsAreRefused) {
    for (int f = 0; f < node_fun_number; ++f) {
        const NodeFun& fun = node_funs[f];
        SCOPED_TRACE(fun.name);
        const std::string needs = ", needs " + std::to_string(fun.arg_number) + ".\n";
        for (int c = 0; c < fun.arg_type_combo_number; ++c) {
            const GenotypePtr genotype = read_text(effect("dest = " + call(fun, c, fun.arg_number)));
            ASSERT_TRUE(genotype) << messages();
            EXPECT_EQ(genotype->nodes[0].elnum, combo_return_elnum(fun.arg_type_combos[c]));
            const int last = fun.def_flags & def_last_arg_type_only ? 1 : 0;
            EXPECT_EQ(genotype->nodes[0].eval_arg_number, fun.arg_number - last);
        }
        EXPECT_EQ(messages(), "");
        EXPECT_FALSE(read_text(effect("dest = " + call(fun, 0, fun.arg_number + 1))));
        EXPECT_EQ(messages(), std::string("8 In E: ") + fun.name + " has too many args with '0.5'" + needs);
        if (fun.arg_number == 0) continue;
        EXPECT_FALSE(read_text(effect("dest = " + call(fun, 0, fun.arg_number - 1))));
        EXPECT_EQ(messages(), std::string("8 In E: ") + fun.name +
                                  " has too few args: " + std::to_string(fun.arg_number - 1) + needs);
    }
}

// Rows that have something of every column, written out again by hand from what they are for.
TEST_F(TableTest, ColumnsMeanWhatTheySay) {
    const NodeFun* blur = find_node_fun("blur");
    EXPECT_EQ(blur->category, 16);
    EXPECT_EQ(blur->cost, 5);
    EXPECT_EQ(blur->image_arg, 0);
    EXPECT_EQ(blur->images_per_element, 1);
    EXPECT_EQ(blur->arg_enable_runtime, 1);
    EXPECT_EQ(blur->arg_scale_runtime, -1);
    EXPECT_EQ(blur->aux_count_2, 2);
    EXPECT_STREQ(blur->arg_names[2], "filter_shape");
    EXPECT_EQ(blur->arg_restrictions[0], 64u);
    EXPECT_EQ(blur->arg_restrictions[1], 16u);
    EXPECT_EQ(blur->fun_flags, fun_has_need_rect);
    EXPECT_EQ(blur->def_flags, def_defined | def_needs_long_image);

    const NodeFun* time_warp = find_node_fun("time_warp");
    EXPECT_EQ(time_warp->fun_flags, 48);
    EXPECT_EQ(time_warp->def_flags, def_defined | def_needs_long_image);
    EXPECT_EQ(find_node_fun("warp_filter")->def_flags, def_defined | def_needs_mipmap | def_needs_filter_mipmap);
    EXPECT_EQ(find_node_fun("get_prev_dest")->fun_flags, 1 | 2 | 64 | 128);
    EXPECT_EQ(find_node_fun("rgb_to_hsv")->weight, 0.5f);
    EXPECT_EQ(find_node_fun("z_blur")->arg_scale_runtime, 2);
    EXPECT_EQ(find_node_fun("z_blur")->arg_scale_passes, 2);

    const NodeFun* plus = find_node_fun("+");
    std::string signatures;
    for (int c = 0; c < plus->arg_type_combo_number; ++c) signatures += velloran_tests::combo_text(*plus, c) + ' ';
    EXPECT_EQ(signatures, "1<11 2<22 2<21 2<12 3<33 3<31 3<13 4<44 4<41 4<14 4<34 4<43 ");
    const NodeFun* gradient = find_node_fun("gradient_n");  // fifteen arguments fill the word
    EXPECT_EQ(velloran_tests::combo_text(*gradient, 0), "3<144433333313333");
}

TEST_F(TableTest, FaultyRowsAbort) {
    const FunRow good = {0, "f", 1, 1, 1, "", "", "", "", [](Node*) {}, "a, b", "1<11", "none"};
    std::string signatures;
    for (int i = 0; i < MAX_ARG_TYPE_COMBOS + 1; ++i) signatures += "1<11 ";
    const struct {
        const char* what;
        const char* FunRow::*column;
        const char* text;
        const char* message;
    } rows[] = {
        {"long name", &FunRow::name, "a_name_of_thirty_two_characters_",
         "def_node_fun a_name_of_thirty_two_characters_, name is > MAX_FUN_NAME_LEN."},
        {"16 arguments", &FunRow::arguments, "a a a a a a a a a a a a a a a a",
         "def_node_fun f, 16 args is > MAX_ARG_NUMBER 15."},
        {"signature of another length", &FunRow::signatures, "1<11 1<111",
         "called def_3arg_ but f def_node_fun said 2 args."},
        {"too many signatures", &FunRow::signatures, signatures.c_str(),
         "f: arg_type_combo_number > MAX_ARG_TYPE_COMBOS"},
        {"elements beyond 4", &FunRow::signatures, "1<15", "f: the column signatures does not allow '15'."},
        {"no such flag", &FunRow::flags, "nx", "f: the column flags does not allow 'nx'."},
        {"image argument beyond the last", &FunRow::image, "2/1/0", "f: the column image does not allow '2/1/0'."},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        FunRow row = good;
        row.*r.column = r.text;
        clear_node_fun_tables();
        EXPECT_NE(abort_status([&] { def_fun_row(row); }), 0);
        EXPECT_EQ(messages(), std::string("8 ") + r.message + '\n');
    }
    FunRow empty = good;
    empty.function = nullptr;
    clear_node_fun_tables();
    EXPECT_NE(abort_status([&] { def_fun_row(empty); }), 0);
    EXPECT_EQ(messages(), "8 f: the row names no function.\n");
    const struct {
        FunRules rules;
        const char* text;
    } rules[] = {
        {{.else_arg = 2}, "else_arg"},
        {{.filter_arg = 2}, "filter_arg"},
        {{.make_state = [](Node*) {}}, "make_state without free_state"},
    };
    for (const auto& r : rules) {
        FunRow row = good;
        row.rules = r.rules;
        clear_node_fun_tables();
        EXPECT_NE(abort_status([&] { def_fun_row(row); }), 0);
        EXPECT_EQ(messages(), std::string("8 f: the column rules does not allow '") + r.text + "'.\n");
    }
    FunRow second = good;
    second.name = "g";
    const FunRow* const both[] = {&second, &good};
    for (const int number : {-1, 0, 2}) {
        second.number = number;
        EXPECT_NE(abort_status([&] { fill_node_fun_tables_with(both, 2); }), 0);
        EXPECT_EQ(messages(), std::string(number ? "8 g" : "8 f") + ": its number " + std::to_string(number) +
                                  " is taken or leaves a gap.\n");
        EXPECT_FALSE(node_fun_tables_filled());
    }
    second.number = 1;
    fill_node_fun_tables_with(both, 2);
    EXPECT_EQ(find_node_fun("g"), &node_funs[1]);
    clear_node_fun_tables();
    for (int i = 0; i < MAX_FUN_NUMBER; ++i) def_fun_row(good);
    EXPECT_NE(abort_status([&] { def_fun_row(good); }), 0);
    EXPECT_EQ(messages(), "8 ERROR: def_node_funs exceeded MAX_FUN_NUMBER, increase in defuns.h.\n");
    clear_node_fun_tables();
}

TEST_F(TableTest, RestrictionsOfAnArgumentFollowTheArgumentsBefore) {
    const GenotypePtr genotype = read_text(effect("dest = (interp Source [0 0 0] 0.5)"));
    ASSERT_TRUE(genotype);
    Node* node = genotype->nodes;
    const NodeFun* interp = node->fun_info;
    const int any = 15, colors = 4;
    EXPECT_EQ(get_node_arg_i_restrictions(node, interp, 0, any), 15u);
    EXPECT_EQ(get_node_arg_i_restrictions(node, interp, 2, any), 5u);     // 3<331 3<333
    EXPECT_EQ(get_node_arg_i_restrictions(node, interp, 1, colors), 5u);  // 3<331 3<311 3<333 3<313
    const struct {
        const char* message;
        const Node* node;
        const NodeFun* fun;
        int arg, results;
    } faults[] = {
        {"get_node_arg_i_restrictions: node is NULL.", nullptr, interp, 0, any},
        {"get_node_arg_i_restrictions: fun is NULL.", node, nullptr, 0, any},
        {"get_node_arg_i_restrictions: fun != node->fun_info.", node, interp + 1, 0, any},
        {"get_node_arg_i_restrictions: return_type_restrictions is <= zero.", node, interp, 0, 0},
        {"get_node_arg_i_restrictions(dest arg 1): no combo match.", node, interp, 1, 1},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.message);
        EXPECT_NE(abort_status([&] { get_node_arg_i_restrictions(fault.node, fault.fun, fault.arg, fault.results); }),
                  0);
        EXPECT_EQ(messages(), std::string("8 ") + fault.message + '\n');
    }
}

}  // namespace
