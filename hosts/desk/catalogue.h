// All effects that can be chosen, found plug-in by plug-in while nothing else is to be done.
#pragma once

#include "hosts/render/effect.h"

#include <QMetaType>
#include <QString>
#include <QStringList>

#include <string>
#include <vector>

namespace desk {

struct LookState {
    QString effect;  // as the command line takes it
    QString family, name, note;
    QStringList inputs;
};

// Host's thread.
class Catalogue {
public:
    explicit Catalogue(std::string config);

    // Asks the next plug-in, whose effects are added to the end of looks; false if all were asked.
    bool work(std::vector<LookState>& looks);

private:
    std::string config_;
    std::vector<std::string> plugins_;
    size_t next_ = 0;
};

}  // namespace desk

Q_DECLARE_METATYPE(std::vector<desk::LookState>)
