#include "params/setups.h"

#include "testing/params_fixture.h"
#include "texts/setup_text.h"

#include <clocale>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace velloran {
namespace {

class Setups : public ParamsTest {
protected:
    Setups() {
        std::string pattern = (std::filesystem::temp_directory_path() / "velloran_setups.XXXXXX").string();
        directory = mkdtemp(pattern.data());
        path = directory + "/setup";
        Genotype* const e = add_effect("E");
        number = add_param(e, param_float, "number", 2);
        tint = add_param(e, param_color, "tint");
        words = add_param(e, param_string, "words");
        place = add_param(e, param_float, "place", 2);
        place->scale_flags = screen_to_norm;
        place->min_value = -1e6f;
        for (const float v : {0.5f, 0.25f}) number->default_value[v < 0.5f] = v;
        place->default_value[0] = 360;
        place->default_value[1] = 243;
        place->widget_list = safe_new_zeroed<ParamWidgetData>();
        place->widget_list->widget_type = safe_strdup("center");
        place->widget_list->part_name = safe_strdup("center");
        place->widget_list->default_on = place->widget_list->enable_index = -1;
        place->widget_list->number = -1;
        do_layout_and_init_widgets();
        reset_params_to_defaults(e);
        show(0);
        record.setup_width = 720;
        record.setup_height = 486;
    }
    ~Setups() override { std::filesystem::remove_all(directory); }

    std::string text() const {
        std::ifstream file(path);
        std::stringstream all;
        all << file.rdbuf();
        return all.str();
    }
    int load(const std::string& content) {
        std::ofstream(path) << content;
        return load_setup(path.c_str());
    }
    // Everything that a setup can change, as text.
    std::string state() {
        std::ostringstream all;
        for (int i = 0; i < record.effect_genotype->param_number; ++i)
            for (const float v : record.effect_genotype->params[i]->value) all << v << " ";
        all << at->strings[9].Value << " | " << record.genotypes[0]->widgets->widgets[0].enable_param->value[0]
            << " | ";
        for (const Param* const p : record.global_params)
            if (p) all << p->value[0] << " " << p->value[1] << " " << p->value[2] << " ";
        return all.str();
    }
    void change_everything() {
        at->floats[6].Value = 7.125f;
        at->floats[7].Value = 1e-5f;
        at->colours[15].Value = 0xff8001;
        std::strcpy(at->strings[9].Value, "two words, and 3.5");
        at->floats[10].Value = 100;
        at->floats[11].Value = 50;
        at->toggles[37].Value = 0;
        at->floats[77].Value = 2.2f;
        at->ints[68].Value = 12;
        at->colours[73].Value = 0x010203;
    }

    std::string directory, path;
    Param *number, *tint, *words, *place;
};

TEST_F(Setups, TheFileIsAsItSays) {
    change_everything();
    ASSERT_EQ(save_setup(path.c_str()), 0);
    // In button units; the place, kept as -1 .. 1, in pixels again.
    EXPECT_EQ(text(),
              "Velloran-save-file 4\n"
              "1 0\n"
              "4  7.125 1e-05 16744449 two words, and 3.5\n"
              " 100 50\n"
              "w 1 0\n"
              " 4 0 0 0 0 0 66051 12 486 720 0 0 0 0 0 0 0 0 2.2 0\n"
              "720 486\n");
    EXPECT_FLOAT_EQ(place->value[0], 2 * 100 / 720.0f - 1);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1) << "no temporary file stays";
}

TEST_F(Setups, WhatWasSavedComesBack) {
    change_everything();
    save_setup(path.c_str());
    const std::string saved = text(), changed = state();
    for (Param* const p : {number, tint, place}) set_param_default(p, 0);
    std::strcpy(at->strings[9].Value, "");
    EXPECT_EQ(load_setup(path.c_str()), 2);
    EXPECT_EQ(state(), changed);
    setup_effect_buttons(0, 0);
    EXPECT_EQ(at->floats[10].Value, 100);
    EXPECT_EQ(at->colours[15].Value, 0xff8001u);
    save_setup(path.c_str());
    EXPECT_EQ(text(), saved);
    EXPECT_TRUE(reported.empty());
}

