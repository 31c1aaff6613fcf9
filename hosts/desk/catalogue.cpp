#include "hosts/desk/catalogue.h"

#include "hosts/render/look_file.h"
#include "hosts/render/setup_file.h"

#include <algorithm>

namespace desk {

std::vector<LookState> look_states(const render::EffectChoice& choice, const std::string& effect,
                                   const std::string& config) {
    std::vector<LookState> states;
    for (const render::Look& look : looks_of(read_looks(choice, config), effect))
        states.push_back({QString::fromStdString(look.name), QString::fromStdString(look.note)});
    return states;
}

Catalogue::Catalogue(std::string config) : config_(std::move(config)), plugins_(render::plugin_names()) {
    // As people look names up.
    std::sort(plugins_.begin(), plugins_.end(), [](const std::string& a, const std::string& b) {
        return QString::fromStdString(a).compare(QString::fromStdString(b), Qt::CaseInsensitive) < 0;
    });
}

bool Catalogue::work(std::vector<EffectState>& effects, QString* trouble) {
    if (next_ >= plugins_.size()) return false;
    const std::string name = plugins_[next_++];
    try {
        spark_host::Host host;
        host.calling_env = SPARK_ENV_BATCH;
        host.format = {64, 36, SPARK_DEPTH_8};
        const render::EffectChoice choice = render::choose_effect(name);
        const auto plugin = render::load_choice(host, choice, config_);
        if (!start_plugin(*plugin)) return true;
        for (const render::EffectDescription& effect : render::describe_plugin(*plugin).effects) {
            EffectState& state = effects.emplace_back();
            state.effect = QString::fromStdString(name + ":" + render::underscored(effect.name));
            state.family = QString::fromStdString(name);
            state.name = QString::fromStdString(effect.name).replace('_', ' ');
            state.note = QString::fromStdString(effect.note);
            for (const std::string& input : effect.inputs) state.inputs << QString::fromStdString(input);
            try {
                state.looks = look_states(choice, effect.name, config_);
            } catch (const std::exception& problem) {
                *trouble = QString::fromStdString(problem.what());
            }
        }
    } catch (const std::exception&) {
        // One that cannot be loaded cannot be chosen.
    }
    return true;
}

}  // namespace desk
