// Frames through standard input and output, between two ffmpeg processes and by themselves.
#include "tests/render/cli_rig.h"

using namespace test_cli;
using OIIO::TypeDesc;

namespace {

const std::string program = std::string(VELLORAN_PROGRAM) + " render --config cfg -q ";
constexpr const char* quiet_ffmpeg = "ffmpeg -nostdin -v error -y ";

// A pass over what is printed: as many bytes as frames of that size, and a pattern in each.
std::string frames_of(int n, size_t bytes) {
    std::string all;
    for (int i = 0; i < n; i++)
        for (size_t k = 0; k < bytes; k++) all += static_cast<char>((k * 7 + static_cast<size_t>(i) * 31) & 0xff);
    return all;
}

}  // namespace

TEST_F(Cli, FramesGoThroughPipesBetweenTwoPrograms) {
    const std::string make = std::string(quiet_ffmpeg) + "-f lavfi -i testsrc2=s=64x36:r=25:d=0.16,format=rgb24 ";
    struct Case {
        const char *in, *ours, *out;
    };
    for (const Case& c : {Case{"-f rawvideo -pix_fmt rgb24 -", "-i -.rgb24 --size 64x36 --fps 25 -o -",
                               "-f rawvideo -pix_fmt rgb24 -s 64x36 -r 25 -i -"},
                          {"-f rawvideo -pix_fmt rgb48le -", "-i -.rgb48le --size 64x36 -o -.rgb24",
                           "-f rawvideo -pix_fmt rgb24 -s 64x36 -i -"},
                          {"-f rawvideo -pix_fmt rgba -", "-i -.rgba --size 64x36 -o -.rgba",
                           "-f rawvideo -pix_fmt rgba -s 64x36 -i -"},
                          {"-f yuv4mpegpipe -pix_fmt yuv444p -", "-", "-i -"},
                          {"-f yuv4mpegpipe -pix_fmt yuv420p -", "-i - -o -.y4m", "-i -"},
                          {"-f yuv4mpegpipe -strict -1 -pix_fmt yuv422p10le -", "-i - -o -", "-i -"}}) {
        fs::remove_all("o");
        fs::create_directory("o");
        const Outcome ran =
            run({"bash", "-c",
                 "set -o pipefail; " + make + c.in + " | " + program + "pass.text " + c.ours + " | " + quiet_ffmpeg +
                     c.out + " -pix_fmt rgb24 o/%d.png && " + make + "-pix_fmt rgb24 o/r%d.png"});
        ASSERT_EQ(ran.status, 0) << c.in << ran.err;
        ASSERT_EQ(files("o").size(), 8u) << c.in;
        for (int i = 1; i <= 4; i++) {
            const Samples a = samples("o/" + std::to_string(i) + ".png"),
                          b = samples("o/r" + std::to_string(i) + ".png");
            ASSERT_EQ(a.values.size(), b.values.size());
            double off = 0;
            for (size_t k = 0; k < a.values.size(); k++)
                off += std::abs(a.values[k] / 257.0 - b.values[k] / 257.0) / static_cast<double>(a.values.size());
            // Bare colours stay as they are, but for what ffmpeg does to them on the way to 16 bits; colours that four
            // or two pixels share blur.
            const std::string in = c.in;
            const double most = in.find("rgb48") != std::string::npos      ? 0.2
                                : in.find("rawvideo") != std::string::npos ? 0
                                : in.find("yuv42") != std::string::npos    ? 12
                                                                           : 1.5;
            EXPECT_LE(off, most) << c.in << " frame " << i;
        }
    }
}

TEST_F(Cli, PipesFeedFilesAndFilesPipes) {
    for (int i = 1; i <= 3; i++) plate("in." + std::to_string(i) + ".png", i, TypeDesc::UINT16);
    Outcome ran = run({"bash", "-c", program + "pass.text -i in.%d.png -o -.rgb48le > raw"});
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(fs::file_size("raw"), 3u * 37 * 23 * 6);
    ran = run({"bash", "-c", program + "pass.text -i -.rgb48le --size 37x23 --first 101 -o out.%d.png < raw"});
    ASSERT_EQ(ran.status, 0) << ran.err;
    for (int i = 1; i <= 3; i++) {
        ASSERT_EQ(render("pass.text -i in." + std::to_string(i) + ".png -o ref.png").status, 0);
        EXPECT_EQ(samples("out." + std::to_string(100 + i) + ".png").values, samples("ref.png").values);
    }
    EXPECT_FALSE(fs::exists("out.104.png"));
    ran =
        run({"bash", "-c",
             program + "pass.text -i -.rgb48le --size 37x23 -o o.mkv < raw && " + quiet_ffmpeg + "-i o.mkv m.%d.png"});
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_TRUE(fs::exists("m.3.png") && !fs::exists("m.4.png"));
    // A second input beside the pipe, and only some of the frames.
    ran = run(
        {"bash", "-c", program + "two.text -i Front=-.rgb48le -i Back=in.2.png --size 37x23 -f 1,3 -o t.%d.png < raw"});
    ASSERT_EQ(ran.status, 0) << ran.err;
    ASSERT_EQ(render("pass.text -i in.2.png -o ref.png").status, 0);
    EXPECT_EQ(samples("t.3.png").values, samples("ref.png").values);
    EXPECT_FALSE(fs::exists("t.2.png"));
}