std::vector<std::string> words_of(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

TEST_F(Setups, CutOffAtAnyByte) {
    change_everything();
    std::strcpy(at->strings[9].Value, "word");
    save_setup(path.c_str());
    const std::string whole = text();
    const auto after = words_of(state());
    const auto reset = [&] {
        reset_params_to_defaults(record.effect_genotype);
        std::strcpy(at->strings[9].Value, "none");
        param_set_value(record.genotypes[0]->widgets->widgets[0].enable_param, 0, 1, 0);
        for (Param* const p : record.global_params)
            if (p) set_param_default(p, 0);
    };
    reset();
    const auto before = words_of(state());
    for (size_t n = 0; n < whole.size(); ++n) {
        SCOPED_TRACE(testing::Message() << n << " bytes");
        reset();
        reported.clear();
        testing::internal::CaptureStdout();
        const int status = load(whole.substr(0, n));
        const std::string printed = testing::internal::GetCapturedStdout();
        // The frame's height may be all there without its line end, or not: nothing behind it tells.
        const bool in_height = n > whole.rfind(' ') + 1;
        EXPECT_EQ(status == 2, in_height);
        EXPECT_EQ(record.frame_size_pending, in_height);
        if (in_height) {
            EXPECT_EQ(record.setup_height_in_file,
                      std::stoi(whole.substr(whole.rfind(' ') + 1, 3 - (whole.size() - 1 - n))));
        }
        if (status < 0) {
            EXPECT_EQ(reported.size() + !printed.empty(), 1u) << "one message";
        }
        // Every value is the old one or the new one, and they change over once. The one that is cut may be a third one.
        const auto now = words_of(state());
        ASSERT_EQ(now.size(), after.size());
        // New up to the first, old behind the last: between them at most the three channels of a colour that is cut.
        ptrdiff_t first = static_cast<ptrdiff_t>(now.size()), last = -1;
        for (ptrdiff_t i = 0; i < static_cast<ptrdiff_t>(now.size()); ++i) {
            const auto at_i = static_cast<size_t>(i);
            if (after[at_i] == before[at_i] || after[at_i] == "word") continue;
            if (now[at_i] != after[at_i]) first = std::min(first, i);
            if (now[at_i] != before[at_i]) last = i;
        }
        EXPECT_LT(last - first, 3) << "words " << first << " to " << last;
    }
}

TEST_F(Setups, FilesThatDoNotFit) {
    const struct {
        std::string text, message;  // message with its level, or as printed
    } rows[] = {
        {"", "7 Save file PATH has no header; probably corrupt.\n"},
        {"velloran 4\n", "7 Save file PATH has incorrect format; possibly corrupt."},
        {"Velloran-save-file\n", "7 Save file PATH has incorrect format; possibly corrupt."},
        {"Velloran-save-file 3\n", "7 Save file PATH has incorrect version 3; version 4 required."},
        {"Velloran-save-file 4\nx", "8 Bad saved params in PATH."},
        {"Velloran-save-file 4\n2 0\n", "Effect number has changed since setup was saved, not loading.\n"},
        {"Velloran-save-file 4\n1 1\n", "7 Selected effect index out of range (1) in setup, not loading.\n"},
        {"Velloran-save-file 4\n1 0\n?", "8 Setup file PATH is corrupt."},
        {"Velloran-save-file 4\n1 0\n5 ", "E param count has changed since setup was saved, not loading.\n"},
        {"Velloran-save-file 4\n1 0\n4 1 x", "8 Setup file PATH is corrupt (missing param E(1).number)."},
        {"Velloran-save-file 4\n1 0\n4 1 nan", "8 Setup file PATH is corrupt (missing param E(1).number)."},
        {"Velloran-save-file 4\n1 0\n4 1 2 3 word\n 5 6 w", "8 Setup file is corrupt: no wenables."},
        {"Velloran-save-file 4\n1 0\n4 1 2 3 word\n 5 6 w 2 1", "7 Setup file is corrupt: missing wenable."},
        {"Velloran-save-file 4\n1 0\n4 1 2 3 word\n 5 6 w 1 1\n 4 0 x", "7 bad format in save file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        reported.clear();
        testing::internal::CaptureStdout();
        EXPECT_EQ(load(row.text), -1);
        const std::string printed = testing::internal::GetCapturedStdout();
        std::string message = row.message;
        if (const size_t at_path = message.find("PATH"); at_path != std::string::npos)
            message.replace(at_path, 4, path);
        EXPECT_EQ(reported.empty() ? printed : reported[0], message);
    }
    EXPECT_EQ(number->value[0], 1) << "what was read before the fault stands";
    reported.clear();
    EXPECT_EQ(load_setup((path + "/missing").c_str()), -1);
    EXPECT_TRUE(reported.empty()) << "no setup is no fault";
}

TEST_F(Setups, OlderFilesHaveNoWidgetList) {
    EXPECT_EQ(
        load("Velloran-save-file 4\n1 0\n4 1 2 3 word\n 5 6\n 4 0 2 0 0 0 0 0 486 720 0 0 0 0 0 0 0 0 1 0\n640 480\n"),
        2);
    EXPECT_EQ(get_popup_res_factor(), 3);
    EXPECT_EQ(record.setup_width_in_file, 640);
    EXPECT_TRUE(record.frame_size_pending);
}

TEST_F(Setups, OfTwentyOneWidgetsTwentyAreRead) {
    std::string list = " 5 6\nw 21";
    for (int i = 0; i < 21; ++i) list += " 0";
    // The one left over begins the standard controls, which then end too late and the sizes too early.
    EXPECT_EQ(load("Velloran-save-file 4\n1 0\n4 1 2 3 word\n" + list +
                   "\n 4 0 2 0 0 0 0 0 486 720 0 0 0 0 0 0 0 0 1 0\n640 480\n"),
              2);
    EXPECT_EQ(record.setup_width_in_file, 0) << "the last standard control";
    EXPECT_EQ(record.setup_height_in_file, 640);
    EXPECT_EQ(record.genotypes[0]->widgets->widgets[0].enable_param->value[0], 1) << "another number of widgets";
}

TEST_F(Setups, TheLastNumberNeedsNoLineEnd) {
    change_everything();
    save_setup(path.c_str());
    const std::string whole = text(), changed = state();
    reset_params_to_defaults(record.effect_genotype);
    EXPECT_EQ(load(whole.substr(0, whole.size() - 1)), 2);
    EXPECT_EQ(state(), changed);
    EXPECT_EQ(record.setup_height_in_file, 486);
}

TEST_F(Setups, StringsAreAsLongAsTheirControl) {
    std::minstd_rand random(5);
    for (const size_t length :
         {size_t{0}, size_t{1}, size_t{197}, size_t{198}, size_t{199}, size_t{254}, size_t{255}}) {
        std::string wanted;
        // No blank at its ends.
        for (size_t i = 0; i < length; ++i)
            wanted += i % 10 == 5 && i + 1 < length ? ' ' : static_cast<char>('!' + random() % 90);
        std::strcpy(at->strings[9].Value, wanted.c_str());
        ASSERT_EQ(save_setup(path.c_str()), 0);
        std::strcpy(at->strings[9].Value, "other");
        EXPECT_EQ(load_setup(path.c_str()), 2) << length;
        EXPECT_EQ(at->strings[9].Value, wanted);
    }
    EXPECT_TRUE(reported.empty());
}

// Whatever a control made of a param comes back to the last bit, in every relation to the frame.
TEST_F(Setups, NumbersComeBackExactly) {
    std::minstd_rand random(6);
    const auto any = [&](float low, float high) {
        return low + (high - low) * static_cast<float>(random()) / static_cast<float>(std::minstd_rand::max());
    };
    for (int round = 0; round < 60; ++round) {
        for (const int mode : {screen_none, screen_screen, screen_center, screen_center0, screen_normalize,
                               screen_normalize_scale, screen_to_norm, screen_center_to_norm}) {
            place->scale_flags = static_cast<uint8_t>(mode);
            place->normalize_scale = 0.01f;
            const float reach = round % 3 == 0 ? 1.0f : round % 3 == 1 ? 1000.0f : 1e6f;
            for (int channel = 0; channel < 2; ++channel) at->floats[10 + channel].Value = any(-reach, reach);
            at->floats[77].Value = any(0.01f, 4);
            param_sync_from_button(place);
            param_sync_from_button(global(global_gamma));
            const float before[3] = {place->value[0], place->value[1], global(global_gamma)->value[0]};
            ASSERT_EQ(save_setup(path.c_str()), 0);
            for (float& v : place->value) v = 0.5f;
            ASSERT_EQ(load_setup(path.c_str()), 2);
            EXPECT_EQ(place->value[0], before[0]) << "mode " << mode;
            EXPECT_EQ(place->value[1], before[1]) << "mode " << mode;
            EXPECT_EQ(global(global_gamma)->value[0], before[2]);
        }
    }
}

TEST_F(Setups, NumbersDoNotDependOnTheLocale) {
    at->floats[6].Value = 1.5f;
    const char* const chosen = std::setlocale(LC_ALL, "de_DE.UTF-8");
    save_setup(path.c_str());
    EXPECT_NE(text().find(" 1.5 "), std::string::npos) << (chosen ? chosen : "no such locale here");
    set_param_default(number, 0);
    EXPECT_EQ(load_setup(path.c_str()), 2);
    EXPECT_EQ(number->value[0], 1.5f);
    std::setlocale(LC_ALL, "C");
}

TEST_F(Setups, WritingFailsAsAWhole) {
    EXPECT_EQ(save_setup((directory + "/no/such").c_str()), -1);
    EXPECT_EQ(reported.at(0), "8 Write of " + directory + "/no/such failed.");
}

TEST(SetupNames, TagsOfBuildsGo) {
    const struct {
        const char *from, *to;
    } rows[] = {
        {"/a/glow", "/a/glow"},         {"/a/glow_pthreads", "/a/glow"},    {"/a/glow_64", "/a/glow"},
        {"/a/glow_x86_64x", "/a/glow"}, {"/a/glow_x8abcdefg", "/a/glowfg"}, {"/a_64/b_x86", "/a/b"},
        {"/a/glow_6", "/a/glow_6"},
    };
    for (const auto& row : rows) {
        char out[64];
        strip_name_tags(out, row.from, sizeof(out));
        EXPECT_STREQ(out, row.to) << row.from;
    }
}

TEST_F(Setups, AFolderThatLooksLikeABuildKeepsItsSetups) {
    const auto kept_at = [](const std::string& name) {
        char out[4096];
        setup_path(out, name.c_str(), sizeof(out));
        return std::string(out);
    };
    const std::string marked = directory + "/shot_64", plain = directory + "/shot";
    std::filesystem::create_directory(marked);
    EXPECT_EQ(kept_at(marked + "/glow_x86_64x"), marked + "/glow");
    EXPECT_EQ(save_setup(kept_at(marked + "/glow_pthreads").c_str()), 0);
    std::filesystem::create_directory(plain);
    EXPECT_EQ(kept_at(marked + "/glow_64"), plain + "/glow") << "builds that lie side by side share their setups";
    EXPECT_EQ(kept_at("glow_64"), "glow");
    char tight[10];
    setup_path(tight, (directory + "/other_64/glow").c_str(), sizeof(tight));
    EXPECT_LT(std::strlen(tight), sizeof(tight));
}

std::string rewritten(const std::string& text, const std::function<int(const char*, const char*)>& rewrite) {
    const std::string from = testing::TempDir() + "velloran_in", to = testing::TempDir() + "velloran_out";
    std::ofstream(from) << text;
    EXPECT_EQ(rewrite(from.c_str(), to.c_str()), 1);
    std::ifstream file(to);
    std::stringstream all;
    all << file.rdbuf();
    std::filesystem::remove(from);
    std::filesystem::remove(to);
    return all.str();
}

TEST(HostSetups, TheFrameSizeIsRewrittenOnce) {
    const std::string longest(2500, 'x');
    EXPECT_EQ(rewritten("frameWidth 10\nframeHeight 20\n" + longest + "\nframeWidth 10\n",
                        [](const char* from, const char* to) { return rewrite_frame_size(from, to, 720, 486); }),
              "frameWidth 720\nframeHeight 486\n" + longest + "\nframeWidth 10\n");
}

TEST(HostSetups, CurvesAreMadeLinear) {
    const std::string channel =
        "SPARK_CHANNEL 9\n\tChannel float\n\tKey\n\t\tFrame 1\n\t\tValue 0\n\t\tInterpolation hermite\n\tEnd\n"
        "\tKey\n\t\tValue 1\n\tEnd\nEnd\n";
    const std::string other = "SPARK_CHANNEL 8\n\tChannel float\n\tKey\n\t\tValue 3\n\tEnd\nEnd\n";
    const auto by_key = [](const char* from, const char* to) { return rewrite_curve_linear(from, to, 9, true); };
    EXPECT_EQ(rewritten(other + channel + other, by_key),
              other +
                  "SPARK_CHANNEL 9\n\tChannel float\n\tKey\n\t\tFrame 1\n\t\tValue 0\n\t\tInterpolation linear\n\tEnd\n"
                  "\tKey\n\t\tValue 1\n\t\tInterpolation linear\n\tEnd\nEnd\n" +
                  other);
    const auto by_channel = [](const char* from, const char* to) { return rewrite_curve_linear(from, to, 9, false); };
    EXPECT_EQ(rewritten(other + channel, by_channel),
              other +
                  "SPARK_CHANNEL 9\n\tChannel float\n        Interpolation linear\n\tKey\n\t\tFrame 1\n\t\tValue 0\n"
                  "\t\tInterpolation hermite\n\tEnd\n\tKey\n\t\tValue 1\n\tEnd\nEnd\n");
}

}  // namespace
}  // namespace velloran
