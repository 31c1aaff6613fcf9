// Pictures that say how they were made, and one number for all that is rendered.
#include "hosts/render/failure.h"
#include "hosts/render/making.h"
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

using namespace test_cli;
using OIIO::TypeDesc;

TEST_F(Cli, PicturesSayHowTheyWereMade) {
    plate("in.png", 3, TypeDesc::UINT16);
    picture("rgba.tif", 37, 23, 4, TypeDesc::UINT16, [](int x, int y, int c) { return pattern(x, y, c); });
    for (const std::string ending : {"png", "tif", "exr"})
        for (const std::string input : {"in.png", "rgba.tif"}) {
            const std::string made = "made." + ending, again = "again." + ending;
            Outcome ran = render("my.text:Gain -i " + input + " -o " + made + " -p amount=0.5 -p tint=1,0.5,0.25");
            ASSERT_EQ(ran.status, 0) << ran.err;
            fs::rename("my.text", "away.text");
            ran = render("--recipe-from " + made + " -i " + input + " -o " + again);
            fs::rename("away.text", "my.text");
            ASSERT_EQ(ran.status, 0) << ran.err;
            EXPECT_EQ(samples(again).values, samples(made).values) << ending << input;
            // A value of the command line counts more, and what a picture says is not handed on to others.
            ASSERT_EQ(render("--recipe-from " + made + " -i " + input + " -o other." + ending + " -p amount=1").status,
                      0);
            ASSERT_EQ(render("my.text:Gain -i " + input + " -o ref." + ending + " -p tint=1,0.5,0.25").status, 0);
            EXPECT_EQ(samples("other." + ending).values, samples("ref." + ending).values) << ending << input;
            ASSERT_EQ(render("pass.text -i " + made + " -o next." + ending).status, 0);
            ran = render("--recipe-from next." + ending + " -i " + input + " -o last." + ending);
            ASSERT_EQ(ran.status, 0) << ran.err;
            EXPECT_NE(samples("last." + ending).values, samples(made).values);
        }
    // A shipped effect is named, and layers that come in stay.
    ASSERT_EQ(render("color:Grade -i in.png -o g.png -p exposure=0.5").status, 0);
    ASSERT_EQ(render("--recipe-from g.png -i in.png -o h.tif").status, 0);
    EXPECT_EQ(samples("h.tif").values, samples("g.png").values);
}

TEST_F(Cli, RecipesThatCannotBeReadAreTold) {
    plate("in.png");
    ASSERT_EQ(render("my.text:Gain -i in.png -o made.png -p amount=0.5").status, 0);
    const auto says = [&](const std::string& line, const std::string& words) {
        const Outcome ran = render(line + " -i in.png -o o.png");
        EXPECT_EQ(ran.status, 2) << line << ran.err;
        EXPECT_NE(ran.err.find(words), std::string::npos) << line << "\n" << ran.err;
        EXPECT_FALSE(fs::exists("o.png"));
    };
    says("--recipe-from in.png", "does not say how it was made");
    says("--recipe-from nowhere.png", "nowhere.png");
    says("--recipe-from nowhere.tif", "nowhere.tif");
    says("--recipe-from my.text", "my.text");
    says("my.text --recipe-from made.png", "leave 'my.text' out");
    says("", "an effect is needed");
    const std::string whole = read_file("made.png");
    for (size_t cut = 0; cut < whole.size(); cut += 37) {
        write("cut.png", whole.substr(0, cut));
        const Outcome ran = render("--recipe-from cut.png -i in.png -o o.png");
        // The words stand before the samples: a picture that is cut behind them still tells.
        EXPECT_TRUE(ran.status == 2 || (ran.status == 0 && samples("o.png").values == samples("made.png").values))
            << cut << ran.err;
        fs::remove("o.png");
    }
}

// Whatever happens to a byte of the words, what comes out is told or the same; never another setup in silence.
TEST_F(Cli, DamagedRecipesAreToldOrWhole) {
    plate("in.png");
    write("s.text", "(def_effect S (Source) ()\n  a = 1 (min 0 max 4)\n  dest = (* Source a)\n)\n");
    for (const std::string ending : {"png", "tif", "exr"}) {
        const std::string made = "made." + ending, hurt = "hurt." + ending;
        ASSERT_EQ(render("s.text -i in.png -o " + made + " -p a=0.5").status, 0);
        const render::Making right = render::read_making(made);
        EXPECT_NE(right.setup.find("a 0.5"), std::string::npos) << right.setup;
        const std::string whole = read_file(made);
        const size_t start = whole.find("{\"made_by\""), last = whole.find("\"mark\"", start) + 25;
        ASSERT_LT(start, last) << ending;
        ASSERT_LT(last, whole.size()) << ending;
        EXPECT_EQ(whole[last], '}');
        size_t told = 0, n = 0;
        // Some bytes in front of it and behind, too: its length, its kind, its end.
        for (size_t at = start - 24; at < std::min(last + 8, whole.size()); at++)
            for (const int flip : {1, 4, 0x80}) {
                std::string damaged = whole;
                damaged[at] = static_cast<char>(damaged[at] ^ flip);
                write(hurt, damaged);
                n++;
                try {
                    const render::Making found = render::read_making(hurt);
                    EXPECT_EQ(found.setup, right.setup) << ending << " byte " << at << " of " << start;
                    EXPECT_EQ(found.choice.text, right.choice.text) << ending << " byte " << at << " of " << start;
                    EXPECT_EQ(found.choice.effect, right.choice.effect) << ending << " byte " << at << " of " << start;
                } catch (const render::Failure& failure) {
                    EXPECT_NE(std::string(failure.what()).find(hurt), std::string::npos) << failure.what();
                    told++;
                }
            }
        EXPECT_GT(told, n * 8 / 10) << ending;
        // And as a user meets it.
        std::string damaged = whole;
        damaged[whole.find("param a 0.5", start) + 10] = '7';
        write(hurt, damaged);
        const Outcome ran = render("--recipe-from " + hurt + " -i in.png -o o.png");
        EXPECT_EQ(ran.status, 2) << ran.err;
        EXPECT_NE(ran.err.find(hurt), std::string::npos) << ran.err;
        EXPECT_FALSE(fs::exists("o.png"));
    }
}

TEST_F(Cli, OneNumberForAllThatIsRendered) {
    const Outcome first = velloran("verify --json"), again = velloran("verify");
    ASSERT_EQ(first.status, 0) << first.err;
    const auto told = nlohmann::json::parse(first.out);
    EXPECT_EQ(told["hash"].get<std::string>().size(), 16u);
    EXPECT_EQ(told["effects"].get<size_t>(), told["pictures"].size());
    EXPECT_GT(told["pictures"].size(), 20u);
    EXPECT_EQ(again.out.substr(0, 16), told["hash"].get<std::string>());
}