// Sizes from one pixel on, and pipes cut at every byte: whole frames come out, and the exit tells the truth.
TEST_F(Cli, PipesCutAnywhereAreSeen) {
    const auto through = [&](const std::string& bytes, const std::string& arguments) {
        write("bytes", bytes);
        return run({"bash", "-c", program + "pass.text " + arguments + " < bytes"});
    };
    for (const auto& [width, height] : {std::pair(1, 1), {2, 1}, {1, 2}, {5, 3}}) {
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const size_t bytes = static_cast<size_t>(width * height * 3);
        const std::string all = frames_of(2, bytes);
        const Outcome whole = through(all, "-i -.rgb24 --size " + size + " -o -");
        EXPECT_EQ(whole.status, 0) << whole.err;
        EXPECT_EQ(whole.out, all) << size;
    }
    const std::string raw = frames_of(2, 2 * 1 * 3);
    for (size_t cut = 0; cut < raw.size(); cut++) {
        const Outcome ran = through(raw.substr(0, cut), "-i -.rgb24 --size 2x1 -o -");
        EXPECT_EQ(ran.status, cut == 0 ? 2 : cut == 6 ? 0 : 1) << cut << ran.err;
        EXPECT_EQ(ran.out, raw.substr(0, cut / 6 * 6)) << cut;
    }
    const std::string header = "YUV4MPEG2 W2 H2 F25:1 Ip A1:1 C420jpeg\n";
    const std::string frame = "FRAME\n" + frames_of(1, 6), y4m = header + frame + frame;
    const Outcome whole = through(y4m, "-i - -o -.rgb24");
    ASSERT_EQ(whole.status, 0) << whole.err;
    ASSERT_EQ(whole.out.size(), 24u);
    for (size_t cut = 5; cut < y4m.size(); cut += cut < header.size() ? 17 : 3) {
        const Outcome ran = through(y4m.substr(0, cut), "-i - -o -.rgb24");
        const size_t frames = cut < header.size() ? 0 : (cut - header.size()) / frame.size();
        const bool at_end = cut >= header.size() && (cut - header.size()) % frame.size() == 0;
        EXPECT_EQ(ran.status, cut <= header.size() ? 2 : at_end ? 0 : 1) << cut << ran.err;
        EXPECT_EQ(ran.out, whole.out.substr(0, frames * 12)) << cut;
    }
    for (const char* bad : {"YUV4MPEG2 W2\nFRAME\n", "YUV4MPEG2 W0 H2\nFRAME\n", "YUV4MPEG2 W2 H-2\nFRAME\n",
                            "YUV4MPEG2 W99999999 H2\nFRAME\n", "YUV4MPEG2 W2 H2 Cmono\nFRAME\n",
                            "YUV4MPEG2 W2 H2 C420p11\nFRAME\n", "YUV4MPEG2X W2 H2\nFRAME\n"})
        EXPECT_EQ(through(bad, "-i - -o -.rgb24").status, 2) << bad;
    EXPECT_EQ(through("YUV4MPEG2 W2 H2\nFROME\n123456", "-i - -o -.rgb24").status, 1);
}

TEST_F(Cli, PipesSayWhatTheyCannotDo) {
    write("other.text", "(def_effect Other (Source) ()\n dest = (get_frame Source 1 1)\n)\n");
    const auto says = [&](const std::string& arguments, const std::string& words, int status = 2) {
        write("bytes", frames_of(3, 12));
        const Outcome ran = run({"bash", "-c", program + arguments + " < bytes"});
        EXPECT_EQ(ran.status, status) << arguments << ran.err;
        EXPECT_NE(ran.err.find(words), std::string::npos) << arguments << "\n" << ran.err;
    };
    says("pass.text -i -.rgb24 -o -", "--size WIDTHxHEIGHT");
    says("pass.text -i -.bgr24 --size 2x2 -o -", "frames come in as y4m, rgb24");
    says("pass.text -i -.gray --size 2x2 -o -", "frames have colours");
    says("pass.text -i -.rgb24 --size 2x2 -o o.png", "need a place for the number");
    says("pass.text -i -.rgb24 --size 2x2 -o - -n", "--dry-run");
    says("pass.text -i -.rgb24 --size 2x2 -o o.%d.png --skip-existing", "--skip-existing");
    says("pass.text -i -.rgb24 --size 2x2 -o - -f 2,1", "in their order");
    says("pass.text -i -.rgb24 --size 2x2 --length 2 -o - -f 2,3", "1 to 2");
    says("two.text -i -.rgb24 -i -.rgb24 --size 2x2 -o -", "one input only");
    says("pass.text -i -.rgb24 --size 2x2 --length 4 -o o.%d.png", "ends before this frame", 1);
    says("pass.text -i -.rgb24 --size 2x2 -o - > /dev/full", "standard output cannot be written", 1);
    says("other.text -i -.rgb24 --size 2x2 -o -", "looks at other frames");
}

// Who reads no further ends the run, and a killed neighbour leaves nothing half.
TEST_F(Cli, ProgramsBesideThePipeMayGo) {
    Outcome ran = run({"bash", "-c",
                       "yes | " + program +
                           "pass.text -i -.rgb24 --size 64x64 -o - | head -c 100000 > o; "
                           "echo ${PIPESTATUS[1]}"});
    EXPECT_EQ(ran.out, "1\n") << ran.err;
    fs::create_directory("f");
    ran = run({"bash", "-c",
               "(yes & sleep 1; kill $!) | " + program +
                   "pass.text -i -.rgb24 --size 640x640 -o f/%d.png; echo ${PIPESTATUS[1]}"});
    EXPECT_TRUE(ran.out == "1\n" || ran.out == "0\n") << ran.out << ran.err;  // cut within a frame, or between two
    for (const std::string& name : files("f")) samples("f/" + name);
}
