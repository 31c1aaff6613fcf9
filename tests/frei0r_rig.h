// A frei0r host in a few lines, and what the command line makes of the same values.
#pragma once

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <frei0r.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace test_frei0r {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

// A module in memory as long as this lives.
class Loaded {
public:
    explicit Loaded(const std::string& slug) {
        handle_ = dlopen((std::string(MODULE_DIR) + "/" + slug + ".so").c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_TRUE(handle_) << dlerror();
        find(init, "f0r_init"), find(deinit, "f0r_deinit"), find(info_of, "f0r_get_plugin_info");
        find(param_of, "f0r_get_param_info"), find(construct, "f0r_construct"), find(destruct, "f0r_destruct");
        find(set, "f0r_set_param_value"), find(get, "f0r_get_param_value"), find(update, "f0r_update");
        find(update2, "f0r_update2");
        EXPECT_EQ(init(), 1);
        info_of(&info);
        for (int i = 0; i < info.num_params; i++) param_of(&params.emplace_back(), i);
    }
    ~Loaded() {
        deinit();
        dlclose(handle_);
    }
    Loaded(const Loaded&) = delete;

    int (*init)();
    void (*deinit)();
    decltype(&f0r_get_plugin_info) info_of;
    decltype(&f0r_get_param_info) param_of;
    decltype(&f0r_construct) construct;
    decltype(&f0r_destruct) destruct;
    decltype(&f0r_set_param_value) set;
    decltype(&f0r_get_param_value) get;
    decltype(&f0r_update) update;
    decltype(&f0r_update2) update2;
    f0r_plugin_info_t info = {};
    std::vector<f0r_param_info_t> params;

    int inputs() const { return info.plugin_type == F0R_PLUGIN_TYPE_SOURCE ? 0 : std::max(1, info.plugin_type); }

private:
    template <class F>
    void find(F& function, const char* name) {
        function = reinterpret_cast<F>(dlsym(handle_, name));
        EXPECT_TRUE(function) << name;
    }
    void* handle_;
};

inline std::vector<std::string> all_slugs() {
    std::vector<std::string> slugs;
    for (const auto& entry : fs::directory_iterator(MODULE_DIR)) slugs.push_back(entry.path().stem().string());
    std::sort(slugs.begin(), slugs.end());
    return slugs;
}

// What a command prints; its standard error goes to the test's.
inline Bytes output_of(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    Bytes bytes;
    unsigned char block[65536];
    for (size_t n; (n = fread(block, 1, sizeof(block), pipe)) > 0;) bytes.insert(bytes.end(), block, block + n);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return bytes;
}

inline const nlohmann::json& list_of(const std::string& argument) {
    static std::map<std::string, nlohmann::json> known;
    if (!known.count(argument)) {
        const Bytes text = output_of(std::string(VELLORAN_PROGRAM) + " list " + argument + " --json");
        known[argument] = nlohmann::json::parse(text.begin(), text.end());
    }
    return known[argument];
}

// A noisy picture with edges and alpha, rows from the top.
inline Bytes picture(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(static_cast<size_t>(width * height * 4));
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++)
            for (int c = 0; c < 4; c++)
                bytes[static_cast<size_t>((y * width + x) * 4 + c)] = static_cast<unsigned char>(
                    ((x / 9 + y / 7 + static_cast<int>(seed)) % 2 ? 150 : 20) + random() % 100 + (c == 2 ? 5 : 0));
    return bytes;
}

inline Bytes without_alpha(const Bytes& from) {
    Bytes to;
    for (size_t i = 0; i < from.size(); i++)
        if (i % 4 != 3) to.push_back(from[i]);
    return to;
}

// 256 where the pictures are not of one size.
inline int largest_difference(const Bytes& a, const Bytes& b) {
    int most = a.size() == b.size() && !a.empty() ? 0 : 256;
    for (size_t i = 0; i < std::min(a.size(), b.size()); i++) most = std::max(most, std::abs(a[i] - b[i]));
    return most;
}

// A number of a param, of one channel of it, for the command line.
inline std::string digits(float value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.9g", static_cast<double>(value));
    return text;
}

struct Value {
    std::string name;
    int index = 0;     // of the host
    double hosts = 0;  // 0 to 1
    std::string effects;
};

// Every value of an effect by what `list` tells: its first one, or any. Colours have three, one after the other.
struct Values {
    std::vector<Value> list;
    std::string arguments;  // of the command line

    Values(const nlohmann::json& params, const std::map<std::string, int>& indices, std::mt19937* random) {
        for (const auto& param : params) {
            const std::string kind = param["kind"], name = param["name"];
            if (kind == "label" || kind == "button") continue;
            const size_t channels = param["default"].size();
            std::string words;
            for (size_t c = 0; c < channels; c++) {
                const auto start = param["default"][c].get<float>();
                double low = 0, high = 1;
                range(param, c, low, high);
                double hosts = (static_cast<double>(start) - low) / (high - low);
                float effects = start;
                if (random) {
                    hosts = (*random)() % 1001 / 1000.0;
                    effects = scaled(param, c, hosts);
                }
                std::string known = name;
                for (const std::string& end : channel_ends(c))
                    if (channels > 1 && kind != "color" && indices.count(name + end)) known = name + end;
                const auto at = indices.find(known);
                EXPECT_NE(at, indices.end()) << known << " is in no order: run scripts/renew-frei0r";
                if (at == indices.end()) continue;
                list.push_back({known, at->second, hosts, digits(effects)});
                words += (c ? "," : "") + list.back().effects;
            }
            arguments += " -p '" + name + "=" + words + "'";
        }
    }

    // What a host's number stands for.
    static float scaled(const nlohmann::json& param, size_t c, double hosts) {
        const std::string kind = param["kind"];
        double low = 0, high = 1;
        range(param, c, low, high);
        const double value = low + hosts * (high - low);
        if (kind == "boolean") return hosts >= 0.5 ? 1.0f : 0.0f;
        return static_cast<float>(kind == "popup" || kind == "int" ? std::round(value) : value);
    }

    // As the host sets them.
    void give(const Loaded& module, f0r_instance_t instance) const {
        for (size_t i = 0; i < list.size(); i++) {
            if (module.params[static_cast<size_t>(list[i].index)].type == F0R_PARAM_COLOR) {
                f0r_param_color_t colour = {static_cast<float>(list[i].hosts), static_cast<float>(list[i + 1].hosts),
                                            static_cast<float>(list[i + 2].hosts)};
                module.set(instance, &colour, list[i].index);
                i += 2;
            } else {
                double value = list[i].hosts;
                module.set(instance, &value, list[i].index);
            }
        }
    }

private:
    static std::vector<std::string> channel_ends(size_t c) {
        return {c == 0 ? "_x" : c == 1 ? "_y" : "_z", c == 0 ? "_left" : "_right", "_" + std::to_string(c + 1)};
    }
    static void range(const nlohmann::json& param, size_t c, double& low, double& high) {
        const std::string kind = param["kind"];
        if (kind == "popup") high = std::max<double>(1, static_cast<double>(param["labels"].size()) - 1);
        if (kind != "float" && kind != "int") return;
        const auto start = param["default"][c].get<float>();
        const float reach = std::max(1.0f, 2 * std::fabs(start));
        const auto bound = [&](const char* side, int usual, float otherwise) {
            return param.contains("usual")  ? param["usual"][static_cast<size_t>(usual)].get<float>()
                   : !param[side].is_null() ? param[side].get<float>()
                                            : otherwise;
        };
        low = std::min(bound("min", 0, -reach), start), high = std::max(bound("max", 1, reach), start);
    }
};

// An effect as the order names it, its module's params by name, and what `list` says of it.
struct Known {
    std::string slug, effect;
    std::map<std::string, int> indices;
    nlohmann::json listed;
};
inline std::vector<Known> known_modules() {
    std::vector<Known> all;
    std::ifstream file(ORDERS);
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        if (line[0] == ' ') {
            const int index = static_cast<int>(all.back().indices.size());
            EXPECT_TRUE(all.back().indices.emplace(line.substr(2), index).second) << line << " stands twice";
        } else {
            all.push_back({line.substr(0, line.find(' ')), line.substr(line.find(' ') + 1), {}, {}});
        }
    }
    for (Known& known : all) {
        const std::string family = known.effect.substr(0, known.effect.find(':'));
        for (const auto& effect : list_of(family).at("effects")) {
            std::string name = effect["name"];
            std::replace(name.begin(), name.end(), ' ', '_');
            if (family + ":" + name == known.effect) known.listed = effect;
        }
        EXPECT_FALSE(known.listed.is_null()) << known.effect << " is gone";
    }
    return all;
}

