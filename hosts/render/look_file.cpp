#include "hosts/render/look_file.h"

#include "hosts/render/failure.h"
#include "hosts/render/suggest.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace render {
namespace {

namespace fs = std::filesystem;

constexpr float width_of_looks = 1920, height_of_looks = 1080;

std::string path_of_looks(const EffectChoice& choice, const std::string& config) {
    if (choice.text_path.empty()) return config + "/looks/" + choice.plugin + ".looks";
    return fs::path(choice.text_path).replace_extension(".looks").string();
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

struct LookReader {
    const std::string& path;
    std::vector<Look> looks;
    std::string note;
    int number = 0;

    std::string place() const { return path + ":" + std::to_string(number); }
    [[noreturn]] void broken(const std::string& why) const { throw Failure(place() + ": " + why); }

    void heading(const std::string& words) {
        const size_t colon = words.find(':');
        Look look;
        look.effect = words.substr(0, colon);
        if (colon != std::string::npos) look.name = words.substr(colon + 1);
        if (look.effect.empty() || look.name.empty() || look.name.find_first_of(": \t=") != std::string::npos ||
            look.effect.find_first_of(" \t=") != std::string::npos)
            broken("'" + words + "' is not of the form EFFECT:LOOK");
        for (const Look& other : looks)
            if (same_name_p(other.effect, look.effect) && same_name_p(other.name, look.name))
                broken("there is a look " + words + " already");
        look.note = note;
        look.place = place();
        looks.push_back(std::move(look));
    }

    void line(const std::string& text) {
        const std::string words = trimmed(text);
        const bool comment = words.rfind("//", 0) == 0;
        if (comment) {
            note += (note.empty() ? "" : " ") + trimmed(words.substr(2));
            return;
        }
        if (!words.empty() && text[0] != ' ' && text[0] != '\t') {
            heading(words);
        } else if (!words.empty()) {
            if (looks.empty()) broken("values stand below the name of a look");
            std::istringstream parts(words);
            for (std::string value; parts >> value;) {
                const size_t equals = value.find('=');
                if (equals == 0 || equals == std::string::npos) broken("'" + value + "' is not of the form NAME=VALUE");
                looks.back().values.push_back(value);
            }
        }
        note.clear();
    }
};

void scale_places(std::vector<ValueKey>& keys, const spark_host::FrameFormat& format) {
    const float parts[] = {static_cast<float>(format.width) / width_of_looks,
                           static_cast<float>(format.height) / height_of_looks};
    for (ValueKey& key : keys)
        for (size_t i = 0; i < key.values.size(); i++) key.values[i] *= parts[i > 0];
}

}  // namespace

std::vector<Look> read_looks(const EffectChoice& choice, const std::string& config) {
    // A text that came with a picture has no directory to look in.
    const std::string path = path_of_looks(choice, config);
    std::error_code error;
    if (!fs::exists(path, error)) return {};
    LookReader reader{path, {}, "", 0};
    std::istringstream lines(read_text_file(path));
    for (std::string line; std::getline(lines, line);) {
        reader.number++;
        reader.line(line);
    }
    return std::move(reader.looks);
}

std::vector<Look> looks_of(const std::vector<Look>& looks, const std::string& effect) {
    std::vector<Look> own;
    std::copy_if(looks.begin(), looks.end(), std::back_inserter(own),
                 [&](const Look& look) { return same_name_p(look.effect, effect); });
    return own;
}

Look find_look(const RenderPlan& plan, const std::string& name) {
    if (plan.description.effects.empty()) throw Failure(plan.choice.plugin + ": has no looks");
    const EffectDescription& effect = plan.description.effects[plan.effect];
    std::vector<Look> looks = looks_of(read_looks(plan.choice, plan.config), effect.name);
    std::vector<std::string> names;
    for (const Look& look : looks) names.push_back(look.name);
    const auto found =
        std::find_if(looks.begin(), looks.end(), [&](const Look& look) { return same_name_p(look.name, name); });
    if (found == looks.end())
        throw Failure("'" + plan.choice.plugin + ":" + effect.name + "' has no look '" + name + "'" +
                      did_you_mean(name, names));
    return std::move(*found);
}

std::vector<Assignment> read_look(const RenderPlan& plan, const std::string& name) {
    const Look look = find_look(plan, name);
    std::vector<Assignment> assignments;
    for (const std::string& value : look.values) {
        try {
            assignments.push_back(parse_param(value, plan.description.effects[plan.effect].params));
        } catch (const Failure& problem) {
            throw Failure(look.place + ": " + problem.what(), problem.status);
        }
        for (size_t i = 0; i + 1 < assignments.size(); i++)
            if (assignments[i].param == assignments.back().param)
                throw Failure(look.place + ": " + assignments.back().param->name + " is given twice");
        if (assignments.back().param->pixels) scale_places(assignments.back().keys, plan.host.format);
    }
    return assignments;
}

}  // namespace render
