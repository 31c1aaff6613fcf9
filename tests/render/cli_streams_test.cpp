// Pictures through pipes, and texts that are rendered as they change.
#include "tests/render/cli_rig.h"

using namespace test_cli;
using OIIO::TypeDesc;

TEST_F(Cli, PicturesGoThroughPipes) {
    plate("in.png", 3, TypeDesc::UINT16);
    const std::string program = std::string(VELLORAN_PROGRAM) + " render --config cfg pass.text ";
    for (const auto& [arguments, ending] :
         {std::pair("-", "png"), {"-i - -o -", "png"}, {"-i - -o -.tif", "tif"}, {"-i - -o -.exr", "exr"}}) {
        const std::string out = std::string("out.") + ending;
        Outcome ran = run({"sh", "-c", "cat in.png | " + program + arguments + " > " + out});
        ASSERT_EQ(ran.status, 0) << arguments << ran.err;
        ASSERT_EQ(render(std::string("pass.text -i in.png -o file.") + ending).status, 0);
        EXPECT_EQ(samples(out).values, samples(std::string("file.") + ending).values) << arguments;
    }
    Outcome ran = run({"sh", "-c", "echo junk | " + program + "-"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("velloran: standard input: "), std::string::npos) << ran.err;
    EXPECT_EQ(ran.out, "");
    ran = run({"sh", "-c", "cat in.png | " + program + "- > /dev/full"});
    EXPECT_EQ(ran.status, 1) << ran.err;
    EXPECT_EQ(render("pass.text -i in.png -o - -f 1-2").status, 2);
    EXPECT_EQ(render("pass.text -i in.png -o -.mov").status, 2);
}

TEST_F(Cli, WatchRendersAgainWhenTheTextChanges) {
    picture("in.png", 8, 8, 3, TypeDesc::UINT8, [](int, int, int) { return 200 << 8; });
    const auto text = [](const char* dest) {
        return std::string("(def_effect W (Source) ()\n dest = ") + dest + "\n)\n";
    };
    write("w.text", text("Source"));
    const pid_t pid = start({VELLORAN_PROGRAM, "watch", "--config", "cfg", "w.text", "-i", "in.png", "-o", "o.png"});
    const auto shows = [](int value) {
        for (int i = 0; i < 4000; i++) {
            if (fs::exists("o.png") && samples("o.png").values[0] / 257 == value) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    };
    EXPECT_TRUE(shows(200));
    write("w.text", text("(* Source 0.5)"));
    EXPECT_TRUE(shows(100));
    // A text that cannot be read leaves the picture and is waited over; the next is written beside and renamed.
    write("w.text", text("(nonsense Source)"));
    for (int i = 0; i < 4000 && read_file("stderr.txt").find("nonsense") == std::string::npos; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(samples("o.png").values[0] / 257, 100);
    write("beside", text("(* Source 0.25)"));
    fs::rename("beside", "w.text");
    EXPECT_TRUE(shows(50));
    kill(pid, SIGINT);
    EXPECT_EQ(finish(pid).status, 130);
}
