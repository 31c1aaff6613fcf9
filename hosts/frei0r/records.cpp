#include "hosts/frei0r/records.h"

#include "hosts/render/failure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>

namespace frei0r {
namespace {

using render::EffectDescription;
using render::ParamDescription;

// Letters and digits with underlines between: what a file, a shell and a filter's description take without quotes.
std::string slug_of(const std::string& name) {
    std::string slug;
    for (const char c : name) {
        const bool capital = c >= 'A' && c <= 'Z', plain = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (capital || plain)
            slug += static_cast<char>(capital ? c - 'A' + 'a' : c);
        else if (!slug.empty() && slug.back() != '_')
            slug += '_';
    }
    return slug;
}

// Four digits: for people.
std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", value);
    return text;
}

std::string sentence(std::string text, const std::string& more) {
    return text + (text.empty() || more.empty() ? "" : " ") + more;
}

// A popup's entries without the name of the param in front of each.
std::vector<std::string> entries(const ParamDescription& param) {
    std::vector<std::string> words;
    for (const std::string& label : param.labels) {
        if (label.empty()) break;
        const size_t colon = label.find(": ");
        words.push_back(colon == std::string::npos ? label : label.substr(colon + 2));
    }
    return words;
}

// The range that most people need, else the bounds, else one that holds what the param is likely to be used for. In
// any case the default is within.
void choose_range(const ParamDescription& from, Param& to) {
    const float value = to.defaults[0];
    const float reach = std::max(1.0f, 2 * std::fabs(value));
    to.low = from.soft_min ? *from.soft_min : from.min ? *from.min : -reach;
    to.high = from.soft_max ? *from.soft_max : from.max ? *from.max : reach;
    to.low = std::min(to.low, value);
    to.high = std::max(to.high, value);
    if (!(to.low < to.high)) to.high = to.low + 1;
}

std::string channel_word(const ParamDescription& param, int channel) {
    if (!param.channel_names[channel].empty()) return param.channel_names[channel];
    return param.channels == 2 ? (channel ? "y" : "x") : std::to_string(channel + 1);
}

Param make_param(const ParamDescription& from, int channel) {
    Param to;
    to.param = to.name = from.name;
    to.channel = channel;
    to.defaults[0] = from.defaults[channel];
    to.note = from.note;
    if (from.channels > 1 && from.kind != "color") to.name += "_" + slug_of(channel_word(from, channel));
    if (from.kind == "color") {
        to.kind = Kind::colour;
        for (int i = 0; i < 3; i++) to.defaults[i] = std::clamp(from.defaults[i], 0.0f, 1.0f);
    } else if (from.kind == "string") {
        to.kind = Kind::text;
    } else if (from.kind == "boolean") {
        to.kind = Kind::boolean;
    } else if (from.kind == "popup") {
        to.scale = Scale::entries;
        to.labels = entries(from);
        to.high = static_cast<float>(std::max<size_t>(2, to.labels.size()) - 1);
        std::string list;
        for (size_t i = 0; i < to.labels.size(); i++)
            list += (i ? ", " : "") + number(host_value(to, static_cast<float>(i))) + " " + to.labels[i];
        to.note = sentence(to.note, list + ".");
    } else {
        if (from.kind == "int") to.scale = Scale::whole;
        choose_range(from, to);
        if (from.moves) to.note = sentence(to.note, "Set it for each frame.");
        to.note = sentence(to.note, "0 to 1 is " + number(to.low) + " to " + number(to.high) +
                                        (from.unit.empty() ? "." : " " + from.unit + "."));
    }
    return to;
}

}  // namespace

std::string left_out(const EffectDescription& effect) {
    if (effect.retimes) return "another number of frames comes out than goes in";
    if (effect.reads_frames) return "it looks at other frames of the clip, which a frei0r host does not give";
    if (effect.remembers) return "a frame depends on those before it, and a frei0r host may take frames in any order";
    if (effect.inputs.size() > 3) return "it has more inputs than frei0r knows";
    return "";
}

Module make_module(const std::string& family, const EffectDescription& effect) {
    Module module;
    module.slug = "velloran_" + slug_of(effect.name);
    std::string name = effect.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    module.effect = family + ":" + name;
    module.title = "Velloran " + effect.name;
    module.note = effect.note;
    module.inputs = static_cast<int>(effect.inputs.size());
    if (module.inputs > 1) {
        std::string list;
        for (const std::string& input : effect.inputs) list += (list.empty() ? "Inputs: " : ", ") + input;
        module.note = sentence(module.note, list + ".");
    }
    for (const ParamDescription& param : effect.params) {
        if (param.kind == "label" || param.kind == "button" || param.numbers.empty()) continue;
        const int channels = param.kind == "color" ? 1 : param.channels;
        for (int channel = 0; channel < channels; channel++) module.params.push_back(make_param(param, channel));
    }
    return module;
}

std::vector<Order> read_orders(const std::string& text, const std::string& path) {
    std::vector<Order> orders;
    std::istringstream lines(text);
    int at = 0;
    for (std::string line; std::getline(lines, line);) {
        at++;
        std::istringstream words(line);
        std::string first, second, more;
        words >> first >> second >> more;
        if (first.empty() || first[0] == '#') continue;
        const bool param = line[0] == ' ';
        if (!more.empty() || (param ? !second.empty() || orders.empty() : second.empty()))
            throw render::Failure(path + ":" + std::to_string(at) + ": neither 'SLUG FAMILY:EFFECT' nor '  PARAM'");
        if (param)
            orders.back().params.push_back(first);
        else
            orders.push_back({first, second, {}});
    }
    return orders;
}

std::string orders_text(const std::vector<Order>& orders) {
    std::string text =
        "# The modules, and their params in the order that hosts know them by: their projects keep the numbers. What "
        "is\n"
        "# new comes last, and nothing is moved or taken away. scripts/renew-frei0r appends what is missing.\n";
    for (const Order& order : orders) {
        text += order.slug + " " + order.effect + "\n";
        for (const std::string& param : order.params) text += "  " + param + "\n";
    }
    return text;
}

bool append_orders(std::vector<Order>& orders, const std::vector<Module>& modules) {
    bool appended = false;
    for (const Module& module : modules) {
        auto order = std::find_if(orders.begin(), orders.end(), [&](const Order& o) { return o.slug == module.slug; });
        if (order == orders.end()) {
            order = orders.insert(orders.end(), {module.slug, module.effect, {}});
            appended = true;
        } else if (order->effect != module.effect) {
            throw render::Failure(module.slug + " would be both " + order->effect + " and " + module.effect);
        }
        for (const Param& param : module.params) {
            if (std::find(order->params.begin(), order->params.end(), param.name) != order->params.end()) continue;
            order->params.push_back(param.name);
            appended = true;
        }
    }
    return appended;
}

std::vector<Module> ordered_modules(const std::vector<Module>& modules, const std::vector<Order>& orders) {
    std::vector<Module> ordered;
    for (const Order& order : orders) {
        const auto module =
            std::find_if(modules.begin(), modules.end(), [&](const Module& m) { return m.slug == order.slug; });
        if (module == modules.end()) throw render::Failure(order.slug + ": there is no effect " + order.effect);
        std::map<std::string, const Param*> known;
        for (const Param& param : module->params) known[param.name] = &param;
        Module& made = ordered.emplace_back(*module);
        made.params.clear();
        for (const std::string& name : order.params) {
            Param unused;
            unused.name = name;
            unused.note = "No longer of any use.";
            made.params.push_back(known.count(name) ? *known[name] : unused);
        }
    }
    return ordered;
}

}  // namespace frei0r