// A directory of pictures for other programs: in0.ppm and so on.
class Pictures {
public:
    Pictures(int width, int height) : width_(width), height_(height) {
        std::string pattern = (fs::temp_directory_path() / "velloran_frei0r_XXXXXX").string();
        dir = mkdtemp(pattern.data());
        for (unsigned i = 0; i < 3; i++) {
            inputs.push_back(picture(width, height, i + 1));
            const Bytes rgb = without_alpha(inputs.back());
            std::ofstream file(dir / ("in" + std::to_string(i) + ".ppm"), std::ios::binary);
            file << "P6\n" << width << " " << height << "\n255\n";
            file.write(reinterpret_cast<const char*>(rgb.data()), static_cast<std::streamsize>(rgb.size()));
        }
    }
    ~Pictures() { fs::remove_all(dir); }
    Pictures(const Pictures&) = delete;

    std::string input(int i) const { return (dir / ("in" + std::to_string(i) + ".ppm")).string(); }
    std::string size() const { return std::to_string(width_) + "x" + std::to_string(height_); }

    // What the command line makes, three bytes a pixel.
    Bytes command_line(const std::string& effect, int n_inputs, const std::string& arguments, int frame) const {
        std::string command = std::string(VELLORAN_PROGRAM) + " render '" + effect + "' -q";
        for (int i = 0; i < n_inputs; i++) command += " -i " + input(i);
        if (n_inputs == 0) command += " --size " + size();
        const std::string number = std::to_string(frame);
        return output_of(command + arguments + " --fps 25 --first 1 --length 1000000 -f " + number + " -o -.rgb24");
    }
    Bytes module(const Loaded& loaded, f0r_instance_t instance, double time) const {
        Bytes out(inputs[0].size(), 1);
        const auto in = [&](size_t i) { return reinterpret_cast<const uint32_t*>(inputs[i].data()); };
        auto* const to = reinterpret_cast<uint32_t*>(out.data());
        if (loaded.info.plugin_type < F0R_PLUGIN_TYPE_MIXER2)
            loaded.update(instance, time, loaded.inputs() ? in(0) : nullptr, to);
        else
            loaded.update2(instance, time, in(0), in(1), loaded.inputs() > 2 ? in(2) : nullptr, to);
        return out;
    }

    fs::path dir;
    std::vector<Bytes> inputs;

private:
    int width_, height_;
};

}  // namespace test_frei0r
