// Every definition of docs/language.md and docs/first_effect.md reads without a message and renders.
#include "testing/engine_rig.h"
#include "testing/genotype_reading.h"
#include "testing/numbered_clip.h"
#include "texts/if_filter.h"

#include <fstream>

namespace {

struct Example {
    int line;
    std::string text;
};

std::vector<Example> examples(const char* path) {
    std::ifstream page(path);
    std::vector<Example> found;
    std::string line;
    bool inside = false;
    for (int n = 1; std::getline(page, line); ++n) {
        if (line.rfind("```", 0) == 0) {
            inside = line == "```genotype";
            if (inside) found.push_back({n, ""});
        } else if (inside) {
            found.back().text += line + "\n";
        }
    }
    return found;
}

void render_all(const std::vector<Example>& all) {
    for (const Example& example : all) {
        SCOPED_TRACE("line " + std::to_string(example.line));
        velloran_tests::EngineRig rig;
        rig.shape.width = 37;
        velloran_tests::NumberedClip clip;
        rig.clips() = {clip.clip(9), clip.clip(9, 1)};
        static std::string messages;
        messages.clear();
        const ErrorPrinter outer = set_error_printer([](int, const char* text) { messages += text; });
        std::string text = example.text;
        remove_comments_and_false_if_statements(text.data(), "language.md");
        text.resize(std::strlen(text.c_str()));
        Genotype* genotype = rig.load(text);
        EXPECT_EQ(messages, "");
        EXPECT_NE(genotype, nullptr);
        if (genotype) {
            EXPECT_EQ(rig.render(), 0) << messages;
            EXPECT_NE(rig.dest, velloran_tests::HostFrame(rig.dest.size(), 0));
        }
        set_error_printer(outer);
    }
}

TEST(LanguagePage, ExamplesRender) {
    const std::vector<Example> all = examples(LANGUAGE_PAGE);
    EXPECT_GT(all.size(), 10u);
    render_all(all);
}

// The steps of the page are the files beside it, and a reader who takes them one after the other sees what they add.
TEST(FirstEffectPage, StepsAreTheirFilesAndRender) {
    const std::vector<Example> all = examples(FIRST_EFFECT "/../first_effect.md");
    ASSERT_EQ(all.size(), 10u);
    for (size_t i = 0; i < all.size(); ++i) {
        const std::string name = std::string(FIRST_EFFECT) + (i + 1 < 10 ? "/0" : "/") + std::to_string(i + 1);
        std::ifstream file(name + ".text");
        std::ostringstream text;
        text << file.rdbuf();
        EXPECT_EQ(all[i].text, text.str()) << name;
        EXPECT_TRUE(std::ifstream(name + ".jpg").good()) << name;
        EXPECT_TRUE(i == 0 || all[i].text != all[i - 1].text);
    }
    render_all(all);
}

}  // namespace
