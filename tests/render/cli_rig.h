// The program `velloran` as a user runs it: files in, files out, what it says, how it ends.
#pragma once

#include <OpenImageIO/imageio.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace test_cli {

namespace fs = std::filesystem;

struct Outcome {
    int status = -1;  // exit status
    std::string out, err;
};

inline std::string read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// 16-bit samples of a picture, top row first, all channels side by side.
struct Samples {
    int width = 0, height = 0, channels = 0;
    std::vector<uint16_t> values;
    uint16_t at(int x, int y, int c) const { return values[static_cast<size_t>((y * width + x) * channels + c)]; }
};

class Cli : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "velloran_cli_XXXXXX").string();
        dir = mkdtemp(pattern.data());
        before_ = fs::current_path();
        fs::current_path(dir);
        write("cfg/v_config.text",
              "enable_pointer_abort: 1 pointer_abort_seconds: 2.0 pointer_read_lock: no use_curves_in_fields: 0\n"
              "load_save_channel_setups: 0 force_frames_per_second: 0 max_cpus: 64\n"
              "use_footage_pixel_aspect_ratio: 0 force_pixel_aspect_ratio: 1\n");
        write("my.text",
              "(def_effect Pass_Through (Source) ()\n dest = Source\n)\n"
              "(def_effect Gain (Source) ()\n  amount = 1 (min 0 max 4)\n  mode = 1 (popup off fully_on)\n"
              "  tint = [1 1 1] (color)\n  dest = (* (* Source amount) (* tint mode))\n)\n");
        write("pass.text", "(def_effect Pass (Source) ()\n dest = Source\n)\n");
        write("two.text", "(def_effect Two (Front Back) ()\n dest = Back\n)\n");
        write("none.text", "(def_effect None () ()\n dest = [1 0.5 0]\n)\n");
    }
    void TearDown() override {
        fs::current_path(before_);
        for (const auto& entry : fs::recursive_directory_iterator(dir))
            EXPECT_EQ(entry.path().filename().string().find(".part"), std::string::npos)
                << "left behind: " << entry.path();
        fs::remove_all(dir);
    }

    static void write(const fs::path& path, const std::string& content) {
        if (path.has_parent_path()) fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

    static std::vector<std::string> words(const std::string& line) {
        std::istringstream in(line);
        std::vector<std::string> list;
        for (std::string word; in >> word;) list.push_back(word);
        return list;
    }

    static pid_t start(const std::vector<std::string>& arguments) {
        std::vector<char*> argv;
        for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "stdout.txt", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, "stderr.txt", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t pid = -1;
        EXPECT_EQ(posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return pid;
    }
    static Outcome finish(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        Outcome outcome;
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        outcome.out = read_file("stdout.txt");
        outcome.err = read_file("stderr.txt");
        return outcome;
    }
    static Outcome run(const std::vector<std::string>& arguments) { return finish(start(arguments)); }
    // Blanks divide arguments.
    static Outcome velloran(const std::string& line) {
        std::vector<std::string> arguments = words(line);
        arguments.insert(arguments.begin(), VELLORAN_PROGRAM);
        return run(arguments);
    }
    static Outcome render(const std::string& line) { return velloran("render --config cfg " + line); }

    // A picture whose sample of pixel (x, y) and channel c is value(x, y, c), a 16-bit number; of 8-bit files the upper
    // byte counts.
    template <class Value>
    static void picture(const std::string& path, int width, int height, int channels, OIIO::TypeDesc type,
                        const Value& value) {
        std::vector<uint16_t> samples;
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++)
                for (int c = 0; c < channels; c++) {
                    const unsigned v = static_cast<unsigned>(value(x, y, c)) & 0xffff;
                    samples.push_back(static_cast<uint16_t>(type == OIIO::TypeDesc::UINT8 ? (v >> 8) * 257 : v));
                }
        OIIO::ImageSpec spec(width, height, channels, type);
        spec.attribute("oiio:UnassociatedAlpha", 1);
        auto output = OIIO::ImageOutput::create(path);
        ASSERT_TRUE(output && output->open(path, spec)) << OIIO::geterror();
        ASSERT_TRUE(output->write_image(OIIO::TypeDesc::UINT16, samples.data()) && output->close());
    }
    static int pattern(int x, int y, int c) { return x * 4243 + y * 9161 + c * 21001; }
    static void plate(const std::string& path, int seed = 0, OIIO::TypeDesc type = OIIO::TypeDesc::UINT8) {
        picture(path, 37, 23, 3, type, [seed](int x, int y, int c) { return pattern(x, y, c) + seed * 3001; });
    }

    static Samples samples(const std::string& path, int subimage = 0) {
        Samples s;
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        auto input = OIIO::ImageInput::open(path, &config);
        if (!input || !input->seek_subimage(subimage, 0)) {
            ADD_FAILURE() << path << ": " << OIIO::geterror();
            return s;
        }
        s.width = input->spec().width, s.height = input->spec().height, s.channels = input->spec().nchannels;
        s.values.resize(static_cast<size_t>(s.width * s.height * s.channels));
        EXPECT_TRUE(input->read_image(subimage, 0, 0, s.channels, OIIO::TypeDesc::UINT16, s.values.data()))
            << input->geterror();
        return s;
    }

    std::vector<std::string> files(const std::string& directory) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir;

private:
    fs::path before_;
};

}  // namespace test_cli
