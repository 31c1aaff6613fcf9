// How `velloran` ends and what it says when something is wrong, and that nothing unfinished stays.
#include "tests/render/cli_rig.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include <set>

using namespace test_cli;
using OIIO::TypeDesc;
using Names = std::vector<std::string>;

TEST_F(Cli, WrongUsageNamesTheThingAndTheNearestRightOne) {
    plate("in.png");
    plate("other.png");
    picture("small.png", 5, 5, 3, TypeDesc::UINT8, [](int, int, int) { return 0; });
    write("empty.png", "");
    write("noise.png", "this is no picture");
    const std::string whole = read_file("in.png");
    write("cut.png", whole.substr(0, whole.size() / 2));
    write("bad.text", "(def_effect Bad (Source) ()\n dest = (blurr Source)\n)\n");
    write("zero.text", std::string("(def_effect A (Source)\0 ()", 26));
    write("blank.text", "nothing here\n");
    fs::create_directory("folder.png");
    const struct {
        const char* arguments;
        const char* says;
    } rows[] = {
        {"", "subcommand"},
        {"rendr", "did you mean 'render'"},
        {"render my.text -i in.png -o o.png --theads 4", "did you mean '--threads'"},
        {"render", "an effect is needed"},
        {"render gone.text -i in.png -o o.png", "gone.text: No such file or directory"},
        {"render nosuch -i in.png -o o.png", "no plug-in or file 'nosuch'"},
        {"render my.text:Gian -i in.png -o o.png", "did you mean 'Gain'"},
        {"render my.text: -i in.png -o o.png", "name is missing"},
        {"render bad.text -i in.png -o o.png", "bad.text:2:"},
        {"render zero.text -i in.png -o o.png", "zero byte"},
        {"render blank.text -i in.png -o o.png", "blank.text"},
        {"render my.text -o o.png", "input 'Source' is missing"},
        {"render my.text -i in.png -i other.png -o o.png", "one input too many"},
        {"render two.text -i Frnt=in.png -i Back=in.png -o o.png", "did you mean 'Front'"},
        {"render two.text -i Front=in.png -i Front=in.png -o o.png", "given twice"},
        {"render two.text -i in.png -i small.png -o o.png", "small.png: is 5x5, but in.png is 37x23"},
        {"render my.text -i gone.png -o o.png", "gone.png: No such file or directory"},
        {"render my.text -i gone.####.png -o o.png", "gone.####.png: no files of this sequence"},
        {"render my.text -i empty.png -o o.png", "empty.png: the file is empty"},
        {"render my.text -i noise.png -o o.png", "noise.png: "},
        {"render my.text -i folder.png -o o.png", "folder.png: Is a directory"},
        {"render my.text -i in%s.png -o o.png", "in%s.png: '%' must begin"},
        {"render my.text -i in.png", "-o PATH"},
        {"render my.text -i in.png -o o.bmp", "o.bmp: the ending must be"},
        {"render my.text -i in.png -o o.mov --codec nosuch", "no encoder 'nosuch'"},
        {"render my.text -i in.png -o o.png --codec ffv1", "--codec is for movies"},
        {"render my.text -i in.png -o o.%d.mov", "a movie holds all frames in one file"},
        {"render my.text -i in.png -o o.png -f 3 --first 1 --length 2", "frame 3 is not in the clip"},
        {"render my.text -i in.png -o o.png --preroll x", "--preroll 'x'"},
        {"render my.text -i in.png -o o", "o: the ending must be"},
        {"render my.text -i in.png -o nowhere/o.png", "nowhere: No such file or directory"},
        {"render my.text -i in.png -o folder.png", "folder.png: Is a directory"},
        {"render my.text -i in.png -o in.png", "in.png: is also an input"},
        {"render my.text -i in.png -o o.png -f 1-3", "need a place for the number in the name, such as o.%04d.png"},
        {"render my.text -i in.png -o o.png -f 1-", "'1-' is not a frame"},
        {"render my.text -i in.png -o o.png -d 12", "--depth '12'"},
        {"render my.text -i in.png -o o.png -j 0", "--threads '0'"},
        {"render my.text -i in.png -o o.png -j 65", "--threads '65'"},
        {"render my.text -i in.png -o o.png --fps 0", "--fps '0'"},
        {"render my.text -i in.png -o o.png --length x", "--length 'x'"},
        {"render my.text -i in.png -o o.png --size 9x9", "--size is for effects without inputs"},
        {"render my.text -i in.png -o o.png --missing hodl", "did you mean 'hold'"},
        {"render my.text -i in.png -o o.png --config gone", "gone: "},
        {"render my.text -i in.png -o o.png --setup gone", "gone: No such file"},
        {"render my.text -i in.png -o o.png --setup my.text", "my.text: not a setup"},
        {"render my.text:Gain -i in.png -o o.png -p amuont=1", "did you mean 'amount'"},
        {"render my.text:Gain -i in.png -o o.png -p amount", "NAME=VALUE"},
        {"render my.text:Gain -i in.png -o o.png -p amount=", "'' is no number"},
        {"render my.text:Gain -i in.png -o o.png -p amount=1,2", "takes 1 value, not 2"},
        {"render my.text:Gain -i in.png -o o.png -p amount=0@1,1", "no '@FRAME'"},
        {"render my.text:Gain -i in.png -o o.png -p amount=0@x", "behind '@'"},
        {"render my.text:Gain -i in.png -o o.png -p tint=1,1", "takes 3 values, not 2"},
        {"render my.text:Gain -i in.png -o o.png -p mode=of", "did you mean 'Off'"},
        {"render my.text:Gain -i in.png -o o.png -p mode=2", "entries 0 to 1"},
        {"render my.text -i in.png -o o.png -c res_facter=1", "did you mean 'res_factor'"},
        {"render my.text -i in.png -o o.png -c crop=1,2,3", "crop takes 4 values"},
        {"render my.text -i in.png -o o.png -c undo=1", "no standard control 'undo'"},
        {"check gone.text", "gone.text: No such file"},
        {"functions blurr", "did you mean 'blur'"},
        {"list my.text:Gian", "did you mean 'Gain'"},
    };
    for (const auto& row : rows) {
        const Outcome ran = velloran(row.arguments);
        EXPECT_EQ(ran.status, 2) << row.arguments << "\n" << ran.err;
        EXPECT_NE(ran.err.find(row.says), std::string::npos) << row.arguments << "\n" << ran.err;
        EXPECT_EQ(ran.out, "") << row.arguments;
        EXPECT_FALSE(fs::exists("o.png")) << row.arguments;
    }
}

