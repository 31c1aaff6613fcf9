// What `velloran render` makes of clips and their time: a frame is the same whether it is rendered with the whole clip
// or alone.
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

#include <map>
#include <set>

using namespace test_cli;
using OIIO::TypeDesc;
using Names = std::vector<std::string>;

namespace {

// What of the frame before is left in it, and a little of the new one.
constexpr const char* trail = "(def_effect Trail (Source) ()\n dest = (interp (get_prev_dest [0 0 0]) Source 0.3)\n)\n";

}  // namespace

TEST_F(Cli, TransitionsMoveByThemselvesUnlessTheyAreHeld) {
    for (int frame = 1; frame <= 5; frame++) {
        picture("a." + std::to_string(frame) + ".png", 40, 30, 3, TypeDesc::UINT8,
                [](int, int, int) { return 60 << 8; });
        picture("b." + std::to_string(frame) + ".png", 40, 30, 3, TypeDesc::UINT8,
                [](int, int, int) { return 220 << 8; });
    }
    const auto list = nlohmann::json::parse(velloran("list transitions --json").out, nullptr, false);
    ASSERT_GE(list["effects"].size(), 9u);
    for (const auto& effect : list["effects"]) {
        std::string name = effect["name"];
        std::replace(name.begin(), name.end(), ' ', '_');
        SCOPED_TRACE(name);
        bool moves = false;
        for (const auto& param : effect["params"])
            if (param["name"] == "transition") moves = param.value("moves", false) && param["default"][0] == 0;
        EXPECT_TRUE(moves);
        const std::string line = "transitions:" + name + " -i a.#.png -i b.#.png -o o.#.png";
        Outcome ran = render(line);
        ASSERT_EQ(ran.status, 0) << ran.err;
        // From the first picture, over something between, to the second.
        EXPECT_EQ(samples("o.1.png").values, samples("a.1.png").values);
        EXPECT_EQ(samples("o.5.png").values, samples("b.5.png").values);
        bool between = false;
        for (const char* name_of : {"o.2.png", "o.3.png", "o.4.png"}) {
            const auto values = samples(name_of).values;
            between |= values != samples("a.1.png").values && values != samples("b.1.png").values;
        }
        EXPECT_TRUE(between);
        ASSERT_EQ(render(line + " -p transition=0").status, 0);
        for (int frame = 1; frame <= 5; frame++)
            EXPECT_EQ(samples("o." + std::to_string(frame) + ".png").values, samples("a.1.png").values) << frame;
    }
    EXPECT_NE(velloran("list transitions:Dissolve").out.find("moves from 0 to 1 over the clip"), std::string::npos);
}

