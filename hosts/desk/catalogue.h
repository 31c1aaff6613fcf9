// All effects that can be chosen, found plug-in by plug-in while nothing else is to be done.
#pragma once

#include "hosts/desk/state.h"
#include "hosts/render/effect.h"

#include <QMetaType>
#include <QString>
#include <QStringList>

#include <string>
#include <vector>

namespace desk {

// The looks of an effect in the order of their file. Fails if that is damaged.
std::vector<LookState> look_states(const render::EffectChoice& choice, const std::string& effect,
                                   const std::string& config);

struct EffectState {
    QString effect;  // as the command line takes it
    QString family, name, note;
    QStringList inputs;
    std::vector<LookState> looks;
};

// Host's thread.
class Catalogue {
public:
    explicit Catalogue(std::string config);

    // Asks the next plug-in, whose effects are added to the end; false if all were asked. *trouble: what is wrong with
    // the file of its looks, of which there are none then.
    bool work(std::vector<EffectState>& effects, QString* trouble);

private:
    std::string config_;
    std::vector<std::string> plugins_;
    size_t next_ = 0;
};

}  // namespace desk

Q_DECLARE_METATYPE(std::vector<desk::EffectState>)
