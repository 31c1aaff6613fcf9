#include "hosts/common/setup_text.h"

#include "hosts/common/numbers.h"
#include "hosts/common/plugin.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace spark_host {
namespace {

constexpr size_t text_piece = 120;  // keeps lines short for readers with small buffers

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += {'\\', c};
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + "\"";
}

std::string unquoted(const std::string& line) {
    std::string out;
    const size_t first = line.find('"');
    for (size_t i = first + 1; first != std::string::npos && i < line.size() && line[i] != '"'; i++) {
        if (line[i] != '\\' || i + 1 == line.size()) {
            out += line[i];
            continue;
        }
        i++;
        out += line[i] == 'n' ? '\n' : line[i];
    }
    return out;
}

std::string interpolation_line(const char* indent, Interpolation interpolation) {
    return std::string(indent) + "Interpolation " + interpolation_word(interpolation) + "\n";
}

// Older hosts have one interpolation for a whole channel.
bool keys_interpolate_p(const Host& host) { return host.api_version >= 2.5f; }

void write_curve(std::string& out, const Host& host, const Curve& curve) {
    if (!keys_interpolate_p(host) && !curve.keys.empty()) out += interpolation_line("\t", curve.keys[0].interpolation);
    for (const Key& key : curve.keys) {
        out += "\tKey\n\t\tFrame " + number_text(key.frame) + "\n\t\tValue " + number_text(key.value) + "\n";
        if (keys_interpolate_p(host)) out += interpolation_line("\t\t", key.interpolation);
        out += "\tEnd\n";
    }
}

// A control's state as a setup gives it, kept apart until the whole text is read.
struct ReadChannel {
    int number = 0, channel = 0;
    bool has_constant = false, has_text = false;
    float constant = 0;
    std::string text;
    Curve curve;
};

struct ReadKey {
    Key key{1, 0};
    bool has_interpolation = false;
};

struct SetupReader {
    std::vector<ReadChannel> channels;
    bool sized = false;
    bool in_channel = false, in_key = false;
    Interpolation interpolation = Interpolation::linear;  // of the channel's keys that say none
    bool has_interpolation = false;
    ReadKey key;

    void line(const std::string& whole) {
        std::istringstream words(whole);
        std::string word, argument, second;
        words >> word >> argument >> second;
        if (word == "frameWidth" || word == "frameHeight") {
            sized = true;
        } else if (word == "SPARK_CHANNEL") {
            begin_channel(argument, second);
        } else if (in_channel) {
            channel_line(whole, word, argument);
        }
    }

    void begin_channel(const std::string& number_word, const std::string& channel_word) {
        long number = 0, channel = 0;
        in_key = false;
        in_channel = read_number(number_word, number) && number >= 0 && number <= SPARK_LAST_CONTROL;
        if (!channel_word.empty() && (!read_number(channel_word, channel) || channel < 0 || channel > 2))
            in_channel = false;
        if (!in_channel) return;
        channels.emplace_back();
        channels.back().number = static_cast<int>(number);
        channels.back().channel = static_cast<int>(channel);
        interpolation = Interpolation::linear;
        has_interpolation = false;
    }

    void channel_line(const std::string& whole, const std::string& word, const std::string& argument) {
        ReadChannel& channel = channels.back();
        if (word == "Key") {
            in_key = true;
            key = ReadKey();
        } else if (word == "End") {
            if (in_key) set_key(channel.curve, key.key.frame, key.key.value, key.key.interpolation);
            if (!in_key) in_channel = false;
            in_key = false;
        } else if (word == "Interpolation") {
            // The first line counts: a tool that adds its own before the old one means to replace it.
            bool& known = in_key ? key.has_interpolation : has_interpolation;
            if (!known) known = read_interpolation(argument.c_str(), in_key ? key.key.interpolation : interpolation);
        } else if (word == "Frame" && in_key) {
            read_number(argument, key.key.frame);
        } else if (word == "Value" && in_key) {
            read_number(argument, key.key.value);
            if (!key.has_interpolation) key.key.interpolation = interpolation;
        } else if (word == "Constant") {
            channel.has_constant = read_number(argument, channel.constant);
        } else if (word == "Text") {
            channel.has_text = true;
            channel.text += unquoted(whole);
        }
    }
};

}  // namespace

std::string setup_text(const Host& host, const Plugin& plugin) {
    std::string out = "frameWidth " + std::to_string(host.format.width) + "\nframeHeight " +
                      std::to_string(host.format.height) + "\n";
    for (const auto& [number, control] : plugin.panel.controls) {
        if (!control.structure) continue;
        const int channels = control_channels(control);
        for (int channel = 0; channel < std::max(1, channels); channel++) {
            out += "SPARK_CHANNEL " + std::to_string(number);
            if (channels > 1) out += " " + std::to_string(channel);
            out += std::string("\n\tChannel ") + kind_word(control.kind) + "\n";
            if (channels > 0) {
                out += "\tConstant " + number_text(control_value(control, channel)) + "\n";
                write_curve(out, host, control.curves[channel]);
            } else {
                const std::string text = value_text(control);
                for (size_t at = 0; at == 0 || at < text.size(); at += text_piece)
                    out += "\tText " + quoted(text.substr(at, text_piece)) + "\n";
            }
            out += "End\n";
        }
    }
    return out;
}

bool read_setup_text(const std::string& text, Plugin& plugin) {
    SetupReader reader;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) reader.line(line);
    if (!reader.sized && reader.channels.empty()) return false;
    for (ReadChannel& read : reader.channels) {
        Control* const control = find_control(plugin.panel, read.number);
        if (!control) continue;
        if (control->kind == SPARK_CONTROL_STRING) {
            auto* const string = static_cast<SparkStringStruct*>(control->structure);
            if (!read.has_text) continue;
            read.text.resize(std::min<size_t>(read.text.size(), SPARK_MAX_STRING - 1));
            std::memcpy(string->Value, read.text.c_str(), read.text.size() + 1);
        } else if (read.channel < control_channels(*control)) {
            if (read.has_constant) set_control_value(*control, read.channel, read.constant);
            control->curves[read.channel] = std::move(read.curve);
        }
    }
    return true;
}

bool save_setup(const Host& host, const Plugin& plugin, const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    file << setup_text(host, plugin);
    file.close();
    return !file.fail();
}

bool load_setup(Plugin& plugin, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return !file.fail() && !text.fail() && read_setup_text(text.str(), plugin);
}

}  // namespace spark_host