TEST_F(Cli, CutPicturesAreErrorsInEveryFormat) {
    plate("whole.png");
    for (const char* ending : {"png", "jpg", "tif", "exr", "dpx"}) {
        const std::string in = std::string("in.") + ending, cut = std::string("cut.") + ending;
        ASSERT_EQ(render("pass.text -i whole.png -o " + in).status, 0);
        const std::string bytes = read_file(in);
        write(cut, bytes.substr(0, bytes.size() * 3 / 4));
        const Outcome ran = render("pass.text -i " + cut + " -o o.png");
        // Where a file begins with its end there is nothing to tell what the frames are like.
        EXPECT_EQ(ran.status, std::string(ending) == "tif" ? 2 : 1) << ending << ran.err;
        EXPECT_NE(ran.err.find(cut + ": "), std::string::npos) << ran.err;
        EXPECT_FALSE(fs::exists("o.png")) << ending;
    }
}

TEST_F(Cli, ABrokenFrameStopsOrIsPassedOver) {
    for (int frame = 1; frame <= 4; frame++) plate("in." + std::to_string(frame) + ".png", frame);
    write("in.2.png", "broken");
    fs::create_directory("o");
    Outcome ran = render("pass.text -i in.#.png -o o/a.#.png --on-error stop");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.err.find("frame 2: in.2.png: "), std::string::npos) << ran.err;
    EXPECT_NE(ran.err.find("wrote 1, failed 1, not tried 2 of 4: o/a.1.png\n"), std::string::npos) << ran.err;
    EXPECT_EQ(files("o"), Names({"a.1.png"}));
    ran = render("pass.text -i in.#.png -o o/a.#.png");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.err.find("wrote 3, failed 1 of 4: o/a.1.png to o/a.4.png\n"), std::string::npos) << ran.err;
    EXPECT_EQ(files("o"), Names({"a.1.png", "a.3.png", "a.4.png"}));
    for (const int frame : {1, 3, 4})
        EXPECT_EQ(samples("o/a." + std::to_string(frame) + ".png").values,
                  samples("in." + std::to_string(frame) + ".png").values);
    picture("in.2.png", 5, 5, 3, TypeDesc::UINT8, [](int, int, int) { return 0; });
    ran = render("pass.text -i in.#.png -o o/b.#.png -f 2");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.err.find("in.2.png: is 5x5, the frames are 37x23"), std::string::npos) << ran.err;
    // The first one is a frame like the others.
    write("in.1.png", "");
    ran = render("pass.text -i in.#.png -o o/c.#.png -f 1");
    EXPECT_EQ(ran.status, 1) << ran.err;
    // A dry run meets what the run would, and ends as it.
    ran = render("pass.text -i in.#.png -o o/d.#.png -n");
    EXPECT_EQ(ran.status, 1);
    EXPECT_NE(ran.out.find("fails    1: in.1.png: the file is empty"), std::string::npos) << ran.out;
    EXPECT_NE(ran.out.find("fails    3: in.3.png: is 37x23, the frames are 5x5"), std::string::npos) << ran.out;
    EXPECT_FALSE(fs::exists("o/d.3.png"));
}

