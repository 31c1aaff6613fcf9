// velloran-desk: effects in a person's hands.
#include "hosts/desk/theme.h"
#include "hosts/desk/window.h"
#include "hosts/render/console.h"

#include <QApplication>
#include <QCommandLineParser>

#include <clocale>
#include <cstdio>

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
    const QCommandLineOption look("look", "Begin with a look of the effect, as 'velloran list EFFECT' shows them",
                                  "NAME");
    options.addOptions({setup, look, theme});
    options.process(application);
    if (options.isSet(setup) && options.isSet(look)) {
        std::fputs("velloran-desk: a look and a setup each bring their own values; leave one of them out\n", stderr);
        return 2;
    }
    desk::set_theme(application, options.value(theme));

    desk::Window window;
    window.show();
    window.begin(options.positionalArguments(), options.value(setup), options.value(look));
    return QApplication::exec();
}
