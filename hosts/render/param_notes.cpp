#include "hosts/render/param_notes.h"

#include "hosts/common/numbers.h"
#include "hosts/render/suggest.h"

#include <sstream>

namespace render {
namespace {

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r"), last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

// Takes "Word: ... ." off the end.
std::string take_part(std::string& note, const std::string& word) {
    const size_t at = note.find(word);
    if (at == std::string::npos) return "";
    std::string part = trimmed(note.substr(at + word.size()));
    if (!part.empty() && part.back() == '.') part.pop_back();
    note = trimmed(note.substr(0, at));
    return part;
}

void fill(ParamDescription& param, std::string note) {
    const std::string usual = take_part(note, "Usual:");
    param.unit = take_part(note, "Unit:");
    param.note = note;
    const size_t to = usual.find(" to ");
    float least = 0, most = 0;
    if (to == std::string::npos || !spark_host::read_number(trimmed(usual.substr(0, to)), least) ||
        !spark_host::read_number(trimmed(usual.substr(to + 4)), most) || !(least < most))
        return;
    param.soft_min = least;
    param.soft_max = most;
}

// The name in front of '=', if the line declares or assigns something.
std::string assigned_name(const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) return "";
    const std::string name = trimmed(line.substr(0, equals));
    return name.find_first_of(" \t(\"") == std::string::npos ? name : "";
}

}  // namespace

void read_notes(const std::string& text, PluginDescription& description) {
    EffectDescription* effect = nullptr;
    std::string above;  // comment lines that nothing but line ends parts from the next line
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t slashes = line.find("//");
        const std::string code = trimmed(line.substr(0, slashes));
        const std::string note = slashes == std::string::npos ? "" : trimmed(line.substr(slashes + 2));
        if (code.empty()) {
            above = slashes == std::string::npos ? "" : above.empty() ? note : above + " " + note;
            continue;
        }
        std::istringstream words(code);
        std::string keyword, name;
        words >> keyword >> name;
        if (keyword == "(def_effect" || keyword == "(define" || keyword == "(def_spark") {
            effect = nullptr;
            for (EffectDescription& known : description.effects)
                if (same_name_p(known.name, name)) effect = &known;
            if (effect) effect->note = above;
        } else if (effect) {
            const std::string assigned = assigned_name(code);
            for (ParamDescription& param : effect->params)
                if (!assigned.empty() && same_name_p(param.name, assigned) && param.note.empty())
                    fill(param, note.empty() ? above : note);
        }
        above.clear();
    }
}

}  // namespace render
