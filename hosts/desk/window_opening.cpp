// Effects, pictures, texts and setups: what is opened and saved.
#include "hosts/desk/curve_editor.h"
#include "hosts/desk/looks.h"
#include "hosts/desk/text_dock.h"
#include "hosts/desk/timeline.h"
#include "hosts/desk/viewer.h"
#include "hosts/desk/window.h"

#include <QComboBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QRegularExpression>

#include <map>

namespace desk {

namespace {

constexpr const char* new_definition =
    "// What it is for, in a sentence.\n"
    "(def_effect My_Effect (Source) ()\n"
    "  amount = 0.5 (min 0 max 1 step 0.01)  // How much of it.\n"
    "  dest = (mix Source (blur Source 0.05 2 1 1) amount)\n"
    ")\n";

bool text_file(const QString& path) {
    const QString ending = QFileInfo(path).suffix().toLower();
    return ending == "text" || ending == "txt";
}

// Several files of one sequence stand for the whole of it; a single one stands for itself.
QStringList clips_of(const QStringList& paths) {
    std::map<QString, QStringList> sequences;
    QStringList order;
    static const QRegularExpression numbered("^(.*?)(\\d+)(\\.[A-Za-z0-9]+)$");
    for (const QString& path : paths) {
        const QRegularExpressionMatch match = numbered.match(QFileInfo(path).fileName());
        const QString pattern = match.hasMatch()
                                    ? QFileInfo(path).path() + "/" + match.captured(1) +
                                          QString("%0%1d").arg(match.captured(2).size()) + match.captured(3)
                                    : path;
        if (!sequences.count(pattern)) order << pattern;
        sequences[pattern] << path;
    }
    QStringList clips;
    for (const QString& pattern : order) clips << (sequences[pattern].size() > 1 ? pattern : sequences[pattern][0]);
    return clips;
}

}  // namespace

void Window::begin(const QStringList& arguments, const QString& setup, const QString& look) {
    offer_lost_session();
    OpenRequest request;
    QStringList pictures = arguments;
    request.effect = default_effect;
    if (!pictures.isEmpty()) {
        // The first word is an effect unless it is a picture.
        const QString first = pictures[0];
        const QString ending = QFileInfo(first).suffix().toLower();
        const bool picture = !ending.isEmpty() && !text_file(first) && ending != "so" && !first.contains(".text:") &&
                             !first.contains(".txt:");
        if (!picture) request.effect = pictures.takeFirst().toStdString();
    }
    for (const QString& path : pictures) request.inputs.push_back(QFileInfo(path).absoluteFilePath().toStdString());
    if (arguments.size() == pictures.size() && !pictures.isEmpty() && QFileInfo(pictures[0]).isFile()) {
        request.made = request.inputs[0];
        request.inputs_otherwise = request.inputs;
        request.inputs.erase(request.inputs.begin());
    }
    request.look = look.toStdString();
    if (!setup.isEmpty()) {
        request.setup_file = QFileInfo(setup).absoluteFilePath().toStdString();
        const QString named = effect_of_setup(setup);
        if (arguments.size() == pictures.size() && !named.isEmpty()) request.effect = named.toStdString();
    }
    if (!arguments.isEmpty() || !look.isEmpty() || !setup.isEmpty()) open(request);
}

void Window::open(const OpenRequest& request) {
    viewer_->set_hint(tr("Opening %1 ...").arg(QString::fromStdString(request.effect)));
    engine_.open(request);
}

void Window::show_opened(const OpenState& state) {
    const bool other_pictures = state.request.inputs != request_.inputs || !history_.present();
    open_ = state;
    request_ = state.request;
    request_.setup.clear();
    request_.look.clear();
    request_.setup_file.clear();
    request_.restores = request_.replaces = false;
    request_.made.clear();
    title_->setText(QString("%1 : %2").arg(state.plugin, QString(state.name).replace('_', ' ')));
    title_->setToolTip(state.note);
    setWindowTitle(state.plugin + ":" + state.name);
    input_->clear();
    for (int i = 0; i < state.inputs.size(); i++) {
        const QString file = QFileInfo(state.input_paths.value(i)).fileName();
        input_->addItem(file.isEmpty() ? tr("%1: none").arg(state.inputs[i])
                                       : QString("%1: %2").arg(state.inputs[i], file));
    }
    input_->setVisible(state.inputs.size() > 1);
    timeline_->set_clip(state);
    curve_->set_clip(state);
    viewer_->set_clip(state);
    if (!state.request.edited) {
        const bool file = state.from_text && QFileInfo(state.text_path).isFile();
        text_->set_text(state.definitions, state.from_text ? state.text_path : state.plugin + ".text", file);
        looks_->note_used(state.effect);
    } else if (state.request.restores && text_->text() != state.definitions) {
        text_->set_text(state.definitions, state.text_path, QFileInfo(state.text_path).isFile());
    }
    if (!recovered_text_.isEmpty() && recovered_text_ != text_->text()) text_->editor()->setPlainText(recovered_text_);
    recovered_text_.clear();
    if (state.request.restores) {
        show_history();
    } else {
        QString values_of;
        if (!state.request.look.empty())
            values_of = ", " + QString::fromStdString(state.request.look).replace('_', ' ');
        if (!state.request.setup_file.empty())
            values_of = ", " + QFileInfo(QString::fromStdString(state.request.setup_file)).fileName();
        HistoryEntry entry{request_,
                           state.request.replaces ? tr("text of %1").arg(state.name)
                                                  : QString("%1 : %2%3").arg(state.plugin, state.name, values_of),
                           state.setup};
        const HistoryEntry* const now = history_.present();
        const bool replaces = state.request.replaces && now && now->open.edited && now->open.effect == request_.effect;
        if (replaces)
            history_.replace(entry);
        else
            history_.add(entry);
        journal_.write_entry(entry, replaces);
        show_history();
    }
    looks_->set_open(state);
    if (other_pictures) looks_->forget_thumbnails();
}

void Window::choose(const Choice& choice) {
    if (!history_.present() || QString::fromStdString(choice.effect).compare(open_.effect, Qt::CaseInsensitive) != 0)
        return open_choice(choice);
    engine_.post(0, true, [choice](Worker& worker) {
        if (choice.setup.empty())
            worker.load_look(choice.look);
        else
            worker.load_setup(choice.setup);
    });
}

void Window::open_choice(const Choice& choice) {
    OpenRequest request = request_;
    request.effect = choice.effect;
    request.look = choice.look;
    request.setup_file = choice.setup;
    request.edited = false;
    request.text.clear();
    request.frame = timeline_->frame();
    open(request);
}

void Window::take_files(const QStringList& paths, bool as_made) {
    QStringList pictures;
    for (const QString& path : paths) {
        if (text_file(path)) {
            open_choice({path.toStdString(), {}, {}});
        } else if (path.endsWith(".setup")) {
            const QString effect = effect_of_setup(path);
            const QString own = open_.effect.isEmpty() ? QString(default_effect) : open_.effect;
            choose({(effect.isEmpty() ? own : effect).toStdString(), {}, path.toStdString()});
        } else {
            pictures << path;
        }
    }
    if (pictures.isEmpty()) return;
    OpenRequest request = request_;
    std::vector<std::string> inputs;
    for (const QString& path : clips_of(pictures)) inputs.push_back(path.toStdString());
    if (request.effect.empty()) request.effect = default_effect;
    if (as_made && pictures.size() == 1 && QFileInfo(pictures[0]).isFile()) {
        request.made = inputs[0];
        request.inputs_otherwise = inputs;
        request.frame = timeline_->frame();
    } else {
        request.inputs = inputs;
    }
    if (history_.present()) request.setup = history_.present()->setup;
    open(request);
}

void Window::open_pictures() {
    take_files(
        QFileDialog::getOpenFileNames(
            this, tr("Open pictures: one for each input; several files of a sequence are one clip"), QString(),
            tr("Pictures and movies (*.png *.jpg *.jpeg *.tif *.tiff *.exr *.dpx *.mov *.mkv *.mp4);;All files (*)")),
        false);
}

void Window::open_as_made() {
    const QString path = QFileDialog::getOpenFileName(
        this, tr("Open effect and values of a picture that says how it was made"), QString(),
        tr("Pictures (*.png *.tif *.tiff *.exr);;All files (*)"), nullptr, QFileDialog::DontUseNativeDialog);
    if (!path.isEmpty()) take_files({path}, true);
}

void Window::open_text() {
    const QString path = QFileDialog::getOpenFileName(this, tr("Open a text"), QString(), tr("Texts (*.text *.txt)"));
    if (!path.isEmpty()) open_choice({path.toStdString(), {}, {}});
}

void Window::new_text() {
    OpenRequest request = request_;
    request.effect = "my.text:My_Effect";
    request.edited = true;
    request.text = new_definition;
    text_->set_text(new_definition, "my.text", false);
    open(request);
    text_dock_->raise();
    text_->editor()->setFocus();
}

// What is typed is tried at once; values stay with the params that keep their names.
void Window::check_text() {
    OpenRequest request = request_;
    const QString name = open_.name;
    request.effect = (text_->path() + ":" + QString(name).replace(' ', '_')).toStdString();
    request.text = text_->text().toStdString();
    request.edited = true;
    request.replaces = true;
    request.frame = timeline_->frame();
    if (history_.present()) journal_.write_text(text_->text());
    engine_.check_text(request);
}

void Window::save_setup() {
    const QString name = QString("%1/setups/%2.setup").arg(data_directory_, QString(open_.name).replace(' ', '_'));
    const QString path = QFileDialog::getSaveFileName(this, tr("Save the setup"), name, tr("Setups (*.setup)"), nullptr,
                                                      QFileDialog::DontUseNativeDialog);
    if (path.isEmpty()) return;
    engine_.post(0, false, [this, file = path.toStdString()](Worker& worker) {
        worker.save_setup(file);
        QMetaObject::invokeMethod(looks_, &Looks::setups_changed);
    });
}

void Window::load_setup() {
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Load a setup"), data_directory_ + "/setups",
                                     tr("Setups (*.setup);;All files (*)"), nullptr, QFileDialog::DontUseNativeDialog);
    if (path.isEmpty()) return;
    if (path.endsWith(".setup")) return take_files({path}, false);
    engine_.post(0, false, [file = path.toStdString()](Worker& worker) { worker.load_setup(file); });
}

void Window::want_thumbnails() {
    if (request_.effect.empty()) return;
    size_t in_sight = 0;
    const std::vector<Choice> wanted = looks_->wanted(&in_sight);
    engine_.want_thumbnails(wanted, in_sight);
}

}  // namespace desk
