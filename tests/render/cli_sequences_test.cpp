// Sequences: many frames on their way at once.
#include "tests/render/cli_rig.h"

#include <map>

using namespace test_cli;
using OIIO::TypeDesc;

TEST_F(Cli, FramesBesideEachOtherComeOutInOrder) {
    fs::create_directory("o");
    for (int i = 1; i <= 20; i++) plate("in." + std::to_string(i) + ".png", i);
    for (const char* threads : {"1", "2", "7"}) {
        const Outcome ran =
            render(std::string("pass.text -i in.%d.png -o o/#.png --stats --progress json -j ") + threads);
        ASSERT_EQ(ran.status, 0) << ran.err;
        size_t at = 0;
        for (int i = 1; i <= 20; i++) {
            EXPECT_EQ(samples("o/" + std::to_string(i) + ".png").values,
                      samples("in." + std::to_string(i) + ".png").values);
            at = ran.err.find("\"rendered\",\"frame\":" + std::to_string(i) + ",", at);
            ASSERT_NE(at, std::string::npos) << i << ran.err;
        }
        EXPECT_NE(ran.err.find("bound by"), std::string::npos) << ran.err;
    }
}

// A frame that fails amid others: those before it are there, and what is said of each is true.
TEST_F(Cli, AFailureAmidFramesBesideEachOther) {
    for (int i = 1; i <= 12; i++) plate("in." + std::to_string(i) + ".png", i);
    const std::string whole = read_file("in.6.png");
    write("in.6.png", whole.substr(0, whole.size() / 2));
    for (const bool go_on : {true, false}) {
        fs::remove_all("o");
        fs::create_directories("o/8.png");  // a name that a file cannot take
        const Outcome ran = render(std::string("pass.text -i in.%d.png -o o/#.png -j 4 --progress json --on-error ") +
                                   (go_on ? "continue" : "stop"));
        EXPECT_EQ(ran.status, 1) << ran.err;
        for (int i = 1; i <= 12; i++) {
            const std::string said = "\"rendered\",\"frame\":" + std::to_string(i) + ",";
            const bool there = fs::is_regular_file("o/" + std::to_string(i) + ".png");
            EXPECT_EQ(there, ran.err.find(said) != std::string::npos) << i << ran.err;
            EXPECT_EQ(there, i < 6 || (go_on && i != 6 && i != 8)) << i << ran.err;
        }
    }
}

TEST_F(Cli, CompressionIsChosen) {
    picture("in.png", 200, 100, 3, TypeDesc::UINT16,
            [](int x, int y, int c) { return (x * 90 + y * 40 + c * 9) & ~15; });
    for (const char* ending : {"png", "tif", "exr"}) {
        std::map<std::string, uintmax_t> sizes;
        for (const std::string word : {"", "none", "fast", "small"}) {
            const std::string out = "o" + word + "." + ending;
            const Outcome ran = render("my.text -i in.png -o " + out + (word.empty() ? "" : " --compression " + word));
            ASSERT_EQ(ran.status, 0) << ran.err;
            EXPECT_EQ(samples(out).values, samples(std::string("o.") + ending).values);
            sizes[word] = fs::file_size(out);
        }
        EXPECT_LT(sizes["fast"], sizes["none"]) << ending;
        EXPECT_LT(sizes["small"], sizes["fast"]) << ending;
        EXPECT_EQ(sizes[""] > sizes["fast"], ending == std::string("tif"));
    }
    EXPECT_EQ(render("pass.text -i in.png -o o.png --compression most").status, 2);
}