// The library's word that a frame was not made counts, although the host holds a destination.
TEST_F(Cli, AFrameThatTheEffectCannotMakeIsNoFrame) {
    plate("in.png");
    write("whole.text", "(def_effect Whole (Source) ()\n dest = (auto_deinterlace Source 5 1)\n)\n");
    const Outcome ran = render("whole.text -i in.png -o o.png");
    EXPECT_EQ(ran.status, 1) << ran.err;
    EXPECT_NE(ran.err.find("Can't deinterlace with zero-length pattern."), std::string::npos) << ran.err;
    EXPECT_FALSE(fs::exists("o.png"));
}

TEST_F(Cli, ExistingFramesAreSkippedOnlyIfWholeAndOfTheSameRecipe) {
    plate("in.png");
    const auto stamp = [](const char* path) { return fs::last_write_time(path); };
    for (const char* out : {"o.png", "o.exr", "o.jpg", "o.tif"}) {
        SCOPED_TRACE(out);
        const std::string line = std::string("my.text:Gain -i in.png --skip-existing -o ") + out;
        ASSERT_EQ(render(line).status, 0);
        const auto first = stamp(out);
        ASSERT_EQ(render(line).status, 0);
        EXPECT_EQ(stamp(out), first) << "the same again";
        ASSERT_EQ(render(line + " -p amount=0.5").status, 0);
        const auto second = stamp(out);
        EXPECT_NE(second, first) << "another value";
        write(out, "");
        ASSERT_EQ(render(line + " -p amount=0.5").status, 0);
        EXPECT_GT(fs::file_size(out), 0u) << "an empty file";
        const std::string whole = read_file(out);
        write(out, whole.substr(0, whole.size() - 40));
        ASSERT_EQ(render(line + " -p amount=0.5").status, 0);
        EXPECT_EQ(fs::file_size(out), whole.size()) << "a file cut off";
        plate("in.png");  // the same content, but a new file
        const auto third = stamp(out);
        ASSERT_EQ(render(line + " -p amount=0.5").status, 0);
        EXPECT_NE(stamp(out), third) << "a new input";
    }
}

TEST_F(Cli, AFullDiskLeavesNothing) {
    picture("in.png", 400, 300, 3, TypeDesc::UINT16,
            [](int x, int y, int c) { return (x * 7919 + y * 104729 + c * 31) * 2654435761u >> 7; });
    // A limit on the size of files stands for the full disk: writes fail in their middle.
    for (const char* out : {"o.png", "o.tif", "o.exr", "o.dpx", "o.jpg"}) {
        const Outcome ran = run({"sh", "-c",
                                 std::string("ulimit -f 8; trap '' XFSZ; exec ") + VELLORAN_PROGRAM +
                                     " render --config cfg pass.text -i in.png -o " + out});
        EXPECT_EQ(ran.status, 1) << out << ran.err;
        EXPECT_NE(ran.err.find(std::string("frame 1: ") + out + ": "), std::string::npos) << ran.err;
        EXPECT_FALSE(fs::exists(out));
    }
}

