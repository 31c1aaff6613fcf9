// Declarations of params: what each word sets, and every message.
#include "genotype/declarations.h"
#include "genotype/param_record.h"
#include "testing/genotype_reading.h"

namespace {

class DeclarationsTest : public GenotypeTest {
protected:
    // p = VALUE (DECLARATION), behind which the groups that the declaration opens are closed by q.
    static GenotypePtr declare(const std::string& value, const std::string& declaration, const std::string& rest = "") {
        return read_text("(def_effect E (Source) p = " + value + " (" + declaration + ") " + rest +
                         " dest = (+ (max_element p) (max_element Source)))");
    }
};

// The fields that a declaration may set, those at their defaults left out.
std::string summary(const Param& p) {
    std::string s;
    char text[256];
    const auto add = [&](const char* format, auto... values) {
        std::snprintf(text, sizeof(text), format, values...);
        s += (s.empty() ? "" : " ") + std::string(text);
    };
    if (p.type != param_float) add("type %d", p.type);
    if (p.min_value != 0) add("min %g", p.min_value);
    if (p.max_value != 1000000) add("max %g", p.max_value);
    if (p.step != 0.001f) add("step %g", p.step);
    if (p.normalize_scale != 0) add("scale %g", p.normalize_scale);
    if (p.n_buttons != p.n_channels) add("buttons %d/%d", p.n_buttons, p.n_channels);
    if (p.owner_flags) add("owner %d", p.owner_flags);
    if (p.kind_flags) add("kind %d", p.kind_flags);
    if (p.scale_flags) add("mode %d", p.scale_flags);
    if (p.save_flags) add("save %d", p.save_flags);
    if (p.group_marks) add("marks %d", p.group_marks);
    if (p.group_index >= 0) add("group %d", p.group_index);
    if (p.callback_number) add("button %d", p.callback_number);
    for (const ParamWidgetData* w = p.widget_list; w; w = w->next) {
        add("<%s.%s", w->widget_type, w->part_name);
        if (w->widget_name) add("name %s", w->widget_name);
        if (w->glyph_name) add("glyph %s", w->glyph_name);
        if (w->use_enable) add("enable %d", w->use_enable);
        if (w->enable_here) add("%s", "here");
        if (w->enable_index >= 0) add("index %d", w->enable_index);
        if (w->enable_param_name) add("by %s", w->enable_param_name);
        if (w->default_on >= 0) add("on %d", w->default_on);
        if (w->number >= 0) add("number %d", w->number);
        s += '>';
    }
    if (p.n_popup_entries) {
        int last = max_popup_entries;
        while (last > 0 && !p.popup_entries[last - 1]) --last;
        for (int i = 0; i < last; ++i) s += p.popup_entries[i] ? std::string(" [") + p.popup_entries[i] + "]" : " |";
    }
    return s;
}

TEST_F(DeclarationsTest, WordsSetFields) {
    const struct {
        const char *value, *declaration, *summary;
    } rows[] = {
        {"0.5", "", ""},
        {"0.5", "min -1 max 4 step 0.1", "min -1 max 4 step 0.1"},
        {"0.5", "min * max 4", "min -1e+06 max 4"},
        {"0.5", "angle", "min -1e+06 step 0.1"},
        {"0.5", "angle_in_degrees max 360", "min -1e+06 max 360 step 0.1"},
        {"1", "boolean", "type 5"},
        {"1", "int min 1 max 9", "type 2 min 1 max 9"},
        {"1", "string", "type 7"},
        {"1", "button 3", "button 3"},
        {"1", "label", "type 8 mode 16 [P]"},
        {"[0 0]", "screen", "min -1e+06 step 0.5 mode 1"},
        {"[0 0]", "screen_center", "min -1e+06 step 0.5 mode 2"},
        {"[0 0]", "screen_center0", "min -1e+06 mode 3"},
        {"[0 0]", "normalize", "min -1e+06 mode 4"},
        {"[0 0]", "normalize_scale 2", "min -1e+06 scale 2 mode 5"},
        {"[0 0]", "screen_to_norm", "min -1e+06 step 0.5 mode 6"},
        {"[0 0]", "screen_center_to_norm", "min -1e+06 step 0.5 mode 7"},
        {"0", "screen_x", "min -1e+06 mode 8"},
        {"0", "screen_y", "min -1e+06 mode 9"},
        {"[0 0]", "min 3 step 2 screen", "min 3 step 2 mode 1"},  // what the text said stays
        {"[0 0]", "screen min 3", "min 3 step 0.5 mode 1"},
        {"[0 0]", "screen_center pointer_set", "min -1e+06 step 0.5 kind 1 mode 2 <center.center glyph cross_circle>"},
        {"[0 0]", "pointer_set widget center.offset", "kind 1 <center.offset>"},
        {"1", "lens_flare_names", "type 4 kind 136"},
        {"1", "glare_names", "type 4 kind 144"},
        {"1", "print_film_names", "type 4 kind 192"},
        {"1", "neg_film_names", "type 4 kind 160"},
        {"[1 1 1]", "color", "type 3 buttons 1/3"},
        {"[1 1 1]", "color_only", "type 3 buttons 1/3 kind 2"},
        {"1", "shared", "owner 128"},
        {"1", "shared not_shared", ""},
        {"1", "autotrans", "min -0.5 max 1.5 mode 32"},
        {"1", "autotrans_hermite", "min -0.5 max 1.5 mode 64"},
        {"1", "autotrans autotrans_spline", "min -0.5 max 1.5 mode 64"},
        {"1", "set_hold_level", "type 6 owner 32 mode 144"},
        {"1", "hold_level hidden ignore", "mode 16 save 33"},
        {"1", "hr percent only_if_full_frames", ""},
        {"1", "doc_group", "marks 128"},
        {"1", "doc_group_name Extras", "marks 128 group 0"},
        {"1", "group_start G group_end G", "marks 17 group 0"},
        {"1", "group_start_open G group_end G", "marks 25 group 0"},
        {"1", "popup one two", "type 4 max 2 step 0.01 [P: One] [P: Two]"},
        {"1", "popup in_and_out \"two words\" min", "type 4 max 3 step 0.01 [P: In And Out] [P: Two Words] [P: Min]"},
        {"[1 2]", "popup one two", "type 4 max 2 step 0.01 [P X: One] [P X: Two] | [P Y: One] [P Y: Two]"},
        {"1", "popup one widget center max 1", "type 4 max 1 step 0.01 <center.p> [P: One]"},
        {"1", "widget rect.left name Frame wenable here default_off 2",
         "<rect.left name Frame enable 1 here on 0 number 2>"},
        {"1", "widget rect wenable 31 default_on", "<rect.p enable 1 index 31 on 1>"},
        {"1", "widget rect use_wenable q 7", "<rect.p enable 2 by q number 7>"},
        {"1", "widget a widget b.c max 2", "max 2 <b.c> <a.p>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.declaration);
        const GenotypePtr genotype = declare(row.value, row.declaration);
        ASSERT_TRUE(genotype) << messages();
        EXPECT_EQ(summary(*genotype->params[0]), row.summary);
        EXPECT_EQ(messages(), "");
    }
}

TEST_F(DeclarationsTest, EveryMessage) {
    const std::string eight =
        "group_start G group_end G group_start G group_end G group_start G group_end G group_start G "
        "group_end G group_start G group_end G group_start G group_end G group_start G group_end G "
        "group_start G group_end G ";
    const struct {
        const char* value;
        std::string declaration, messages;
        bool read = false;
    } rows[] = {
        {"1", "min low", "8 For p bad min bound: 'low'.\n"},
        {"1", "max high", "8 For p non-number max bound: 'high'.\n"},
        {"1", "max 1e99", "8 For p non-number max bound: '1e99'.\n"},
        {"1", "step small", "8 For p bad step value: 'small'.\n"},
        {"[1 1]", "normalize_scale much", "7 For p bad normalize_scale value: 'much'.\n"},
        {"1", "button three", "8 For p bad button value: 'three'.\n"},
        {"1", "mni 3", "8 For E p got 'mni', expected min, max, step, popup, color...\n"},
        {"1", "popup one (two)", "8 For E p got '(', expected min, max, step, popup, color...\n"},
        {"1", "screen", "8 For p: screen modes should only be used with 2-vectors.\n", true},
        {"[1 1 1]", "screen_center_to_norm", "8 For p: screen modes should only be used with 2-vectors.\n", true},
        {"1", "color", "8 For p 'color' should only be used with 3-vectors.\n", true},
        {"[1 1]", "lens_flare_names", "8 'lens_flare_names' should only be used with scalars.\n", true},
        {"[1 1]", "glare_names", "8 'glare_names' should only be used with scalars.\n", true},
        {"[1 1]", "neg_film_names", "8 'film_type_names' should only be used with scalars.\n", true},
        {"1", "group_start G group_start H group_end H group_end G", "7 Nested groups in E\n", true},
        {"1", "group_start G group_end H", "7 E p group_end H, expected G\n", true},
        {"1", "group_end G", "8 E p group_end without group_start\n", true},
        {"1", eight + "group_start I", "7 Too many groups in E, up MAX_PARAM_GROUP_NUMBER\n", true},
        {"1", eight + "doc_group_name I", "8 E has too many param groups. Increase MAX_PARAM_GROUP_NUMBER\n"},
        {"1", "group_start G doc_group_name I", "8 Can't use doc_group_name with param that's in a group!\n"},
        {"1", "widget center wenable maybe", "8 Syntax error reading widget center enable in E.p: bad number\n"},
        {"1", "widget )", "8 For E p got ')', expected min, max, step, popup, color...\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.declaration);
        const GenotypePtr genotype = declare(row.value, row.declaration);
        EXPECT_EQ(messages(), row.messages);
        EXPECT_EQ(genotype != nullptr, row.read);
        EXPECT_EQ(current_param_group, nullptr);
    }
    const GenotypePtr scalar = declare("1", "screen");  // said to be wrong, and taken
    EXPECT_EQ(scalar->params[0]->scale_flags, 1);
    EXPECT_EQ(messages(), "8 For p: screen modes should only be used with 2-vectors.\n");
    EXPECT_FALSE(read_text("(def_effect E () a = 1 (min"));
    EXPECT_EQ(messages(), "8 For a bad min bound: ''.\n");
    EXPECT_FALSE(read_text("(def_effect E () a = 1 (widget center"));
    EXPECT_EQ(messages(), "8 Eof reading genotype assignment.\n");
    EXPECT_FALSE(read_text("(def_effect E () a = 1 (popup \"one"));
    EXPECT_EQ(messages(), "8 read_string_1: got eof before end of string.\n");
}

// Entries, and the null that ends each element's list, share 32 places.
TEST_F(DeclarationsTest, PopupsStayWithinTheirPlaces) {
    const struct {
        const char* value;
        int elements, words, kept;
        const char* messages;
    } rows[] = {
        {"1", 1, 31, 31, ""},       {"1", 1, 32, 31, "8 E p state_name overflow: w31.\n"},
        {"[1 1]", 2, 15, 15, ""},   {"[1 1]", 2, 16, 15, "8 E p state_name overflow: w15.\n"},
        {"[1 1 1]", 3, 9, 9, ""},   {"[1 1 1]", 3, 10, 9, "9 E: Too many state names (33, should be <32)\n"},
        {"[1 1 1 1]", 4, 7, 7, ""}, {"[1 1 1 1]", 4, 8, 7, "8 E p state_name overflow: w7.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words * 10 + row.elements);
        std::string words = "popup";
        for (int i = 0; i < row.words; ++i) words += " w" + std::to_string(i);
        const GenotypePtr genotype = declare(row.value, words);
        ASSERT_TRUE(genotype);
        EXPECT_EQ(messages(), row.messages);
        const Param& p = *genotype->params[0];
        EXPECT_EQ(p.n_popup_entries, row.kept);
        EXPECT_EQ(p.max_value, row.kept);
        int entries = 0;
        for (const char* entry : p.popup_entries) entries += entry != nullptr;
        EXPECT_EQ(entries, row.kept * row.elements);
        for (int e = 1; e < row.elements; ++e) EXPECT_EQ(p.popup_entries[e * (row.kept + 1) - 1], nullptr);
    }
}

TEST_F(DeclarationsTest, GroupsHoldTheParamsBetween) {
    const GenotypePtr g = read_text(
        "(def_effect E () (share_all) a = 1 b = 2 (group_start_open One) c = 3 d = [4 5] (group_end One) e = 6 "
        "(not_shared) "
        "dest = (+ (+ a b) (+ (+ c e) (max_element d))))");
    ASSERT_TRUE(g) << messages();
    const int groups[] = {-1, 0, 0, 0, -1}, owners[] = {128, 128, 128, 128, 0}, channels[] = {1, 1, 1, 2, 1};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(g->params[i]->group_index, groups[i]);
        EXPECT_EQ(g->params[i]->owner_flags, owners[i]);
        EXPECT_EQ(g->params[i]->n_channels, channels[i]);
        EXPECT_EQ(g->params[i]->n_buttons, channels[i]);
    }
    EXPECT_EQ(g->group_number, 1);
    EXPECT_STREQ(g->groups[0].name, "One");
    const float defaults[] = {4, 5, 5, 5};
    for (int e = 0; e < 4; ++e) EXPECT_EQ(g->params[3]->default_value[e], defaults[e]);
}

TEST_F(DeclarationsTest, ParamsAreFoundSharedAndSeenToChange) {
    const GenotypePtr g = declare("[0.1 0.2]", "");
    ASSERT_TRUE(g);
    Param* p = get_param_by_name(g.get(), "p");
    EXPECT_EQ(p, get_param_at_index(g.get(), 0));
    EXPECT_EQ(get_param_by_name(g.get(), "q"), nullptr);
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(get_param_by_name(g.get(), nullptr), nullptr);
    EXPECT_EQ(get_param_at_index(g.get(), 1), nullptr);
    EXPECT_EQ(messages(),
              "8 get_param_by_name(E): name is null\n"
              "8 get_param_at_index(E, 1): index out of range [0,1)\n");

    EXPECT_TRUE(param_values_changed_p(p));
    note_params_rendered(g.get());
    EXPECT_FALSE(param_values_changed_p(p));
    p->node->vals[1] += 1;
    EXPECT_TRUE(param_values_changed_p(p));
    note_params_rendered(g.get());
    p->node->vals[2] += 1;  // beyond its channels
    EXPECT_FALSE(param_values_changed_p(p));

    // Another effect keeps the param when this one goes.
    Param* plain = new_param(param_color, "C");
    EXPECT_EQ(plain->n_channels, 3);
    EXPECT_EQ(plain->n_buttons, 1);
    EXPECT_EQ(free_param(ref_param(plain)), 0);
    EXPECT_EQ(free_param(plain), 1);
    ref_param(p);
    {
        const GenotypePtr gone = read_text("(def_effect F () dest = 1)");
        free_param(gone->params[0]);
        gone->params[0] = ref_param(p);  // a node of another table
    }
    EXPECT_NE(p->node, nullptr);
    EXPECT_EQ(free_param(p), 0);
}

}  // namespace
