// `velloran handles`: a real OpenGL viewer without a window, judged by where its lines are.
#include "tests/render/cli_rig.h"

#include <cmath>
#include <functional>

using namespace test_cli;

namespace {

constexpr const char* disc =
    "(def_effect Disc (Source)\n"
    "  center = [0.2 0.1] (min -4 max 4 step 0.01 widget center_radius)\n"
    "  radius = 0.5 (min 0 max 4 step 0.01 widget center_radius)\n"
    "  far = (mag (- xy center))\n"
    "  dest = (* Source (if> far radius 0 0.25))\n)\n";

bool bright(const Samples& s, int x, int y) { return std::max({s.at(x, y, 0), s.at(x, y, 1), s.at(x, y, 2)}) > 30000; }

// Whether something is drawn within two pixels of a place, y down.
bool drawn_near(const Samples& s, double x, double y) {
    for (int dy = -2; dy <= 2; dy++)
        for (int dx = -2; dx <= 2; dx++) {
            const int px = static_cast<int>(std::lround(x)) + dx, py = static_cast<int>(std::lround(y)) + dy;
            if (px >= 0 && py >= 0 && px < s.width && py < s.height && bright(s, px, py)) return true;
        }
    return false;
}

// The rim is drawn all around, and nothing is but for it and the cross.
void expect_disc(const Samples& s, double x, double y, double radius, double cross) {
    for (int i = 0; i < 360; i += 3) {
        const double angle = i * M_PI / 180;
        EXPECT_TRUE(drawn_near(s, x + radius * std::cos(angle), y + radius * std::sin(angle))) << i;
    }
    EXPECT_TRUE(drawn_near(s, x + cross * 0.9, y));
    EXPECT_TRUE(drawn_near(s, x, y - cross * 0.9));
    int astray = 0;
    for (int py = 0; py < s.height; py++)
        for (int px = 0; px < s.width; px++) {
            const double far = std::hypot(px - x, py - y);
            astray += bright(s, px, py) && far > cross + 3 && std::fabs(far - radius) > 3.5;
        }
    EXPECT_EQ(astray, 0);
}

}  // namespace

TEST_F(Cli, HandlesAreDrawnWhereTheValuesAre) {
    write("disc.text", disc);
    picture("grey.png", 200, 160, 3, OIIO::TypeDesc::UINT8, [](int, int, int) { return 40000; });
    const auto handles = [](const std::string& words) {
        const Outcome ran = velloran("handles --config cfg disc.text " + words);
        EXPECT_EQ(ran.status, 0) << ran.err;
        return samples("o.png");
    };
    // Half the width is 100 pixels; the middle is (100, 80), y up.
    Samples s = handles("grey.png -o o.png");
    ASSERT_EQ(s.width, 200);
    expect_disc(s, 120, 70, 50, 15);
    EXPECT_EQ(s.at(120 + 30, 70, 0), s.at(120 + 30, 75, 0)) << "the picture is beneath";
    EXPECT_GT(s.at(120 + 30, 70, 0), 5000);
    EXPECT_EQ(s.at(10, 10, 0), 0);
    // As the values say, also without a picture.
    expect_disc(handles("--size 200x160 -p center=0,0 -p radius=0.6 -o o.png"), 100, 80, 60, 15);
    // In another zoom the cross keeps its size.
    s = handles("grey.png --zoom 2 -o o.png");
    ASSERT_EQ(s.width, 400);
    expect_disc(s, 240, 140, 100, 15);
    s = handles("grey.png --zoom 0.5 -o o.png");
    ASSERT_EQ(s.width, 100);
    expect_disc(s, 60, 35, 25, 15);
    // Dragged by its rim to the right: the picture is that of the new radius, the handle where the pen is.
    s = handles("grey.png --pen 170,90,180,90 -o o.png");
    expect_disc(s, 120, 70, 60, 15);
    EXPECT_GT(s.at(120, 70 - 55, 0), 5000);
    EXPECT_GT(s.at(180, 70, 0), s.at(180, 70, 2) * 2) << "yellow or red under the pen";
    // The crop's handle comes by its control.
    s = handles("grey.png -c crop_view=1 -o o.png");
    EXPECT_TRUE(drawn_near(s, 100, 159));
}

TEST_F(Cli, HandlesSayWhatIsWrong) {
    write("disc.text", disc);
    plate("in.png");
    const struct {
        const char *arguments, *says;
    } rows[] = {
        {"handles pass.text in.png -o o.png", "has no handles"},
        {"handles disc.text in.png", "--output is required"},
        {"handles disc.text in.png -o o.mov", "no movie"},
        {"handles disc.text in.png -o o.bmp", "the ending must be"},
        {"handles disc.text gone.png -o o.png", "gone.png: No such file"},
        {"handles disc.text in.png -o o.png --pen 1,2,3", "give pairs"},
        {"handles disc.text in.png -o o.png --pen 1,nan", "give numbers"},
        {"handles disc.text in.png -o o.png --zoom 99", "--zoom"},
        {"handles disc.text in.png -o in.png", "is also an input"},
        {"handles disc.text --size 9000x20 -o o.png", "8192 is the most"},
        {"handle disc.text in.png -o o.png", "did you mean 'handles'"},
    };
    for (const auto& row : rows) {
        const Outcome ran = velloran(std::string(row.arguments) + (row.arguments[6] == 's' ? " --config cfg" : ""));
        EXPECT_EQ(ran.status, 2) << row.arguments;
        EXPECT_NE(ran.err.find(row.says), std::string::npos) << row.arguments << ": " << ran.err;
        EXPECT_FALSE(fs::exists("o.png")) << row.arguments;
    }
}

// The viewer is a module, which lies beside the program in the build and in a directory of its own once installed.
TEST_F(Cli, HandlesTakeTheModuleOfTheirOwnPlaceOrSayWhyNot) {
    write("disc.text", disc);
    const fs::path built = fs::path(VELLORAN_PROGRAM).parent_path().parent_path();
    const char* const module = "velloran_offscreen.so";
    for (const char* const directory : {"lib", "lib/velloran"}) {
        SCOPED_TRACE(directory);
        const fs::path place = dir / "installed", program = place / "bin" / "velloran";
        fs::remove_all(place);
        for (const char* const made : {"bin", directory}) fs::create_directories(place / made);
        fs::copy_file(VELLORAN_PROGRAM, program);
        fs::create_directory_symlink(built / "plugins", place / "plugins");
        const auto handles = [&] {
            fs::remove("o.png");
            return run(
                {program.string(), "handles", "--config", "cfg", "disc.text", "--size", "200x160", "-o", "o.png"});
        };
        // One that is damaged is named, though the search path has another; nothing is left.
        write(place / directory / module, "no module");
        Outcome ran = handles();
        EXPECT_EQ(ran.status, 2);
        EXPECT_NE(ran.err.find((fs::path(directory) / module).string() + ": "), std::string::npos) << ran.err;
        EXPECT_EQ(ran.err.find("No such file"), std::string::npos) << ran.err;
        EXPECT_FALSE(fs::exists("o.png"));
        fs::remove(place / directory / module);
        fs::create_symlink(built / "lib" / module, place / directory / module);
        ran = handles();
        ASSERT_EQ(ran.status, 0) << ran.err;
        expect_disc(samples("o.png"), 120, 70, 50, 15);
    }
}
