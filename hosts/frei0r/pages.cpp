#include "hosts/frei0r/pages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace frei0r {
namespace {

constexpr const char* author = "Velloran";

std::string digits(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.9g", value);
    return text;
}

const char* mlt_type(const Module& module) {
    return module.inputs == 0 ? "producer" : module.inputs == 1 ? "filter" : "transition";
}

// A YAML text in double quotes.
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string xml(const std::string& text) {
    std::string out;
    for (const char c : text) switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    return out;
}

// "glow_width" as people read it.
std::string words(const std::string& name) {
    std::string text = name;
    std::replace(text.begin(), text.end(), '_', ' ');
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

std::string colour(const Param& param, const char* prefix, const char* suffix) {
    char text[32];
    const auto byte = [&](int i) { return static_cast<unsigned>(std::lround(param.defaults[i] * 255)) & 255; };
    std::snprintf(text, sizeof(text), "%s%02x%02x%02x%s", prefix, byte(0), byte(1), byte(2), suffix);
    return text;
}

std::string mlt_param(const Param& param, size_t index) {
    std::string text = "  - identifier: " + quoted(std::to_string(index)) +
                       "\n    title: " + quoted(words(param.name)) + "\n    description: " + quoted(param.note) + "\n";
    const std::string value = digits(host_value(param, param.defaults[0]));
    switch (param.kind) {
        case Kind::boolean:
            text +=
                "    type: boolean\n    default: " + value + "\n    minimum: 0\n    maximum: 1\n    widget: checkbox\n";
            break;
        case Kind::number:
            text +=
                "    type: float\n    default: " + value + "\n    minimum: 0\n    maximum: 1\n    widget: spinner\n";
            break;
        case Kind::colour:
            text += "    type: color\n    default: " + quoted(colour(param, "#", "")) + "\n    widget: color\n";
            break;
        case Kind::text:
            return text + "    type: string\n    mutable: yes\n";
    }
    return text + "    mutable: yes\n    animation: yes\n";
}

std::string kdenlive_param(const Param& param, size_t index) {
    std::string type, values, inner;
    const double value = host_value(param, param.defaults[0]);
    switch (param.kind) {
        case Kind::boolean:
            type = "bool";
            values = "default=\"" + digits(value) + "\" min=\"0\" max=\"1\"";
            break;
        case Kind::colour:
            type = "color";
            values = "default=\"" + colour(param, "0x", "ff") + "\"";
            break;
        case Kind::text:
            type = "keywords";
            break;
        case Kind::number:
            if (param.scale == Scale::entries) {
                type = "list";
                std::string list, shown;
                for (size_t i = 0; i < param.labels.size(); i++) {
                    // A comma parts entries.
                    std::string label = param.labels[i];
                    std::replace(label.begin(), label.end(), ',', ';');
                    list += (i ? ";" : "") + digits(host_value(param, static_cast<float>(i)));
                    shown += (i ? "," : "") + xml(label);
                }
                values = "default=\"" + digits(value) + "\" paramlist=\"" + list + "\"";
                inner = "        <paramlistdisplay>" + shown + "</paramlistdisplay>\n";
            } else {
                type = "animated";
                // What is shown is the host's value times the factor: the effect's own numbers where they begin at 0.
                const double factor = param.low == 0 ? param.high : 100;
                values = "default=\"" + digits(value) + "\" min=\"0\" max=\"" + digits(factor) + "\" factor=\"" +
                         digits(factor) + "\" decimals=\"" + (factor > 20 ? "1" : "3") + "\"";
            }
    }
    return "    <parameter type=\"" + type + "\" name=\"" + std::to_string(index) + "\" " + values + ">\n" + inner +
           "        <name>" + xml(words(param.name)) + "</name>\n" +
           (param.note.empty() ? "" : "        <comment>" + xml(param.note) + "</comment>\n") + "    </parameter>\n";
}

}  // namespace

std::string mlt_name(const Module& module) { return std::string(mlt_type(module)) + "_frei0r." + module.slug + ".yml"; }

std::string mlt_page(const Module& module) {
    std::string text = "schema_version: 7.0\ntype: " + std::string(mlt_type(module)) + "\nidentifier: frei0r." +
                       module.slug + "\ntitle: " + quoted(module.title) + "\nversion: 1\ncreator: " + author +
                       "\nlicense: BSD\nlanguage: en\ntags:\n  - Video\ndescription: " + quoted(module.note) + "\n";
    if (!module.params.empty()) text += "parameters:\n";
    for (size_t i = 0; i < module.params.size(); i++) text += mlt_param(module.params[i], i);
    return text;
}

std::string kdenlive_name(const Module& module) {
    const char* const directory = module.inputs == 0 ? "generators" : module.inputs == 1 ? "effects" : "transitions";
    return std::string(directory) + "/frei0r_" + module.slug + ".xml";
}

std::string kdenlive_page(const Module& module) {
    if (module.inputs > 2) return "";
    const std::string element = module.inputs == 0 ? "generator" : module.inputs == 1 ? "effect" : "transition";
    std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n<" + element + " LC_NUMERIC=\"C\" tag=\"frei0r." +
                       module.slug + "\" id=\"frei0r." + module.slug + "\">\n    <name>" + xml(module.title) +
                       "</name>\n    <description>" + xml(module.note) + "</description>\n    <author>" + author +
                       "</author>\n";
    for (size_t i = 0; i < module.params.size(); i++)
        if (!module.params[i].param.empty()) text += kdenlive_param(module.params[i], i);
    return text + "</" + element + ">\n";
}

}  // namespace frei0r
