// What stands around a render: descriptions for programs, and the script that sends chunks to a farm.
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

#include <set>

using namespace test_cli;
using nlohmann::json;

// Every shipped effect and param has a sentence, and where its bounds are wide a range that people need.
TEST_F(Cli, ShippedParamsAreDescribed) {
    const json families = json::parse(velloran("list --json").out, nullptr, false);
    const json schema = json::parse(read_file(LIST_SCHEMA), nullptr, false);
    ASSERT_TRUE(schema.is_object());
    const auto fits = [&](const json& object, const char* kind) {
        const json& rules = schema["$defs"][kind];
        for (const auto& name : rules["required"]) EXPECT_TRUE(object.contains(name)) << name << " " << object;
        for (const auto& [name, value] : object.items()) EXPECT_TRUE(rules["properties"].contains(name)) << name;
    };
    ASSERT_GE(families.size(), 6u);
    for (const json& family : families) {
        const std::string plugin = family["plugin"];
        const json list = json::parse(velloran("list --json " + plugin).out, nullptr, false);
        for (const json& param : list["standard"]) fits(param, "param");
        for (const json& effect : list["effects"]) {
            SCOPED_TRACE(effect["name"].get<std::string>());
            fits(effect, "effect");
            EXPECT_NE(effect["note"], "");
            for (const json& param : effect["params"]) {
                SCOPED_TRACE(param["name"].get<std::string>());
                fits(param, "param");
                EXPECT_TRUE(param.contains("note"));
                if (param["kind"] != "float" && param["kind"] != "int") continue;
                const double min = param["min"].is_null() ? -1e9 : param["min"].get<double>();
                const double max = param["max"].is_null() ? 1e9 : param["max"].get<double>();
                if (!param.contains("usual")) {
                    EXPECT_LE(max - min, param.value("unit", "") == "pixels" ? 1e10 : 4) << "no usual range";
                    continue;
                }
                const double least = param["usual"][0], most = param["usual"][1];
                EXPECT_TRUE(min <= least && least < most && most <= max) << param;
                for (const double value : param["default"]) EXPECT_TRUE(least <= value && value <= most) << param;
            }
        }
    }
    const Outcome ran = velloran("list nosuch --json");
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(json::parse(ran.out, nullptr, false)["status"], 2) << ran.out;
}

TEST_F(Cli, ChunksForAFarmCoverTheRangeOnce) {
    write("trail.text", "(def_effect Trail (Source) ()\n dest = (interp (get_prev_dest [0 0 0]) Source 0.3)\n)\n");
    const std::string script =
        std::string("VELLORAN=") + VELLORAN_PROGRAM + " " + FARM_SCRIPT + " --dry-run --chunk 10 -- ";
    const auto ranges = [&](const std::string& arguments) {
        const Outcome ran = run({"sh", "-c", script + arguments});
        EXPECT_EQ(ran.status, 0) << ran.err;
        std::vector<std::string> found;
        std::istringstream lines(ran.out);
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find(" -f ") + 4;
            found.push_back(line.substr(at, line.find(' ', at) - at));
        }
        return found;
    };
    using Ranges = std::vector<std::string>;
    EXPECT_EQ(ranges("pass.text -i in.#.png -o o.#.png -f 0998-1020"), Ranges({"998-1007", "1008-1017", "1018-1020"}));
    EXPECT_EQ(ranges("trail.text -i in.#.png -o o.#.png -f 1-23"), Ranges({"1-23"})) << "it remembers";
    EXPECT_EQ(ranges("trail.text -i in.#.png -o o.#.png -f 1-12 --preroll 3"), Ranges({"1-10", "11-12"}));
    for (const char* wrong : {"pass.text -f 5", "pass.text -f 9-5", "pass.text", "nosuch -f 1-5"})
        EXPECT_EQ(run({"sh", "-c", script + wrong}).status, 2) << wrong;
}

// A farm of one machine, where one runs.
TEST_F(Cli, AFarmRendersEveryFrameAndTellsOfTheMissingOne) {
    if (run({"sh", "-c", "command -v sbatch && sinfo -h"}).status != 0) GTEST_SKIP() << "no Slurm runs on this machine";
    fs::permissions(dir, fs::perms::all);
    for (int frame = 1; frame <= 6; frame++) plate("in." + std::to_string(frame) + ".png", frame);
    const std::string script = std::string("VELLORAN=") + VELLORAN_PROGRAM + " " + FARM_SCRIPT +
                               " --chunk 2 --retries 1 --memory 800 --cpus 1 -- pass.text --config " +
                               (dir / "cfg").string() + " -i in.#.png -o o.#.png -f 1-6";
    const auto submit = [&] {
        const Outcome ran = run({"sh", "-c", script});
        EXPECT_EQ(ran.status, 0) << ran.err;
        const size_t at = ran.out.find("check ") + 6;
        const std::string log = "velloran-logs/" + ran.out.substr(7, ran.out.find(' ', 7) - 7) + "_check.log";
        for (int i = 0; i < 1200 && read_file(log).find("frames") == std::string::npos; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_NE(at, std::string::npos);
        return read_file(log);
    };
    EXPECT_EQ(submit(), "all 6 frames are there and whole\n");
    for (int frame = 1; frame <= 6; frame++)
        EXPECT_EQ(samples("o." + std::to_string(frame) + ".png").values,
                  samples("in." + std::to_string(frame) + ".png").values);
    write("in.4.png", "broken");
    EXPECT_NE(submit().find("there and whole: "), std::string::npos);
}
