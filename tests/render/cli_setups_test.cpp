// Setup files of `velloran render`: the values come back, and only into the effect that they belong to.
#include "tests/render/cli_rig.h"

using namespace test_cli;
using OIIO::TypeDesc;

TEST_F(Cli, SetupsBringEveryValueBack) {
    for (int frame = 11; frame <= 13; frame++) plate("in." + std::to_string(frame) + ".png", frame);
    write(
        "all.text",
        "(def_effect All (Source) ()\n  amount = 1 (min 0 max 4)\n  mode = 1 (popup off fully_on)\n"
        "  tint = [1 1 1] (color)\n  pair = [0 0] (min -4 max 4)\n  flag = 0 (boolean)\n  count = 2 (int min 0 max 9)\n"
        "  words = 0 (string)\n  dest = (+ (* (* Source amount) (* tint mode)) (* 0.02 (+ (+ (mag pair) flag) "
        "count)))\n)\n");
    const std::string values =
        " -p amount=0.25@11,2@13 -p tint=1,0.5,0.2 -p mode=1 -p pair=0.5,1.5 -p flag=on -p count=7 -c res_factor=2 "
        "-c crop=3,20,30,2 -c surround_color=0.1,0.2,0.3 ";
    Outcome ran = render("all.text -i in.#.png -o a.#.png --save-setup s.setup" + values);
    ASSERT_EQ(ran.status, 0) << ran.err;
    ran = render("all.text -i in.#.png -o b.#.png --setup s.setup");
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.err.find("warning"), std::string::npos) << ran.err;
    for (int frame = 11; frame <= 13; frame++) {
        const std::string end = "." + std::to_string(frame) + ".png";
        EXPECT_EQ(samples("a" + end).values, samples("b" + end).values) << frame;
        EXPECT_NE(samples("a" + end).values, samples("in" + end).values);
    }
    // The command line counts more, and what is written again is what was read.
    ASSERT_EQ(render("all.text -i in.11.png -o c.png --setup s.setup -p flag=off -p amount=1").status, 0);
    ASSERT_EQ(render("all.text -i in.#.png -o b.#.png --setup s.setup --save-setup t.setup").status, 0);
    EXPECT_EQ(read_file("s.setup"), read_file("t.setup"));
}

// Cut at any byte, or another effect's: refused, in words, and nothing is rendered.
TEST_F(Cli, SetupsThatAreNotWholeOrNotOursAreRefused) {
    plate("in.png");
    ASSERT_EQ(render("my.text:Gain -i in.png -o a.png -p amount=0.25 --save-setup s.setup").status, 0);
    const std::string whole = read_file("s.setup");
    for (size_t bytes = 0; bytes < whole.size(); bytes += 1 + bytes / 2) {
        write("cut.setup", whole.substr(0, bytes));
        const Outcome ran = render("my.text:Gain -i in.png -o b.png --setup cut.setup");
        EXPECT_EQ(ran.status, 2) << bytes << ran.err;
        EXPECT_NE(ran.err.find("cut.setup: "), std::string::npos) << bytes << ran.err;
    }
    write("cut.setup", whole.substr(0, whole.size() - 1));
    EXPECT_EQ(render("my.text:Gain -i in.png -o b.png --setup cut.setup").status, 2);
    const Outcome ran = render("my.text:Pass_Through -i in.png -o b.png --setup s.setup");
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("s.setup: is a setup of my:Gain, not of my:Pass_Through"), std::string::npos) << ran.err;
    EXPECT_FALSE(fs::exists("b.png"));
}

TEST_F(Cli, SetupsOfAnEffectThatChangedSayWhatIsLost) {
    plate("in.png");
    ASSERT_EQ(render("my.text:Gain -i in.png -o a.png -p amount=0.5 --save-setup s.setup").status, 0);
    write("my.text",
          "(def_effect Gain (Source) ()\n  amuont = 1 (min 0 max 4)\n  mode = 1 (popup off fully_on)\n"
          "  tint = [1 1 1] (color)\n  dest = (* (* Source amuont) (* tint mode))\n)\n");
    const Outcome ran = render("my.text:Gain -i in.png -o b.png --setup s.setup");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_NE(ran.err.find("no param 'amount' any more, its value is left out; did you mean 'amuont'?"),
              std::string::npos)
        << ran.err;
    EXPECT_NE(ran.err.find("does not name amuont, which keeps its default"), std::string::npos) << ran.err;
    EXPECT_EQ(samples("b.png").values, samples("in.png").values);
}

TEST_F(Cli, SetupsOfOlderFormsAreRead) {
    picture("in.png", 4, 3, 3, TypeDesc::UINT8, [](int, int, int) { return 200 << 8; });
    // The library's own: effects, the selected one, then each effect's params and its list of handles, then the
    // standard controls and the frame's size.
    const std::string own = "Velloran-save-file 4\n1 0\n3  0.5 1 16777215\nw 0\n";
    const std::string rest = " 4 0 0 0 0 0 0 0 3 4 0 0 0 0 0 0 0 0 1 0\n4 3\n";
    write("one.text",
          "(def_effect Gain (Source) ()\n  amount = 1 (min 0 max 4)\n  mode = 1 (popup off fully_on)\n"
          "  tint = [1 1 1] (color)\n  dest = (* (* Source amount) (* tint mode))\n)\n");
    write("own.setup", own + rest);
    Outcome ran = render("one.text -i in.png -o a.png --setup own.setup");
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_NEAR(samples("a.png").values[0] / 257, 100, 1);
    for (const std::string& bad : {own.substr(0, 30), own, std::string("Velloran-save-file 4\n2 0\n")}) {
        write("own.setup", bad);
        EXPECT_EQ(render("one.text -i in.png -o b.png --setup own.setup").status, 2) << bad;
        EXPECT_FALSE(fs::exists("b.png"));
    }
    // A host's, by the numbers of controls.
    const std::string host = "frameWidth 4\nframeHeight 3\nSPARK_CHANNEL 6\n\tChannel float\n\tConstant 0.25\nEnd\n";
    write("host.setup", host);
    ran = render("one.text -i in.png -o c.png --setup host.setup");
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_NE(ran.err.find("does not say which effect"), std::string::npos) << ran.err;
    EXPECT_NEAR(samples("c.png").values[0] / 257, 50, 1);
    write("host.setup", host.substr(0, host.size() - 4));
    EXPECT_EQ(render("one.text -i in.png -o d.png --setup host.setup").status, 2);
}
