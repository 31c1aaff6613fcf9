// velloran-desk: effects in a person's hands.
#include "hosts/desk/theme.h"
#include "hosts/desk/window.h"
#include "hosts/render/console.h"

#include <QApplication>
#include <QCommandLineParser>

#include <clocale>

int main(int argc, char** argv) {
    render::open_console();
    render::drop_plugin_output();
    QApplication application(argc, argv);
    // Texts of effects and setups have the same numbers everywhere.
    std::setlocale(LC_ALL, "C");
    QLocale::setDefault(QLocale::c());
    QApplication::setApplicationName("velloran-desk");
    QApplication::setApplicationDisplayName("Velloran Desk");
    QApplication::setApplicationVersion("4.04");
    QApplication::setOrganizationName("velloran");

    QCommandLineParser options;
    options.setApplicationDescription("Effects over pictures, in a window.");
    options.addHelpOption();
    options.addVersionOption();
    options.addPositionalArgument("EFFECT", "A plug-in, one of its effects (color:Grade), or a text of definitions",
                                  "[EFFECT]");
    options.addPositionalArgument("PICTURE", "Stills, sequences with %04d or #### in their names, movies",
                                  "[PICTURE...]");
    const QCommandLineOption setup("setup", "Begin with the values of a setup", "FILE");
    const QCommandLineOption theme("theme", "dark, light, or system (the default)", "NAME", "system");
    options.addOptions({setup, theme});
    options.process(application);
    desk::set_theme(application, options.value(theme));

    desk::Window window;
    window.show();
    window.begin(options.positionalArguments(), options.value(setup));
    return QApplication::exec();
}
