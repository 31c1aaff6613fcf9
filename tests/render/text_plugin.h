// The plug-in module that takes its effects from a text, loaded into a host that the test sets up: the whole road of a
// frame, as any host would drive it.
#pragma once

#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "stubs/describe.h"
#include "testing/stamp_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace test_render {

using namespace spark_host;

// A directory of its own with a v_config.text; removed at the end.
class ConfigDir {
public:
    explicit ConfigDir(const std::string& config = default_config()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "velloran_test_XXXXXX").string();
        path_ = mkdtemp(pattern.data());
        write("v_config.text", config);
        write("v_lensflares.text", flares(true));
        write("v_glares.text", flares(false));
        std::filesystem::create_directory_symlink(shared_stamps(), path_ + "/stamps");
    }
    ~ConfigDir() { std::filesystem::remove_all(path_); }
    ConfigDir(const ConfigDir&) = delete;
    ConfigDir& operator=(const ConfigDir&) = delete;

    const std::string& path() const { return path_; }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path_ + "/" + name) << content;
    }

    static std::string default_config() {
        return "enable_pointer_abort: 1\npointer_abort_seconds: 2.0\npointer_read_lock: no\nuse_curves_in_fields: 0\n"
               "load_save_channel_setups: 0\nforce_frames_per_second: 0\nmax_cpus: 64\n"
               "use_footage_pixel_aspect_ratio: 0\nforce_pixel_aspect_ratio: 0\n";
    }

    // Stamps that a small frame shows, for all directories of a run.
    static std::string shared_stamps() {
        static const struct Stamps {
            Stamps() {
                std::string pattern = (std::filesystem::temp_directory_path() / "velloran_stamps_XXXXXX").string();
                path = mkdtemp(pattern.data());
                for (const char* const name : {"film-stains", "dust", "hairs"}) {
                    std::filesystem::create_directories(path + "/" + name);
                    std::ofstream(path + "/" + name + "/coarse.qmi", std::ios::binary)
                        << velloran_tests::coarse_stamps(3);
                }
            }
            ~Stamps() { std::filesystem::remove_all(path); }
            std::string path;
        } stamps;
        return stamps.path;
    }

    // Every kind of element, as lens flares or as glares.
    static std::string flares(bool with_centers) {
        const auto at = [&](const char* center) { return with_centers ? " center " + std::string(center) : ""; };
        return "begin rings ring" + at("1") + " radii 0.1 0.3 0.5 colors 1 0.5 0.2 0.3 0.3 1 0 0 0 hexagon" +
               at("0.4") + " radii 0.1 0.2 colors 0.2 0.4 0.1 0.3 0.3 0.3 end\nbegin burst blob" + at("1") +
               " radii 0.2 colors 1 1 1 rays" + at("1") +
               " color 1 0.8 0.6 ray_number 14 jitter_angles 0.5 start_angle 10 radius_range 0.2 0.6 ray_width 0.05 "
               "rand_seed 3 end\nbegin waves polar_flare" +
               at("1") +
               " wave_brightness 1 wave_freq 5 wave_softness 0.4 radii 0 0.3 0.7 colors 1 1 1 0.5 0.2 0 0 0 0 end\n" +
               "begin noisy polar_flare" + at("0.7") +
               " start_angle 40 angle_width 200 noise_brightness 1 noise_freq 8 r_noise_freq 6 r_noise_min 0.5 "
               "r_noise_max "
               "1.2 shift_edge 0.3 rotate_to_pivot 1 rays_p 0 radii 0.1 0.6 colors 0.9 0.6 0.3 0 0 0.2 end\n";
    }

private:
    std::string path_;
};

// A host with one plug-in made from a text. Set host and clips, then start().
struct TextPlugin {
    explicit TextPlugin(std::string definitions, std::string plugin_name = "test")
        : text(std::move(definitions)), name(std::move(plugin_name)) {
        host.calling_env = SPARK_ENV_BATCH;
        previous = use_host(&host);
    }
    ~TextPlugin() {
        plugin.reset();
        use_host(previous);
    }
    TextPlugin(const TextPlugin&) = delete;
    TextPlugin& operator=(const TextPlugin&) = delete;

    bool start() {
        use_host(&host);
        std::string error;
        plugin = load_plugin(host, TEXT_PLUGIN, dir().path() + "/" + name, &error);
        if (!plugin) {
            ADD_FAILURE() << error;
            return false;
        }
        const auto define = reinterpret_cast<SparkTextDefinitionsFn>(plugin_symbol(*plugin, "SparkTextDefinitions"));
        define(text.c_str(), name.c_str(), nullptr);
        plugin->inputs = inputs;
        return start_plugin(*plugin);
    }
    // The rendered frame's bytes; empty if there is none.
    std::vector<unsigned char> render(int frame = 0) {
        process_start(*plugin, frame);
        const void* const rendered = process(*plugin, frame);
        if (!rendered) return {};
        const auto* const bytes = static_cast<const unsigned char*>(rendered);
        return {bytes, bytes + host.format.bytes()};
    }
    ConfigDir& dir() {
        if (!config) config = std::make_unique<ConfigDir>();
        return *config;
    }

    std::string text, name;
    Host host;
    Host* previous = nullptr;
    std::unique_ptr<ConfigDir> config;
    std::vector<ClipPtr> inputs;
    std::unique_ptr<Plugin> plugin;
};

// A clip of random frames: the same for a seed, other from frame to frame.
inline ClipPtr random_clip(int frames, unsigned seed = 1) {
    return generated_clip(frames, [seed](int frame, const FrameFormat& format, void* dest) {
        std::minstd_rand random(seed * 1000 + static_cast<unsigned>(frame) + 1);
        auto* const bytes = static_cast<unsigned char*>(dest);
        for (long i = 0; i < format.bytes(); ++i) bytes[i] = static_cast<unsigned char>(random() >> 8);
        return true;
    });
}

// What a clip shows at a frame.
inline std::vector<unsigned char> clip_bytes(const Clip& clip, int frame, const FrameFormat& format) {
    std::vector<unsigned char> bytes(static_cast<size_t>(format.bytes()));
    read_clip(clip, frame, format, bytes.data());
    return bytes;
}

// The significant bits of a frame: a byte a sample, or the top 10 or 12 bits of a word.
inline std::vector<unsigned> significant(const std::vector<unsigned char>& bytes, int depth) {
    std::vector<unsigned> samples;
    if (depth == SPARK_DEPTH_8) {
        samples.assign(bytes.begin(), bytes.end());
        return samples;
    }
    const int shift = depth == SPARK_DEPTH_10 ? 6 : 4;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        samples.push_back((static_cast<unsigned>(bytes[i]) | static_cast<unsigned>(bytes[i + 1]) << 8) >> shift);
    return samples;
}

}  // namespace test_render
