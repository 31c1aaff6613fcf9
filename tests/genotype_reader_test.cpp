// Texts to graphs and messages.
#include "genotype/all_defs.h"
#include "genotype/custom_genotypes.h"
#include "genotype/param_record.h"
#include "support/memory.h"
#include "testing/genotype_reading.h"
#include "texts/text_reader.h"

#include <cstdlib>

namespace {

using ReaderTest = GenotypeTest;

std::string repeated(int n, const std::string& text) {
    std::string all;
    for (int i = 0; i < n; ++i) all += text;
    return all;
}

// a0 = 1 and so on, each built on the one before by a call.
std::string chain(int n, const std::string& between = " ") {
    std::string text = "a0 = (+ Source 0)" + between;
    for (int i = 1; i < n; ++i) {
        const std::string index = std::to_string(i), before = std::to_string(i - 1);
        text += "a" + index + " = (+ a" + before + " 1)" + between;
    }
    return text;
}

TEST_F(ReaderTest, TextsBecomeGraphs) {
    const struct {
        const char *assignments, *tree;
    } rows[] = {
        {"dest = Source", "dest"},  // the row of dest is the input's
        {"dest = 0.5", "0.5"},
        {"dest = [1 2 3]", "[1 2 3]"},
        {"dest = (* Source 0.5)", "(dest _image 0.5)"},
        {"amount = 1.5 dest = (* Source amount)", "(dest _image 1.5)"},
        {"dest = (sin a) a = 0.5", "(dest 0.5)"},
        {"dest = a a = b b = (+ Source 1)", "(b _image 1)"},
        {"dest = (+ b b) b = (sin Source)", "(dest (b _image) (b _image))"},
        {"dest = (+ Source Source)", "(dest _image _image)"},
        {"dest = (v3 x Y 1)", "(dest x y 1)"},
        {"dest = (+ [1 2] XY)", "(dest [1 2] xy)"},
        {"dest = (+ (sin Source) (sin (cos Source)))", "(dest (_sin _image) (_sin (_cos _image)))"},
        {"dest = (coerce_to Source Output)", "(dest _image Output)"},
        {"dest = (+ _clip1 _image)", "(dest _image _image)"},
        {"dest = (get_frame_number)", "(dest)"},
        {"dest=(+ Source 1)// an end", "(dest _image 1)"},
        {"dest = (+ Source -.5e1)", "(dest _image -5)"},
        {"dest = (+ (sin Source) _sin)", "(dest (_sin _image) (_sin _image))"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.assignments);
        const std::string text = std::string("(def_effect E (Source) ") + row.assignments + "\n)";
        const GenotypePtr genotype = read_text(text);
        EXPECT_EQ(tree(genotype.get()), row.tree);
        EXPECT_EQ(messages(), "");
    }
}

TEST_F(ReaderTest, EveryMessage) {
    const struct {
        const char* text;  // (a definition, or assignments
        const char* messages;
        bool read = false;
    } rows[] = {
        {"", "8 Eof reading genotype define from string.\n"},
        {"words (but no definition) (def_effect (E)", "8 Eof reading genotype define from string.\n"},
        {"(def_effect E", "8 Eof reading genotype modifiers.\n"},
        {"(def_effect E () (rgba_ok", "8 Eof reading genotype modifiers.\n"},
        {"(def_effect E ()", "8 Eof reading genotype modifiers.\n"},
        {"(def_effect E () dest = 1", "8 Eof reading genotype assignment.\n"},
        {"(def_effect E () dest = (+ 1", "8 Eof reading genotype assignment.\n"},
        {"(def_effect E () dest = [1", "8 Eof reading genotype assignment.\n"},
        {"(def_effect E () dest", "8 In E: expected 'dest =' but got eof.\n"},
        {"dest 1", "8 In E: expected 'dest =' but got 'dest 1'.\n"},
        {"() () ( dest", "8 In E: expected variable name or ')' but got (.\n"},
        {"dest = 1 = 2", "8 In E: expected variable name or ')' but got =.\n"},
        {"x = 1 dest = 1", "8 In E: 'x' should not be assigned.\n"},
        {"Source = 1 dest = 1", "8 In E: 'Source' should not be assigned.\n"},
        {"_clip3 = 1 dest = 1", "8 In E: '_clip3' should not be assigned.\n"},
        {"2d = 1 dest = 1", "8 In E: '2d' should not be assigned.\n"},
        {"a = 1 a = 2 dest = a", "8 In E: 'a' is assigned more than once (type 1).\n"},
        {"dest = Source dest = 1", "8 In E: 'dest' is assigned more than once (type 4).\n"},
        {"a = (sin 1) a = 2 dest = a", "8 In E: 'a' is assigned more than once (type 2).\n"},
        {"a = Output a = 2 dest = a", "8 In E: 'a' is assigned more than once (type 5).\n"},
        {"dest =", "8 In E: expected an expression after 'dest =' but got ')'.\n"},
        {"dest = =", "8 In E: expected an expression but got '='.\n"},
        {"dest = (sin ])", "8 In E: expected an expression but got ']'.\n"},
        {"dest = (sin dest)", "8 In E: 'dest' can not be referenced.\n"},
        {"dest = (sun 1)", "8 In E node 0: unknown function 'sun'\n"},
        {"dest = (+ 1)", "8 In E: + has too few args: 1, needs 2.\n"},
        {"dest = (+ 1 2 three)", "8 In E: + has too many args with 'three', needs 2.\n"},
        {"dest = [1 2 3 4 5]", "8 In E: a vector has > 4 elements.\n"},
        {"dest = [1 two]", "8 In E: non number 'two' in a vector, (use v2, v3, or v4 function).\n"},
        {"dest = []", "8 In E: a vector has 0 elements.\n"},
        {"dest = (sin a)", "8 In E: the variable 'a' is not assigned.\n"},
        {"a = 1", "8 In E: the variable 'dest' is not assigned.\n"},
        {"a = b b = a dest = a", "8 In E: cyclic variable references!\n"},
        {"a = (sin b) b = (cos a) dest = (+ a 1)", "8 In E: cyclic variable references!\n"},
        {"dest = (sin a) a = a", "8 In E: cyclic variable references!\n"},
        {"a = 1 dest = Source", "8 *** Warning: in E, 'a' is not referenced.\n", true},
        {"a = 1 (ignore) dest = Source", "", true},
        {"a = b b = a dest = Source", "", true},
        {"dest = (+ [1 2] [1 2 3])",
         "8 + arg elnums: constant has 2, constant has 3.\n8 In E: + has an invalid combo of arg types.\n"},
        {"a = 1 (group_start G) dest = (+ Source a)", "8 Unclosed param group G (index 0) in E\n"},
        {"#ref Other", "8 goto_def: no all_defs_table! \n8 Did not find reference to Other. \n"},
        {"a = 1e6 dest = (+ Source a)", "7 In E: the number 1e6 is held to the range of -524287.938 to 524287.938.\n",
         true},
        {"dest = (+ Source -1e99)", "7 In E: the number -1e99 is held to the range of -524287.938 to 524287.938.\n",
         true},
        // the lists
        {"(def_effect E (Source =) dest = 1)", "8 In E: expected an input name or ')' but got =.\n"},
        {"(def_effect E (Source 2d) dest = (* Source 2d))", "8 In E: the input name 2d reads as a number.\n"},
        {"(def_effect E (A B C D E) dest = 1)", "8 *** E warning: too many input names.\n", true},
        {"(def_effect E (A Background9) dest = 1)", "8 E, input name Background9 is too long. \n", true},
        {"(def_effect E () (rgba_ok_for_input two) dest = 1)",
         "8 For E non-number following rgba_ok_for_input: 'two'.\n"},
        {"(def_effect E () (copy_alpha_z two) dest = 1)", "8 For E non-number following copy_alpha_z: 'two'.\n"},
        {"(def_effect E () (background_input two) dest = 1)",
         "8 For E non-number following background_input: 'two'.\n"},
        {"(def_effect E () (mask_input two) dest = 1)", "8 For E non-number following background_input: 'two'.\n"},
        {"(def_effect E () (copy_alpha_z 4) dest = 1)",
         "8 For E copy_alpha_z: there is no input 4, inputs are 0 to 3.\n"},
        {"(def_effect E () (effect_popup_name", "8 EOF while reading effect_popup_name\n"},
        {"(def_effect E () (z some) dest = 1)", "8 *** Warning: E unknown z mode: some \n", true},
        {"(def_effect E () (rgbaok) dest = 1)", "8 *** Warning: E unknown genotype modifier: rgbaok \n", true},
        {"(def_effect E () (luma_alpha_ok) dest = 1)", "8 *** Warning: E has luma_alpha but not rgba_ok. \n", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        std::string text = row.text;
        if (text.rfind("(def", 0) != 0 && text.find("def_effect") == std::string::npos && !text.empty())
            text = effect(text);
        const GenotypePtr genotype = read_text(text);
        EXPECT_EQ(messages(), row.messages);
        EXPECT_EQ(genotype != nullptr, row.read);
    }
}

// Every param argument of every image function, in every combination of element counts.
TEST_F(ReaderTest, ParamsOfImageFunctionsMayNotVaryWithThePixel) {
    const std::string varying[] = {"", "x", "xy", "(v3 x y 1)", "(v4 x y 1 1)"};
    const std::string fixed[] = {"", "(get_time)", "[1 2]", "[1 2 3]", "[1 2 3 4]"};
    int refused = 0;
    for (int f = 0; f < node_fun_number; ++f) {
        const NodeFun& fun = node_funs[f];
        for (int c = 0; c < fun.arg_type_combo_number; ++c) {
            // -1: no param varies, which must be read.
            for (int one = -1; one < fun.arg_number; ++one) {
                if (one >= 0 && fun.arg_restrictions[one] != 16) continue;
                std::string call = std::string("(") + fun.name;
                for (int a = 0; a < fun.arg_number; ++a) {
                    const int elnum = combo_arg_elnum(fun.arg_type_combos[c], a);
                    call += " " + (a == one || fun.arg_restrictions[a] != 16 ? varying[elnum] : fixed[elnum]);
                }
                SCOPED_TRACE(call);
                const GenotypePtr genotype = read_text(effect("dest = " + call + ")"));
                const std::string said = messages();
                if (one < 0 || !fun.params_hold) {
                    EXPECT_TRUE(genotype) << said;
                    continue;
                }
                EXPECT_FALSE(genotype);
                EXPECT_NE(said.find(std::string("the argument '") + fun.arg_names[one] + "' of " + fun.name),
                          std::string::npos)
                    << said;
                ++refused;
            }
        }
    }
    EXPECT_GT(refused, 1000);
}

TEST_F(ReaderTest, WithoutTheTableNothingIsRead) {
    clear_node_fun_tables();
    EXPECT_FALSE(read_text(effect("dest = 1")));
    EXPECT_EQ(messages(), "8 read_genotype: need to set_tables_and_globals.\n");
}

TEST_F(ReaderTest, LimitsEndInMessages) {
    const std::string name_127(127, 'n'), name_101(101, 'n'), name_100(100, 'n');
    const struct {
        const char* what;
        std::string text, message;  // beginning of the first message
        bool read;
    } rows[] = {
        {"256 calls deep", effect("dest = " + repeated(256, "(sin ") + "1" + repeated(256, ")")), "", true},
        {"257 calls deep", effect("dest = " + repeated(257, "(sin ") + "1" + repeated(257, ")")),
         "8 In E: expressions are nested more than 256 deep.", false},
        {"1,300 assignments", effect(chain(1300) + "dest = a1299"), "", true},
        {"10,000 assignments", effect(chain(10000) + "dest = a9999"), "8 In E: more than 4096 nodes.", false},
        {"a name of 127", effect(name_127 + " = 1 dest = " + name_127), "", true},
        {"a name of 128", effect("n" + name_127 + " = 1 dest = 1"), "8 read_token: token of 128 characters", false},
        {"an unused name of 100", effect(name_100 + " = 1 dest = 1"), "8 *** Warning: in E, '" + name_100 + "' is not",
         true},
        {"an unused name of 101", effect(name_101 + " = 1 dest = 1"), "8 *** Warning: in E, node_name len= 101! is not",
         true},
        {"a long name of the effect", "(define " + name_127 + " () dest = 1)", "", true},
        {"a number of 100 digits", effect("dest = " + std::string(100, '9')), "7 In E: the number 9999", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const GenotypePtr genotype = read_text(row.text);
        const std::string all = messages();
        EXPECT_EQ(genotype != nullptr, row.read);
        EXPECT_EQ(all.substr(0, row.message.size()), row.message);
        EXPECT_EQ(all.empty(), row.message.empty()) << all;
    }
}

TEST_F(ReaderTest, NinetyParamsAndNoMore) {
    std::string sum = "0";
    std::string text;
    for (int i = 0; i < 90; ++i) {
        const std::string name = "p" + std::to_string(i);
        text += name + " = " + std::to_string(i) + "\n";
        sum = "(+ " + name + " " + sum + ")";
    }
    const GenotypePtr genotype = read_text(effect(text + "dest = " + sum));
    ASSERT_TRUE(genotype) << messages();
    ASSERT_EQ(genotype->param_number, 90);
    // The table has grown and was sorted since the params were made.
    for (int i = 0; i < 90; ++i) {
        const Param* param = genotype->params[i];
        ASSERT_EQ(param->node->param_index, i + 1);
        EXPECT_EQ(param->node->vals[0], i * 4096);
        EXPECT_EQ(std::string(param->name), "p" + std::to_string(i));
        EXPECT_EQ(param->value[3], i);
    }
    EXPECT_FALSE(read_text(effect(text + "one_more = 1 dest = " + sum)));
    EXPECT_EQ(messages(), "8 E.one_more: too many params in this genotype (max 90)\n");
}

TEST_F(ReaderTest, ArgumentsStandBehindTheirUsers) {
    // Written from the bottom up, the order that needs most exchanges; and with shared branches.
    std::string text = "a0 = (sin Source) ";
    for (int i = 1; i < 300; ++i) {
        const std::string one = std::to_string(i - 1), two = std::to_string(i / 2);
        text += "a" + std::to_string(i) + " = (+ a" + one + " a" + two + ") ";
    }
    const GenotypePtr genotype = read_text(effect(text + "dest = a299"));
    ASSERT_TRUE(genotype) << messages();
    EXPECT_STREQ(genotype->nodes[0].name, "a299");
    int functions = 0, inputs = 0;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        functions += node.type == node_function;
        inputs += is_input(&node);
        for (int a = 0; a < node.arg_number; ++a) {
            EXPECT_GT(node.arg_indices[a], i);
            EXPECT_EQ(node.arg_lines[a], genotype->nodes[node.arg_indices[a]].lines);
        }
    }
    EXPECT_EQ(functions, 300);
    EXPECT_EQ(inputs, 1);
}

TEST_F(ReaderTest, ConstantsArePadded) {
    const struct {
        const char* number;
        int32_t vals[4];
    } rows[] = {{"2", {8192, 8192, 8192, 8192}},
                {"[1 2]", {4096, 8192, 8192, 8192}},
                {"[1 2 3]", {4096, 8192, 12288, 4096}},
                {"[1 2 3 4]", {4096, 8192, 12288, 16384}},
                {"-0.0003", {-1, -1, -1, -1}}};  // -1.2 steps
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        const GenotypePtr genotype = read_text(effect(std::string("dest = ") + row.number));
        ASSERT_TRUE(genotype);
        for (int e = 0; e < 4; ++e) EXPECT_EQ(genotype->nodes[0].vals[e], row.vals[e]);
        // A constant effect is a param of its own.
        ASSERT_EQ(genotype->param_number, 1);
        EXPECT_STREQ(genotype->params[0]->name, "dest");
    }
}

TEST_F(ReaderTest, InputsAndModifiersSetTheirFields) {
    const GenotypePtr g = read_text(
        "(define An_Effect (Source Background Third Fourth Fifth) (rgba_ok warp_crop rgba_ok_for_input 0 "
        "rgba_ok_for_input 2 effect_popup_name Short z min mask_input 3 share_all renders_everywhere luma_alpha_ok "
        "effect_select_with_yes_no mask_rgba generates_alpha needs_bg_pixel combines_2_constant_inputs "
        "hide_on_fields_button) dest = (+ Fourth Background))");
    EXPECT_EQ(messages(), "8 *** An Effect warning: too many input names.\n");
    ASSERT_TRUE(g);
    EXPECT_STREQ(g->name, "An Effect");
    EXPECT_EQ(g->input_number, 5);
    EXPECT_STREQ(g->input_names[3], "Fourth");
    EXPECT_EQ(g->background_input, 1);
    EXPECT_EQ(g->mask_input, 3);
    EXPECT_EQ(g->rgba_mode, rgba_ok);
    EXPECT_EQ(g->rgba_ok_for_input, 5);
    EXPECT_EQ(g->warp_crop, 1);
    EXPECT_EQ(g->z_mode, z_min);
    EXPECT_STREQ(g->effect_popup_name, "Short");
    EXPECT_EQ(g->effect_flags_1, 16 | 64 | 128);
    EXPECT_EQ(g->effect_flags_2, 3 | 12 | 32 | 128);
    EXPECT_EQ(g->effect_flags_3, 3);
    EXPECT_EQ(g->hide_on_fields_button, 1);
    EXPECT_EQ(g->nodes[g->nodes[0].arg_indices[0]].var_index, first_input_var + 3);
    EXPECT_EQ(g->nodes[g->nodes[0].arg_indices[1]].var_index, first_input_var + 1);

    const GenotypePtr plain = read_text("(def_spark E () dest = 1)");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->rgba_mode, rgba_set_alpha_to_one);  // without inputs there is no alpha to keep
    EXPECT_EQ(plain->z_mode, z_no_inputs);
    EXPECT_EQ(plain->background_input, -1);
    ASSERT_EQ(plain->param_number, 1);
    EXPECT_STREQ(plain->params[0]->name, "dest");