TEST_F(Cli, TooLittleMemoryHasAStatusOfItsOwn) {
#ifdef VELLORAN_SANITIZED
    GTEST_SKIP() << "the sanitizers need more address space than the limit leaves";
#endif
    const Outcome ran = run({"sh", "-c",
                             std::string("ulimit -v 2500000; exec ") + VELLORAN_PROGRAM +
                                 " render --config cfg none.text --size 14000x14000 -o o.png"});
    EXPECT_EQ(ran.status, 33) << ran.err;
    EXPECT_FALSE(fs::exists("o.png"));
    EXPECT_EQ(velloran("render none.text --size 65000x65000 -o o.png").status, 2);
}

TEST_F(Cli, ShortMemoryNeverCrashesAndLeavesNothingHalf) {
#ifdef VELLORAN_SANITIZED
    GTEST_SKIP() << "the sanitizers need more address space than the limit leaves";
#endif
    write("soft.text",
          "(def_effect Soft () ()\n a = (coerce_to_v3 x)\n b = (blur a 0.5 3 1 0)\n"
          " dest = (+ (blur (* a b) 0.2 3 1 0) b)\n)\n");
    std::set<int> seen;
    // From far below what the picture libraries need for themselves.
    std::vector<int> limits = {20, 60, 110, 180, 260, 340, 420, 500, 600};
    for (int megabytes = 700; megabytes <= 1500; megabytes += 100) limits.push_back(megabytes);
    for (const int megabytes : limits) {
        fs::remove("o.png");
        const Outcome ran = run({"sh", "-c",
                                 "export OPENBLAS_NUM_THREADS=1 OMP_NUM_THREADS=1 MALLOC_ARENA_MAX=2; ulimit -v " +
                                     std::to_string(megabytes * 1000) + "; exec " + VELLORAN_PROGRAM +
                                     " render --config cfg soft.text --size 6000x5000 -j 2 -o o.png"});
        seen.insert(ran.status);
        EXPECT_TRUE(ran.status == 0 || ran.status == 33) << megabytes << " MB: " << ran.status << " " << ran.err;
        EXPECT_EQ(fs::exists("o.png"), ran.status == 0) << megabytes;
        for (const auto& file : fs::directory_iterator("."))
            EXPECT_EQ(file.path().string().find(".part"), std::string::npos) << file.path();
    }
    EXPECT_TRUE(seen.count(33)) << "no limit was short of memory in the frame";
}

TEST_F(Cli, InterruptionsLeaveWholeFramesOnly) {
    picture("in.png", 300, 200, 3, TypeDesc::UINT16, [](int x, int y, int c) { return pattern(x, y, c); });
    for (const auto& [signal, status] : {std::pair(SIGINT, 130), {SIGTERM, 143}}) {
        fs::remove_all("o");
        fs::create_directory("o");
        const pid_t pid = start({VELLORAN_PROGRAM, "render", "--config", "cfg", "pass.text", "-i", "in.png", "-o",
                                 "o/a.%05d.png", "-f", "1-90000"});
        // Frames are written beside each other, so that the fifth may be there before the first.
        const auto whole_frames = [this] {
            const Names there = files("o");
            const auto whole = [](const std::string& name) { return name.size() == std::strlen("a.00001.png"); };
            return std::count_if(there.begin(), there.end(), whole);
        };
        for (int i = 0; i < 2000 && whole_frames() < 5; i++) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        kill(pid, signal);
        const Outcome ran = finish(pid);
        EXPECT_EQ(ran.status, status) << ran.err;
        const Names made = files("o");
        ASSERT_GE(made.size(), 4u);
        for (const std::string& name : made) {
            EXPECT_EQ(name.rfind("a.", 0), 0u) << name;
            samples("o/" + name);
        }
    }
}

TEST_F(Cli, DryRunTellsThePlanAndRendersNothing) {
    for (const int frame : {1, 2, 4}) plate("in." + std::to_string(frame) + ".png", frame);
    Outcome ran = render("pass.text -i in.#.png -o o.#.png -n --missing skip");
    EXPECT_EQ(ran.status, 0) << ran.err;
    for (const char* part : {"in.#.png", "frames   1-2,4 (3)", "gaps     3", "o.1.png to o.4.png", "37x23, depth 8"})
        EXPECT_NE(ran.out.find(part), std::string::npos) << part << "\n" << ran.out;
    EXPECT_FALSE(fs::exists("o.1.png"));
    EXPECT_EQ(render("pass.text -i in.#.png -o o.#.png -n").status, 2) << "as the real run would end";
}

