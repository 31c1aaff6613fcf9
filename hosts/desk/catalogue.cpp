#include "hosts/desk/catalogue.h"

#include <algorithm>

namespace desk {

Catalogue::Catalogue(std::string config) : config_(std::move(config)), plugins_(render::plugin_names()) {}

bool Catalogue::work(std::vector<LookState>& looks) {
    if (next_ >= plugins_.size()) return false;
    const std::string name = plugins_[next_++];
    try {
        spark_host::Host host;
        host.calling_env = SPARK_ENV_BATCH;
        host.format = {64, 36, SPARK_DEPTH_8};
        const auto plugin = render::load_choice(host, render::choose_effect(name), config_);
        if (!start_plugin(*plugin)) return true;
        for (const render::EffectDescription& effect : render::describe_plugin(*plugin).effects) {
            LookState look;
            std::string word = effect.name;
            std::replace(word.begin(), word.end(), ' ', '_');
            look.effect = QString::fromStdString(name + ":" + word);
            look.family = QString::fromStdString(name);
            look.name = QString::fromStdString(effect.name).replace('_', ' ');
            look.note = QString::fromStdString(effect.note);
            for (const std::string& input : effect.inputs) look.inputs << QString::fromStdString(input);
            looks.push_back(look);
        }
    } catch (const std::exception&) {
        // One that cannot be loaded cannot be chosen.
    }
    return true;
}

}  // namespace desk
