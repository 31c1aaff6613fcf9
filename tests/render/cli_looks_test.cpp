// Looks, of every effect that comes along and of a text; and the gallery, which shows them all.
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

#include <set>

using namespace test_cli;
using nlohmann::json;

namespace {

constexpr int frames = 16;

// Frames that differ, with slopes, edges, grain and lights: something for every kind of effect.
int moving_scene(int frame, int turn, int x, int y, int c) {
    const int dx = x - 50 - 9 * frame, dy = y - 40 + 12 * turn;
    int value = (x * (c + 2) * 190 + y * (turn + 1) * 290) % 42000;
    if (x + turn * 30 > 100) value /= 3;
    if (dx * dx + dy * dy < 170) value = 65535 - 1500 * c;
    return std::min(65535, value + (x * 7919 + y * 104729 + frame * 31 + c * 17) % 2600);
}

std::string underscored(std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

class Looks : public Cli {
protected:
    void SetUp() override {
        Cli::SetUp();
        write_clip(0);
    }
    static void write_clip(int turn) {
        for (int frame = 1; frame <= frames; frame++)
            picture("in" + std::to_string(turn) + "." + std::to_string(frame) + ".tif", 160, 100, 3,
                    OIIO::TypeDesc::UINT16, [&](int x, int y, int c) { return moving_scene(frame, turn, x, y, c); });
    }
    static json listed(const std::string& what) {
        const Outcome ran = velloran("list " + what + " --json");
        EXPECT_EQ(ran.status, 0) << ran.err;
        return json::parse(ran.out, nullptr, false);
    }
    // Whole pictures are compared as files; a warning is a value that does not fit.
    static std::string rendered(const std::string& effect, size_t inputs, const std::string& rest) {
        std::string line = "render " + effect + " -f 8 -q -o out.tif --length " + std::to_string(frames);
        for (size_t i = 0; i < inputs; i++) line += " -i in" + std::to_string(i) + ".#.tif";
        if (inputs == 0) line += " --size 160x100";
        const Outcome ran = velloran(line + rest);
        EXPECT_EQ(ran.status, 0) << effect << rest << ran.err;
        EXPECT_EQ(ran.err, "") << effect << rest;
        const auto values = samples("out.tif").values;
        return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof values[0]);
    }
};

TEST_F(Looks, OfEveryEffectChangeItsPicture) {
    for (const int turn : {1, 2, 3}) write_clip(turn);
    std::map<std::string, std::set<std::string>> shown;
#ifdef VELLORAN_SANITIZED
    constexpr size_t most = 1;  // what looks show is the plain build's; how they are read shows in one of each family
#else
    constexpr size_t most = SIZE_MAX;
#endif
    const json plugins = listed("");
    for (const json& plugin : plugins) {
        const std::string family = plugin["plugin"];
        const json described = listed(family);
        size_t n = 0;
        for (const json& effect : described["effects"]) {
            if (n++ == most) break;
            const std::string name = family + ":" + underscored(effect["name"]);
            // Transitions are looked at on their way, and some have nothing else to set.
            const bool moves = std::any_of(effect["params"].begin(), effect["params"].end(),
                                           [](const json& param) { return param.contains("moves"); });
            EXPECT_TRUE(!effect["looks"].empty() || (moves && effect["params"].size() == 1)) << name << " has no look";
            const std::string on_the_way = moves ? " -p transition=0.4" : "";
            std::set<std::string> pictures = {rendered(name, effect["inputs"].size(), on_the_way)};
            for (const json& look : effect["looks"]) {
                const std::string rest = on_the_way + " --look " + look["name"].get<std::string>();
                EXPECT_TRUE(pictures.insert(rendered(name, effect["inputs"].size(), rest)).second)
                    << name << rest << ": looks like another";
                EXPECT_NE(look["note"], "") << name << rest;
                shown[family].insert(underscored(effect["name"]) + ":" + look["name"].get<std::string>());
            }
        }
    }
    // A look whose effect has gone is shown nowhere.
    if (most == 1) return;
    for (const auto& file : fs::directory_iterator(LOOKS_DIRECTORY)) {
        std::istringstream text(read_file(file.path()));
        for (std::string line; std::getline(text, line);)
            if (!line.empty() && line[0] != ' ' && line[0] != '/') {
                EXPECT_TRUE(shown[file.path().stem()].count(line)) << file.path() << ": " << line;
            }
    }
}

TEST_F(Looks, StandBesideATextAndCountLessThanTheCommandLine) {
    write("my.looks", "// Darker.\nGain:Dim\n  amount=0.5 tint=1,1,0.5\n\nGain:Other\n  mode=fully_on\tamount=2\n");
    const std::string plain = rendered("my.text:Gain", 1, " -p amount=0.5 -p tint=1,1,0.5");
    EXPECT_EQ(rendered("my.text:Gain", 1, " --look dim"), plain);
    EXPECT_EQ(rendered("my.text:Gain", 1, " --look Other -p amount=0.5 -p tint=1,1,0.5"), plain);
    EXPECT_NE(velloran("list my.text:Gain").out.find("Dim    Darker."), std::string::npos);
    // A place stands at the same share of the frame.
    write("spot.text",
          "(def_effect Spot (Source)\n  center = [0 0] (screen_center_to_norm)\n  dest = (* Source (dist xy "
          "center))\n)\n");
    write("spot.looks", "Spot:Aside\n  center=480,-270\n");
    EXPECT_EQ(rendered("spot.text", 1, " --look Aside"), rendered("spot.text", 1, " -p center=40,-25"));
}

TEST_F(Looks, ThatAreDamagedAreRefusedWithTheirPlace) {
    const std::vector<std::pair<std::string, std::string>> damaged = {
        {"Gain\n  amount=1\n", "my.looks:1: 'Gain' is not of the form EFFECT:LOOK"},
        {"  amount=1\nGain:Dim\n", "my.looks:1: values stand below the name of a look"},
        {"Gain:Dim\n  amount 1\n", "my.looks:2: 'amount' is not of the form NAME=VALUE"},
        {"Gain:Dim\n  amuont=1\n", "my.looks:1: there is no param 'amuont'; did you mean 'amount'?"},
        {"Gain:Dim\n  amount=a\n", "my.looks:1: 'a' is no number for amount"},
        {"Gain:Dim\n  amount=1 amount=2\n", "my.looks:1: amount is given twice"},
        {"Gain:Dim\n\ngain:dim\n", "my.looks:3: there is a look gain:dim already"},
        {std::string("Gain:D\0im\n", 10), "has no look 'Dim'"},
        {"Gain:Dam\n", "'my:Gain' has no look 'Dim'; did you mean 'Dam'?"},
        {"", "'my:Gain' has no look 'Dim'"}};
    for (const auto& [text, message] : damaged) {
        write("my.looks", text);
        const Outcome ran = velloran("render my.text:Gain -i in0.1.tif -o out.tif --look Dim");
        EXPECT_EQ(ran.status, 2) << text << ran.err;
        EXPECT_NE(ran.err.find(message), std::string::npos) << text << ran.err;
        EXPECT_FALSE(fs::exists("out.tif"));
    }
    write("my.looks", "Gain:Dim\n  amount=0.5\n");
    ASSERT_EQ(velloran("render my.text:Gain -i in0.1.tif -o out.tif --look Dim --save-setup s.setup").status, 0);
    EXPECT_EQ(velloran("render my.text:Gain -i in0.1.tif -o b.tif --look Dim --setup s.setup").status, 2);
    // A changed look makes another picture, which --skip-existing sees.
    ASSERT_EQ(velloran("render my.text:Gain -i in0.1.tif -o c.png --look Dim").status, 0);
    const std::string before = read_file("c.png");
    write("my.looks", "Gain:Dim\n  amount=0.25\n");
    ASSERT_EQ(velloran("render my.text:Gain -i in0.1.tif -o c.png --look Dim --skip-existing").status, 0);
    EXPECT_NE(read_file("c.png"), before);
}

TEST(Gallery, ShowsEveryEffectAndNoOther) {
    const std::string command = std::string(VELLORAN_PROGRAM) + " list --json";
    FILE* const pipe = popen(command.c_str(), "r");
    ASSERT_TRUE(pipe);
    const json all = json::parse(pipe, nullptr, false);
    EXPECT_EQ(pclose(pipe), 0);
    const fs::path gallery = GALLERY_DIRECTORY;
    const std::string index = read_file(gallery / "README.md");
    std::set<std::string> pages = {"README", "index"};
    for (const json& plugin : all)
        for (const json& effect : plugin["effects"]) {
            const std::string page = plugin["plugin"].get<std::string>() + "." + underscored(effect);
            pages.insert(page);
            EXPECT_NE(index.find("\"" + page + ".md\""), std::string::npos) << page << ": run scripts/gallery --pages";
            EXPECT_TRUE(fs::exists(gallery / "pictures" / (page + ".jpg"))) << page;
        }
    for (const auto& file : fs::directory_iterator(gallery)) {
        const std::string kind = file.path().extension();
        if (kind == ".md" || kind == ".html") {
            EXPECT_TRUE(pages.count(file.path().stem())) << file.path();
        }
        if (kind != ".md") continue;
        // What a page shows is there.
        const std::string text = read_file(file.path());
        for (size_t at = 0; (at = text.find("src=\"", at)) != std::string::npos;) {
            at += 5;
            const std::string shown = text.substr(at, text.find('"', at) - at);
            EXPECT_TRUE(fs::exists(gallery / shown)) << file.path() << ": " << shown;
        }
    }
}

}  // namespace