// Whatever happens, standard error is one object a line, and the last one is the end.
TEST_F(Cli, ProgressAsJsonIsNothingButJsonAndAlwaysEnds) {
    for (int frame = 1; frame <= 3; frame++) plate("in." + std::to_string(frame) + ".png", frame);
    plate("bad.1.png");
    write("bad.2.png", "broken");
    write("bad.text", "(def_effect Bad (Source) ()\n dest = (blurr Source)\n)\n");
    const struct {
        const char* arguments;
        int status;
        Names events;
    } rows[] = {
        {"pass.text -i in.#.png -o o.#.png", 0, {"start", "rendered", "rendered", "rendered", "note", "end"}},
        {"pass.text -i bad.#.png -o o.#.png", 1, {"start", "rendered", "error", "failed", "end"}},
        {"my.text:Gain -i in.1.png -o o.png -p amount=9", 0, {"warning", "start", "rendered", "end"}},
        {"my.text -i in.#.png -o o.#.png -v", 0, {"start", "rendered", "rendered", "rendered", "end"}},
        {"bad.text -i in.1.png -o o.png", 2, {"error", "end"}},
        {"gone.text -i in.1.png -o o.png", 2, {"error", "end"}},
        {"my.text -i in.1.png -o o.png --theads 3", 2, {"error", "end"}},
        {"my.text -i in.1.png", 2, {"error", "end"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome ran = render(std::string(row.arguments) + " --progress json");
        EXPECT_EQ(ran.status, row.status) << ran.err;
        std::istringstream lines(ran.err);
        Names events;
        nlohmann::json last;
        for (std::string line; std::getline(lines, line);) {
            last = nlohmann::json::parse(line, nullptr, false);
            ASSERT_TRUE(last.is_object()) << line;
            events.push_back(last["event"]);
        }
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(last["event"], "end");
        EXPECT_EQ(last["status"], row.status);
        // Notes and what libraries say come when they come.
        Names expected = row.events;
        for (Names* names : {&events, &expected})
            std::erase_if(*names, [](const std::string& name) { return name == "note" || name == "message"; });
        EXPECT_EQ(events, expected) << ran.err;
    }
    // In the middle of a run, too.
    const pid_t pid = start({VELLORAN_PROGRAM, "render", "--config", "cfg", "pass.text", "-i", "in.1.png", "-o",
                             "o.%05d.png", "-f", "1-90000", "--progress", "json"});
    for (int i = 0; i < 2000 && !fs::exists("o.00002.png"); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(pid, SIGTERM);
    const Outcome ran = finish(pid);
    EXPECT_EQ(ran.status, 143);
    const size_t end = ran.err.rfind('\n', ran.err.size() - 2);
    EXPECT_EQ(ran.err.substr(end + 1), "{\"event\":\"end\",\"status\":143}\n");
}

TEST_F(Cli, ChecksAreReadableByEditorsAndPrograms) {
    write("bad.text",
          "(def_effect Good (Source) ()\n dest = Source\n)\n(def_effect Bad (Source) ()\n\tdest = (blurr Source)\n)\n");
    Outcome ran = velloran("check bad.text");
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out.rfind("bad.text:5:", 0), 0u) << ran.out;
    EXPECT_NE(ran.out.find(": error: "), std::string::npos);
    // Below the line stands a caret under the place that the message names.
    std::istringstream lines(ran.out);
    std::string message, line, caret;
    std::getline(lines, message);
    std::getline(lines, line);
    std::getline(lines, caret);
    EXPECT_EQ(line, "\tdest = (blurr Source)");
    const size_t column = std::stoul(message.substr(message.find(":5:") + 3));
    EXPECT_EQ(caret, "\t" + std::string(column - 2, ' ') + "^");
    EXPECT_EQ(velloran("check my.text pass.text").status, 0);
    ran = velloran("check --json my.text bad.text gone.text");
    EXPECT_EQ(ran.status, 2);
    const auto report = nlohmann::json::parse(ran.out, nullptr, false);
    ASSERT_EQ(report.size(), 3u) << ran.out;
    EXPECT_EQ(report[0]["failed"], 0);
    EXPECT_EQ(report[1]["failed"], 1);
    EXPECT_EQ(report[1]["messages"][0]["line"], 5);
    EXPECT_EQ(report[2]["failed"], 1);

    // What does not stop a definition is a warning, and "no errors" comes behind nothing worse.
    write("warns.text", "(def_effect Warns (Source) ()\n a = 1\n dest = Source\n)\n");
    ran = velloran("check warns.text");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out.rfind("warns.text:2:2: warning: ", 0), 0u) << ran.out;
    EXPECT_EQ(ran.err, "warns.text: no errors\n");
    ran = velloran("check --json warns.text");
    EXPECT_EQ(nlohmann::json::parse(ran.out, nullptr, false)[0]["messages"][0]["severity"], "warning");
    write("stray.text", "(def_effect Good (Source) ()\n dest = Source\n)\n#endif\n");
    ran = velloran("check stray.text");
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.out.find("stray.text:4:1: error: "), std::string::npos) << ran.out;
    EXPECT_EQ(ran.err.find("no errors"), std::string::npos);
}

