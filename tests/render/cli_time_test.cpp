// What `velloran render` makes of effects that look at other frames of a clip, and of those that put out another number
// of frames than the clip has.
#include "testing/telecine.h"
#include "tests/render/cli_rig.h"

using namespace test_cli;
using OIIO::TypeDesc;
using velloran_tests::telecine_pictures;
using velloran_tests::TelecineClip;

namespace {

constexpr int width = 48, height = 32;

class CliTime : public Cli {
protected:
    // Frames 1 to n of a clip; file rows begin at the top.
    static void clip(const std::string& name, const TelecineClip& of, int n, int first = 1) {
        for (int frame = 0; frame < n; frame++)
            picture(name + "." + std::to_string(first + frame) + ".png", width, height, 3, TypeDesc::UINT8,
                    [&](int x, int y, int c) { return of.sample(frame, x, height - 1 - y, c) << 4; });
    }
    // A clip of whole frames.
    static TelecineClip film(int n) {
        TelecineClip clip;
        for (int t = 0; t < 2 * n; t++) clip.pictures.push_back(t / 2);
        return clip;
    }
    static std::vector<uint16_t> frame(const std::string& name, int n) {
        return samples(name + "." + std::to_string(n) + ".png").values;
    }
};

}  // namespace

TEST_F(CliTime, AClipWithPulldownComesBackFrameByFrame) {
    clip("film", film(24), 24, 11);
    for (const int dominance : {0, 1}) {
        TelecineClip tape;
        tape.dominance = dominance;
        tape.pictures = telecine_pictures({2, 3}, 0, 60);
        clip("tape", tape, 30, 11);
        const Outcome plan =
            render("DeinterlaceAuto -i tape.#.png -o out.#.png -p find_pattern=1 --save-setup found.setup -n");
        EXPECT_NE(plan.out.find("frames   11-34 (24)"), std::string::npos) << plan.out;
        const Outcome ran =
            render("DeinterlaceAuto -i tape.#.png -o out.#.png -p find_pattern=1 --save-setup found.setup");
        ASSERT_EQ(ran.status, 0) << ran.err;
        EXPECT_NE(ran.err.find("30 frames become 24"), std::string::npos) << ran.err;
        EXPECT_FALSE(fs::exists("out.35.png"));
        for (int n = 11; n < 35; n++) EXPECT_EQ(frame("out", n), frame("film", n)) << "frame " << n;
        // What was found serves again, for any part and in any order.
        const Outcome part = render("DeinterlaceAuto -i tape.#.png -o part.#.png --setup found.setup -f 34-30,12");
        ASSERT_EQ(part.status, 0) << part.err;
        for (const int n : {34, 32, 30, 12}) EXPECT_EQ(frame("part", n), frame("film", n)) << "frame " << n;
        const Outcome beyond = render("DeinterlaceAuto -i tape.#.png -o part.#.png --setup found.setup -f 35");
        EXPECT_EQ(beyond.status, 2);
        EXPECT_NE(beyond.err.find("frame 35 does not come out: DeinterlaceAuto makes 11 to 34 of this clip"),
                  std::string::npos)
            << beyond.err;
    }
}

TEST_F(CliTime, ReinterlaceAndBackIsTheClip) {
    clip("film", film(12), 12);
    const std::string cadence = " -p pattern_length=4 -p pattern_1=2 -p pattern_2=3 -p pattern_3=3 -p pattern_4=2";
    const Outcome there = render("Reinterlace -i film.#.png -o tape.#.png" + cadence);
    ASSERT_EQ(there.status, 0) << there.err;
    EXPECT_NE(there.err.find("12 frames become 15"), std::string::npos) << there.err;
    const Outcome back = render("Deinterlace -i tape.#.png -o out.#.png" + cadence);
    ASSERT_EQ(back.status, 0) << back.err;
    for (int n = 1; n <= 12; n++) EXPECT_EQ(frame("out", n), frame("film", n)) << "frame " << n;
    EXPECT_FALSE(fs::exists("out.13.png"));
}

TEST_F(CliTime, OtherFramesComeInAnyOrderAndFromAnyPart) {
    clip("film", film(10), 10);
    write("t.text",
          "(def_effect Back (Source) ()\n  by = 4 (min -100 max 100)\n"
          "  dest = (get_frame Source (- (get_frame_number) by) 0)\n)\n");
    const Outcome ran = render("t.text -i film.#.png -o out.#.png -f 10-7,2,5");
    ASSERT_EQ(ran.status, 0) << ran.err;
    for (const int n : {10, 9, 8, 7, 5}) EXPECT_EQ(frame("out", n), frame("film", n - 4)) << "frame " << n;
    EXPECT_EQ(frame("out", 2), frame("film", 1)) << "nothing lies before the first";
    ASSERT_EQ(render("t.text -i film.#.png -o end.#.png -f 9 -p by=-4").status, 0);
    EXPECT_EQ(frame("end", 9), frame("film", 10)) << "nor behind the last";

    // The frame in hand is there, the one that it is made from is not.
    fs::remove("film.4.png");
    const Outcome gap = render("t.text -i film.#.png -o gap.#.png -f 8,9");
    EXPECT_EQ(gap.status, 1);
    EXPECT_NE(gap.err.find("frame 8: film.#.png: frame 4 is missing"), std::string::npos) << gap.err;
    EXPECT_FALSE(fs::exists("gap.8.png"));
    EXPECT_EQ(frame("gap", 9), frame("film", 5));
    const Outcome held = render("t.text -i film.#.png -o gap.#.png -f 8 --missing hold");
    EXPECT_EQ(held.status, 0) << held.err;
    EXPECT_EQ(frame("gap", 8), frame("film", 3));
}

// Of a movie each frame that is wanted is decoded by itself.
TEST_F(CliTime, MoviesGiveTheirFramesInAnyOrder) {
    clip("film", film(10), 10);
    ASSERT_EQ(render("pass.text -i film.#.png -o film.mkv --codec ffv1").status, 0);
    ASSERT_EQ(render("pass.text -i film.mkv -o whole.#.png").status, 0);
    write("t.text",
          "(def_effect Reverse (Source) ()\n"
          "  dest = (time_warp Source (- 9 (get_frame_number)) 1)\n)\n");
    const Outcome ran = render("t.text -i film.mkv -o out.#.png -f 4,1,10,7,2");
    ASSERT_EQ(ran.status, 0) << ran.err;
    for (const int n : {4, 1, 10, 7, 2}) EXPECT_EQ(frame("out", n), frame("whole", 11 - n)) << "frame " << n;
}
