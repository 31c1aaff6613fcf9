// The shipped families of effects in a host that the test sets up, and what can be done to any control of theirs.
#pragma once

#include "tests/render/text_plugin.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace test_render {

inline std::vector<std::string> shipped_families() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(PLUGIN_DIR))
        if (file.path().extension() == ".so" && file.path().stem() != "text") names.push_back(file.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

// A param as the plug-in describes it.
struct DescribedParam {
    int effect;  // -1: a standard control
    std::string name, key, kind, group;
    std::vector<int> numbers;
    int channels;
    float step, min, max;         // min above max: no bounds known
    std::vector<float> defaults;  // of each channel
    int labels;
    bool color_only, on_screen, pixels;
};

struct Described {
    std::vector<std::string> effects;
    std::vector<std::vector<std::string>> inputs;  // of each effect, by name
    std::vector<bool> remembers;                   // of each effect: a frame depends on those before it
    std::vector<DescribedParam> params;
};

inline Described describe(const Plugin& plugin) {
    Described all;
    const SparkDescribeVisitor visitor = {&all,
                                          [](void* context, const SparkEffectInfo* effect) {
                                              auto& described = *static_cast<Described*>(context);
                                              described.effects.push_back(effect->Name);
                                              described.remembers.push_back(effect->Flags & SPARK_EFFECT_REMEMBERS);
                                              described.inputs.emplace_back(effect->InputNames,
                                                                            effect->InputNames + effect->Inputs);
                                          },
                                          [](void* context, const SparkParamInfo* info) {
                                              DescribedParam p = {};
                                              p.effect = info->Effect;
                                              p.name = info->Name;
                                              p.key = info->Key ? info->Key : "";
                                              p.kind = info->Kind;
                                              p.group = info->Group ? info->Group : "";
                                              p.step = info->Step;
                                              p.channels = info->Channels;
                                              p.min = info->Min;
                                              p.max = info->Max;
                                              p.defaults.assign(info->Default, info->Default + info->Channels);
                                              p.labels = info->Labels;
                                              for (int i = 0; i < info->Controls; ++i)
                                                  p.numbers.push_back(info->Numbers[i]);
                                              p.on_screen = (info->Flags & SPARK_PARAM_ON_SCREEN) != 0;
                                              p.pixels = (info->Flags & SPARK_PARAM_PIXELS) != 0;
                                              p.color_only = (info->Flags & SPARK_PARAM_COLOUR_ONLY) != 0;
                                              static_cast<Described*>(context)->params.push_back(p);
                                          }};
    reinterpret_cast<SparkDescribeFn>(plugin_symbol(plugin, "SparkDescribe"))(&visitor);
    return all;
}

struct ShippedPlugin {
    explicit ShippedPlugin(std::string name) : family(std::move(name)) {
        host.format = {20, 16, SPARK_DEPTH_8};
        host.processors = 2;
        host.total_frames = 4;
        previous = use_host(&host);
    }
    ~ShippedPlugin() {
        plugin.reset();
        use_host(previous);
    }
    ShippedPlugin(const ShippedPlugin&) = delete;
    ShippedPlugin& operator=(const ShippedPlugin&) = delete;

    bool start() {
        std::string error;
        plugin = load_plugin(host, PLUGIN_DIR "/" + family + ".so", config.path() + "/" + family, &error);
        if (!plugin) {
            ADD_FAILURE() << error;
            return false;
        }
        for (unsigned i = 0; i < 4; ++i) plugin->inputs.push_back(random_clip(4, i + 1));
        return start_plugin(*plugin);
    }
    std::vector<unsigned char> render(int frame = 0) {
        process_start(*plugin, frame);
        const auto* const rendered = static_cast<const unsigned char*>(process(*plugin, frame));
        if (!rendered) return {};
        return {rendered, rendered + host.format.bytes()};
    }

    std::string family;
    Host host;
    Host* previous;
    ConfigDir config;
    std::unique_ptr<Plugin> plugin;
};

// One effect of a family in force, its first frame rendered.
struct Chosen {
    Chosen(const std::string& family, int effect) : shipped(family) {
        started = shipped.start();
        if (!started) return;
        shipped.render();
        if (describe(*shipped.plugin).effects.size() > 1) {
            set_control_value(*find_control(shipped.plugin->panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
            use_control(*shipped.plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
        }
        shipped.render();
        // A transition has got its curve by now, and would go on following it.
        for (auto& [number, control] : shipped.plugin->panel.controls)
            for (Curve& curve : control.curves) {
                if (!curve.keys.empty()) animated.insert(number);
                curve = {};
            }
    }
    ShippedPlugin shipped;
    std::set<int> animated;  // numbers that had a curve
    bool started;
};

}  // namespace test_render