    const GenotypePtr frames = read_text(effect("dest = (+ (get_frame Source 1 0) (get_prev_dest [0 0 0]))"));
    ASSERT_TRUE(frames) << messages();
    EXPECT_EQ(frames->effect_flags_1, effect_reads_other_frames | effect_keeps_own_images | effect_changes_each_frame);
}

// Where the message about a word points: line and column from 1.
TEST_F(ReaderTest, MessagesLeadToTheirWords) {
    static TextPlace place;
    const struct {
        const char* text;
        int line, column;
    } rows[] = {
        {"(def_effect E ()\n  dest = (sin nothing)\n)", 2, 15},
        {"(def_effect E ()\n  unused = 3\n  dest = 1)", 2, 3},
        {"(def_effect E ()\n  dest = (sin\n    (+ [1 2] [1 2 3]))  // no such sum\n)", 3, 5},
        {"(def_effect E ()\n  dest = (sun 1))", 2, 11},
        {"(def_effect E ()\n  a = 1 (mni 0) dest = a)", 2, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        place = {0, 0, 0};
        set_error_printer([](int, const char*) { get_last_token_place(&place); });
        read_text(row.text);
        EXPECT_EQ(place.line, row.line);
        EXPECT_EQ(place.column, row.column);
    }
}

TEST_F(ReaderTest, RefReadsAnotherDefinitionInPlace) {
    const std::string one =
        write("one.text",
              "(def_effect Curves (Other) (rgba_ok) // a comment\n"
              "#if shake\n  wrong = 1\n#else\n  curve = (sin amount)\n#endif\n  amount = 0.5 (min 0)\n)\n"
              "(define Around () #ref Curves twice = (* curve 2))\n"
              "(define Snake () #ref Tail)\n");
    const std::string two = write("two.text", "(def_spark Tail #ref Snake)(define Open () a = 1");
    ASSERT_TRUE(load_all_defs(one.c_str(), two.c_str()));
    const auto length = [](const std::string& file) { return std::to_string(std::filesystem::file_size(file)); };
    EXPECT_EQ(messages(), "0 " + one + " length is " + length(one) + "\n0 " + two + " length is " + length(two) +
                              "\n0 all_defs_table_length is 5 \n");
    const GenotypePtr direct = read_text(effect("#ref Curves dest = (* Source curve)"));
    EXPECT_EQ(tree(direct.get()), "(dest _image (curve 0.5))");
    const GenotypePtr nested = read_text(effect("dest = (* Source twice) #ref Around"));
    EXPECT_EQ(tree(nested.get()), "(dest _image (twice (curve 0.5) 2))");
    EXPECT_EQ(nested->param_number, 1);
    EXPECT_EQ(messages(), "");

    EXPECT_FALSE(read_text(effect("#ref Snake dest = 1")));
    EXPECT_EQ(messages(), "8 In E: #ref Snake: references are nested more than 16 deep.\n");
    EXPECT_FALSE(read_text(effect("#ref Curve dest = 1")));
    EXPECT_EQ(messages(), "8 Did not find reference to Curve. \n");
    EXPECT_FALSE(read_text(effect("#ref Open dest = 1")));
    EXPECT_EQ(messages(), "8 Eof reading genotype assignment.\n");
    free_all_defs();
    EXPECT_FALSE(load_all_defs((dir + "/none").c_str(), nullptr));
    EXPECT_EQ(messages(), "8 Can't stat file 1\n");
}

TEST_F(ReaderTest, FilesOfDefinitions) {
    const std::string file = write("some.text",
                                   "notes (def nothing)\n(def_effect One (Source) dest = Source)\n"
                                   "(define Two_2 (From To_the_end) dest = 2)\n(def_spark Three dest = 3)\n");
    const GenotypePtr two(read_genotype_from_file(file.c_str(), "Two_2"));
    EXPECT_EQ(messages(), "8 Two 2, input name To_the_end is too long. \n");
    EXPECT_EQ(tree(two.get()), "2");
    const GenotypePtr third(read_genotype_from_file_n(file.c_str(), 2));
    EXPECT_EQ(tree(third.get()), "3");
    EXPECT_FALSE(read_genotype_from_file_n(file.c_str(), 3));
    EXPECT_EQ(messages(), "");
    EXPECT_FALSE(read_genotype_from_file(file.c_str(), "Four"));
    EXPECT_EQ(messages(), "8 The effect named 'Four' was not found in file " + file + ".\n");

    EXPECT_EQ(maybe_get_custom_genotype_infos(file.c_str()), 2);
    EXPECT_EQ(messages(), "8 Error while reading custom plug-in Three \n");
    EXPECT_STREQ(get_custom_genotype_info_n(1)->name, "Two_2");
    EXPECT_EQ(get_custom_genotype_info_n(1)->input_number, 2);
    EXPECT_STREQ(get_custom_genotype_info_n(1)->input_names[1], "To_the_e");
    EXPECT_EQ(get_custom_genotype_info_n(2), nullptr);
    free_custom_genotype_infos();

    const std::string out = dir + "/out.text";
    const Genotype* all[] = {two.get(), third.get()};
    EXPECT_TRUE(save_genotypes_to_file(all, 2, out.c_str()));
    EXPECT_EQ(read("out.text"), "// Number of defs: 2.\n\n\n(def Two 2\n  dest = 2\n)\n\n(def Three\n  dest = 3\n)\n");
}

// Memory may run out at every single allocation: the read then ends in the fatal abort and leaves nothing behind (the
// leak checker of the sanitizer build looks).
int allocations_left;

void* failing_block(size_t bytes, size_t alignment) {
    if (allocations_left-- <= 0) return nullptr;
    return alignment <= alignof(max_align_t)
               ? std::malloc(bytes)
               : std::aligned_alloc(alignment, (bytes + alignment - 1) & ~(alignment - 1));
}

TEST_F(ReaderTest, OutOfMemoryAnywhereLeavesNothing) {
    const std::string text =
        "(def_effect E (Source) (effect_popup_name P) a = 1 (popup one two widget center name N use_wenable b) "
        "b = [1 2] (group_start G pointer_set group_end G) dest = (+ (* Source a) (dot b xy)))";
    auto* const usual = allocate_block;
    int aborted = 0;
    for (int n = 0; n < 1000; ++n) {
        GenotypePtr genotype;
        allocations_left = n;
        allocate_block = failing_block;
        const int status = abort_status([&] { genotype.reset(read_genotype_from_string(text.c_str())); });
        allocate_block = usual;
        messages();
        if (status == 0) {
            EXPECT_TRUE(genotype);
            break;
        }
        ++aborted;
    }
    EXPECT_GT(aborted, 20);
    EXPECT_LT(aborted, 1000);
}

}  // namespace