// Whatever part of a clip is asked for, and however: the frames are those of the whole run.
TEST_F(Cli, EffectsThatRememberGiveTheSameFramesInAnyPart) {
    for (int frame = 11; frame <= 18; frame++) plate("in." + std::to_string(frame) + ".png", frame * 7);
    write("trail.text", trail);
    fs::create_directory("all");
    fs::create_directory("o");
    ASSERT_EQ(render("trail.text -i in.#.png -o all/#.png").status, 0);
    const auto same = [&](const std::set<int>& frames) {
        Names names;
        for (const int frame : frames) {
            names.push_back(std::to_string(frame) + ".png");
            EXPECT_EQ(samples("o/" + names.back()).values, samples("all/" + names.back()).values) << frame;
        }
        EXPECT_EQ(files("o"), names);
        for (const std::string& name : names) fs::remove("o/" + name);
    };
    const struct {
        const char* options;
        std::set<int> frames;
    } rows[] = {{"-f 15", {15}}, {"-f 13-14", {13, 14}}, {"-f 11-17x3", {11, 14, 17}}, {"-f 18 --preroll 100", {18}}};
    for (const auto& row : rows) {
        const Outcome ran = render(std::string("trail.text -i in.#.png -o o/#.png ") + row.options);
        EXPECT_EQ(ran.status, 0) << row.options << ran.err;
        same(row.frames);
    }
    // A frame in the middle that has to be made again.
    ASSERT_EQ(render("trail.text -i in.#.png -o o/#.png --skip-existing").status, 0);
    write("o/15.png", "");
    const Outcome again = render("trail.text -i in.#.png -o o/#.png --skip-existing");
    EXPECT_NE(again.err.find("wrote 1, already there 7 of 8"), std::string::npos) << again.err;
    same({11, 12, 13, 14, 15, 16, 17, 18});

    EXPECT_NE(velloran("list trail.text").out.find("remembers"), std::string::npos);
    EXPECT_EQ(velloran("list pass.text").out.find("remembers"), std::string::npos);
    Outcome ran = render("trail.text -i in.#.png -o o/#.png -f 18-11");
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("builds each frame on the one before"), std::string::npos) << ran.err;
    // Beginning in the middle is another picture, which is said, and another recipe.
    ran = render("trail.text -i in.#.png -o o/#.png -f 15 --preroll 0 --skip-existing");
    EXPECT_EQ(ran.status, 0);
    EXPECT_NE(ran.err.find("begins with frame 15 instead of 11"), std::string::npos) << ran.err;
    EXPECT_NE(samples("o/15.png").values, samples("all/15.png").values);
    ran = render("trail.text -i in.#.png -o o/#.png -f 15 --skip-existing");
    same({15});
    // What cannot be made rightly is not made.
    write("in.13.png", "broken");
    ran = render("trail.text -i in.#.png -o o/#.png -f 12-16");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.err.find("wrote 1, failed 1, not tried 3 of 5"), std::string::npos) << ran.err;
    ran = render("trail.text -i in.#.png -o o/#.png -f 15-16");
    EXPECT_NE(ran.err.find("frame 15: depends on frame 13: in.13.png: "), std::string::npos) << ran.err;
    same({12});
    fs::remove("in.13.png");
    EXPECT_EQ(render("trail.text -i in.#.png -o o/#.png -f 15 --missing skip").status, 2);
}

// A part of a sequence, or a still, is at the time that the pinned clip gives it.
TEST_F(Cli, PinnedClipsGiveTheTimeOfTheWhole) {
    write("time.text", "(def_effect Time (Source) ()\n dest = (* [1 1 1] (get_percent_time))\n)\n");
    for (int frame = 101; frame <= 110; frame++) plate("in." + std::to_string(frame) + ".png", frame);
    fs::create_directory("all");
    ASSERT_EQ(render("time.text -i in.#.png -o all/#.png").status, 0);
    EXPECT_NE(samples("all/101.png").values, samples("all/107.png").values);
    fs::create_directory("part");
    for (const int frame : {106, 107}) fs::copy("in." + std::to_string(frame) + ".png", "part");
    Outcome ran = render("time.text -i part/in.#.png -o part/o.#.png --first 101 --length 10");
    ASSERT_EQ(ran.status, 0) << ran.err;
    for (const int frame : {106, 107})
        EXPECT_EQ(samples("part/o." + std::to_string(frame) + ".png").values,
                  samples("all/" + std::to_string(frame) + ".png").values)
            << frame;
    ASSERT_EQ(render("time.text -i in.101.png -o part/s.#.png --first 101 --length 10 -f 107").status, 0);
    EXPECT_EQ(samples("part/s.107.png").values, samples("all/107.png").values);
    ran = render("time.text -i in.101.png -o part/t.#.png --first 101 --length 3");
    EXPECT_NE(ran.err.find("part/t.101.png to part/t.103.png"), std::string::npos) << ran.err;
    EXPECT_EQ(render("time.text -i in.#.png -o part/u.#.png --first 120").status, 2);
}

