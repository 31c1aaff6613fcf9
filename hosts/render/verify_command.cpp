// What this installation renders, as one number: two machines that give the same one give the same pictures.
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"
#include "hosts/render/recipe.h"
#include "hosts/render/values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace render {
namespace {

using spark_host::FrameFormat;

constexpr int clips = 4, frames = 3, shown = 1;

// Slopes, an edge, a bright disc and a little grain, in whole numbers alone: the same on every machine.
spark_host::ClipPtr scene(int turn) {
    return spark_host::generated_clip(frames, [turn](int frame, const FrameFormat& format, void* dest) {
        auto* words = static_cast<uint16_t*>(dest);
        uint32_t grain = static_cast<uint32_t>(frame * 8 + turn + 1);
        for (int y = 0; y < format.height; y++)
            for (int x = 0; x < format.width; x++)
                for (int c = 0; c < 3; c++) {
                    const int dx = x - 40 - 20 * turn - frame, dy = y - 40 + 6 * turn;
                    int value = (x * (c + 1) * 11 + y * (turn + 1) * 9) % 3300;
                    if (x + turn * 16 > 90) value /= 3;
                    if (dx * dx + dy * dy < 120) value = 4095 - 200 * c;
                    grain = grain * 1664525u + 1013904223u;
                    value += static_cast<int>(grain >> 25);
                    *words++ = static_cast<uint16_t>(std::min(value, 4095) << 4);
                }
        return true;
    });
}

std::string hex(uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(number));
    return text;
}

// The low bits of each word are the frame's that was there before, and no part of the picture.
uint64_t hash_of(const void* frame, const FrameFormat& format) {
    const auto* const words = static_cast<const uint16_t*>(frame);
    std::vector<uint16_t> samples(words, words + format.pixels() * 3);
    for (uint16_t& sample : samples) sample = static_cast<uint16_t>(sample & 0xfff0);
    return hash_bytes(samples.data(), samples.size() * sizeof(uint16_t));
}

// Each effect as it comes: a plug-in of its own, for what one does must not depend on what others did.
std::string picture_of(const std::string& plugin_name, const std::string& config, size_t effect, std::string& name) {
    spark_host::Host host;
    host.calling_env = SPARK_ENV_BATCH;
    host.format = {128, 80, SPARK_DEPTH_12};
    host.total_frames = frames;
    host.processors = 2;
    spark_host::Host* const before = spark_host::use_host(&host);
    std::string hash;
    {
        const auto plugin = load_choice(host, choose_effect(plugin_name), config);
        for (int i = 0; i < clips; i++) plugin->inputs.push_back(scene(i));
        if (start_plugin(*plugin)) {
            const PluginDescription description = describe_plugin(*plugin);
            name.clear();
            if (effect < description.effects.size()) {
                name = plugin_name + ":" + description.effects[effect].name;
                std::replace(name.begin(), name.end(), ' ', '_');
                host.frame = shown;
                select_effect(*plugin, description, effect);
                process_start(*plugin, shown);
                const void* const frame = process(*plugin, shown);
                hash = frame ? hex(hash_of(frame, host.format)) : "";
            }
        } else {
            name = plugin_name;
        }
    }
    spark_host::use_host(before);
    return hash;
}

}  // namespace

int verify_command(const std::string& given_config, bool json) {
    drop_plugin_output();
    const std::string config = given_config.empty() ? default_config_directory() : given_config;
    Recipe whole;
    int n = 0, failed = 0;
    nlohmann::ordered_json list = nlohmann::ordered_json::object();
    for (const std::string& plugin : plugin_names())
        for (size_t effect = 0;; effect++) {
            std::string name;
            const std::string hash = picture_of(plugin, config, effect, name);
            if (name.empty()) break;
            n++;
            whole.add(name);
            whole.add(hash);
            list[name] = hash;
            if (!hash.empty()) continue;
            failed++;
            fail(name + ": gave no frame");
            if (name == plugin) break;
        }
    if (n == 0) throw Failure("there are no plug-ins to verify");
    if (json)
        print(
            nlohmann::ordered_json({{"hash", hex(whole.mark)}, {"effects", n}, {"failed", failed}, {"pictures", list}})
                .dump(2) +
            "\n");
    else
        print(hex(whole.mark) + "  " + std::to_string(n) + " effects\n");
    return failed > 0 ? exit_some_failed : exit_done;
}

}  // namespace render
