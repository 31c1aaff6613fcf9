// Colours of the desk: neutral greys, so that nothing around a picture tints it.
#pragma once

#include <QString>

class QApplication;

namespace desk {

// scheme: "dark", "light", or "system" for what the system's own windows are.
void set_theme(QApplication& application, const QString& scheme);

}  // namespace desk