TEST_F(Cli, PatternsThatMatchNothingSayWhatIsThere) {
    for (const char* name : {"shot.0009.png", "shot.0010.png", "shot.0011.png", "other_2.png", "shot.9999.tif"})
        plate(name);
    fs::create_directory("empty");
    const struct {
        const char* pattern;
        const char* says;
    } rows[] = {
        {"shot.%d.png", "there is shot.%04d.png with 9-11"},
        {"shot.###.png", "there is shot.%04d.png with 9-11"},
        {"shoot.####.png", "there is shot.%04d.png with 9-11"},
        {"empty/shot.%d.png", "the directory holds no numbered files"},
        {"gone/shot.%d.png", "there is no directory gone"},
    };
    for (const auto& row : rows) {
        const Outcome ran = render(std::string("pass.text -o o.#.png -i ") + row.pattern);
        EXPECT_EQ(ran.status, 2);
        EXPECT_NE(ran.err.find(std::string(row.pattern) + ": no files of this sequence"), std::string::npos) << ran.err;
        EXPECT_NE(ran.err.find(row.says), std::string::npos) << ran.err;
    }
}

TEST_F(Cli, WhatIsNotKeptIsToldOnce) {
    const float rows[3][2] = {{0.5f, 1}, {1.5f, 0}, {-1, std::numeric_limits<float>::quiet_NaN()}};
    for (int frame = 1; frame <= 3; frame++) {
        OIIO::ImageSpec spec(2, 1, 4, TypeDesc::FLOAT);
        spec.alpha_channel = 3;
        spec.channelnames = {"R", "G", "B", "A"};
        std::vector<float> values;
        for (const float value : rows[frame - 1])
            for (int c = 0; c < 4; c++) values.push_back(c < 3 ? value : 0.123f);
        const std::string name = "in." + std::to_string(frame) + ".exr";
        auto output = OIIO::ImageOutput::create(name);
        ASSERT_TRUE(output->open(name, spec) && output->write_image(TypeDesc::FLOAT, values.data()) && output->close());
    }
    const auto count = [](const std::string& text, const std::string& part) {
        size_t n = 0;
        for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++) n++;
        return n;
    };
    Outcome ran = render("pass.text -i in.#.exr -o o.#.png");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(count(ran.err, "samples beyond 0 to 1, which are held to it; the first in in.2.exr"), 1u) << ran.err;
    EXPECT_EQ(count(ran.err, "no numbers, which count as 0; the first in in.3.exr"), 1u) << ran.err;
    EXPECT_EQ(count(ran.err, "16 bits"), 1u) << "alpha was a float: " << ran.err;
    ran = render("pass.text -i in.1.exr -o o.exr");
    EXPECT_EQ(ran.err.find("warning"), std::string::npos) << ran.err;
    plate("in.png");
    ran = render("my.text:Gain -i in.png -o o.png -p amount=9");
    EXPECT_NE(ran.err.find("amount=9 is beyond its bounds, 4 is used"), std::string::npos) << ran.err;
    const auto held = samples("o.png").values;
    ASSERT_EQ(render("my.text:Gain -i in.png -o o.png -p amount=4").status, 0);
    EXPECT_EQ(samples("o.png").values, held);
}

TEST_F(Cli, PartFilesAreShortAndSweptWhenTheirProcessIsGone) {
    plate("in.png");
    char machine[256] = "";
    gethostname(machine, sizeof(machine) - 1);
    for (char* c = machine; *c; c++)
        if (*c == '-') *c = '_';
    // A process that surely is gone, and one that surely lives.
    const pid_t gone = start({"true"});
    finish(gone);
    const std::string dead = std::string(".velloran.part-") + machine + "-" + std::to_string(gone) + "-0";
    const std::string alive = std::string(".velloran.part-") + machine + "-" + std::to_string(getpid()) + "-0";
    const std::string elsewhere = ".velloran.part-another_machine-" + std::to_string(gone) + "-0";
    fs::create_directory("o");
    for (const std::string& name : {dead, alive, elsewhere}) write("o/" + name, "half");
    // The longest name that a file can have.
    const std::string longest = std::string(251, 'n') + ".png";
    const Outcome ran = render("pass.text -i in.png -o o/" + longest);
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_TRUE(fs::exists("o/" + longest));
    EXPECT_FALSE(fs::exists("o/" + dead));
    EXPECT_TRUE(fs::exists("o/" + alive));
    EXPECT_TRUE(fs::exists("o/" + elsewhere));
    fs::remove("o/" + alive);
    fs::remove("o/" + elsewhere);
}
