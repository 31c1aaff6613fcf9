#include "hosts/desk/theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace desk {

namespace {

struct Greys {
    int window, base, alternate, button, text, faint, mid, light, dark, disabled;
    QColor accent, accent_text, link;
};

const Greys dark_greys = {
    48, 36, 42, 62, 222, 150, 84, 74, 26, 118, QColor(74, 136, 204), QColor(255, 255, 255), QColor(120, 176, 240)};
const Greys light_greys = {
    226, 244, 236, 214, 28, 104, 168, 250, 150, 140, QColor(38, 104, 180), QColor(255, 255, 255), QColor(20, 84, 160)};

QColor grey(int value) { return {value, value, value}; }

QPalette palette_of(const Greys& greys) {
    QPalette colours;
    const auto set = [&](QPalette::ColorRole role, const QColor& colour) { colours.setColor(role, colour); };
    set(QPalette::Window, grey(greys.window));
    set(QPalette::WindowText, grey(greys.text));
    set(QPalette::Base, grey(greys.base));
    set(QPalette::AlternateBase, grey(greys.alternate));
    set(QPalette::Text, grey(greys.text));
    set(QPalette::PlaceholderText, grey(greys.faint));
    set(QPalette::Button, grey(greys.button));
    set(QPalette::ButtonText, grey(greys.text));
    set(QPalette::BrightText, QColor(255, 96, 80));
    set(QPalette::Light, grey(greys.light));
    set(QPalette::Midlight, grey((greys.light + greys.button) / 2));
    set(QPalette::Mid, grey(greys.mid));
    set(QPalette::Dark, grey(greys.dark));
    set(QPalette::Shadow, grey(greys.dark / 2));
    set(QPalette::Highlight, greys.accent);
    set(QPalette::HighlightedText, greys.accent_text);
    set(QPalette::Link, greys.link);
    set(QPalette::ToolTipBase, grey(greys.alternate));
    set(QPalette::ToolTipText, grey(greys.text));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        colours.setColor(QPalette::Disabled, role, grey(greys.disabled));
    colours.setColor(QPalette::Disabled, QPalette::Highlight, grey(greys.mid));
    return colours;
}

}  // namespace

void set_theme(QApplication& application, const QString& scheme) {
    const bool system_dark = application.palette().color(QPalette::Window).lightness() < 128;
    const bool dark = scheme == "dark" || (scheme != "light" && system_dark);
    application.setStyle(QStyleFactory::create("Fusion"));
    application.setPalette(palette_of(dark ? dark_greys : light_greys));
}

}  // namespace desk