TEST_F(Cli, OneDefinitionThatCannotBeReadLeavesTheOthers) {
    plate("in.png");
    write("some.text",
          "(def_effect First (Source) ()\n dest = (blurr Source)\n)\n(def_effect Second (Source) ()\n dest = "
          "Source\n)\n");
    EXPECT_EQ(render("some.text:Second -i in.png -o o.png").status, 0);
    EXPECT_EQ(samples("o.png").values, samples("in.png").values);
    // The first is what a text without a name stands for; another picture than that must not come out.
    const Outcome ran = render("some.text -i in.png -o p.png");
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("some.text:2:"), std::string::npos) << ran.err;
    EXPECT_FALSE(fs::exists("p.png"));
}

TEST_F(Cli, ListsAndFunctions) {
    Outcome ran = velloran("list --config cfg my.text --json");
    ASSERT_EQ(ran.status, 0) << ran.err;
    const auto list = nlohmann::json::parse(ran.out, nullptr, false);
    ASSERT_EQ(list["effects"].size(), 2u) << ran.out;
    EXPECT_EQ(list["effects"][1]["name"], "Gain");
    const auto params = list["effects"][1]["params"];
    EXPECT_EQ(params[0]["name"], "amount");
    EXPECT_EQ(params[0]["max"], 4);
    EXPECT_EQ(params[1]["labels"], nlohmann::json({"Mode: Off", "Mode: Fully On"}));
    EXPECT_EQ(params[2]["kind"], "color");
    ran = velloran("list --config cfg my.text:Gain");
    EXPECT_NE(ran.out.find("my:Gain"), std::string::npos);
    EXPECT_EQ(ran.out.find("Pass"), std::string::npos);
    ran = velloran("functions blur --json");
    ASSERT_EQ(ran.status, 0);
    const auto functions = nlohmann::json::parse(ran.out, nullptr, false);
    EXPECT_EQ(functions[0]["name"], "blur");
    EXPECT_EQ(functions[0]["arguments"].size(), functions[0]["signatures"][0]["arguments"].size());
    const auto amount = functions[0]["arguments"][1], shape = functions[0]["arguments"][2];
    EXPECT_EQ(amount["unit"], "eighths of the frame's width");
    EXPECT_EQ(amount["same_over_frame"], true);
    EXPECT_EQ(functions[0]["arguments"][0]["same_over_frame"], false);
    EXPECT_EQ(shape["choices"][2], nlohmann::json({{"value", 2}, {"meaning", "bell"}}));
    ran = velloran("functions dir_blur");
    EXPECT_NE(ran.out.find("(dir_blur image amount angle"), std::string::npos) << ran.out;
    EXPECT_NE(ran.out.find("0 black, 1 the edge repeated, 2 the other side, 3 mirrored"), std::string::npos);
    for (const char* help :
         {"--help", "render --help", "check --help", "list --help", "functions --help", "--version"}) {
        ran = velloran(help);
        EXPECT_EQ(ran.status, 0) << help;
        EXPECT_NE(ran.out, "") << help;
        EXPECT_EQ(ran.err, "") << help;
    }
}

TEST_F(Cli, NumbersDoNotFollowTheLocale) {
    plate("in.png");
    ASSERT_EQ(render("my.text:Gain -i in.png -o c.png -p amount=0.5").status, 0);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    const Outcome ran = render("my.text:Gain -i in.png -o de.png -p amount=0.5 --fps 29.97");
    const Outcome comma = render("my.text:Gain -i in.png -o x.png -p amount=0,5");
    unsetenv("LC_ALL");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(samples("c.png").values, samples("de.png").values);
    EXPECT_EQ(comma.status, 2);
}
