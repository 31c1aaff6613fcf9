#include "hosts/desk/window.h"

#include "hosts/common/frame_list.h"
#include "hosts/desk/curve_editor.h"
#include "hosts/desk/looks.h"
#include "hosts/desk/output_dock.h"
#include "hosts/desk/panel.h"
#include "hosts/desk/text_dock.h"
#include "hosts/desk/timeline.h"
#include "hosts/desk/viewer.h"
#include "hosts/render/console.h"

#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <map>

namespace desk {

namespace {

constexpr int kept_messages = 200;
constexpr int messages_in_tip = 20;
constexpr const char* new_definition =
    "// What it is for, in a sentence.\n"
    "(def_effect My_Effect (Source) ()\n"
    "  amount = 0.5 (min 0 max 1 step 0.01)  // How much of it.\n"
    "  dest = (mix Source (blur Source 0.05 2 1 1) amount)\n"
    ")\n";

QString data_directory() {
    const QString directory = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    QDir().mkpath(directory + "/setups");
    QDir().mkpath(directory + "/sessions");
    return directory;
}

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

Window::Window(QWidget* parent)
    : QMainWindow(parent), data_directory_(data_directory()), journal_(data_directory_ + "/sessions") {
    setObjectName("desk");
    setAcceptDrops(true);
    resize(1500, 940);
    viewer_ = new Viewer(engine_);
    panel_ = new Panel(engine_);
    timeline_ = new Timeline;

    auto* const upper = new QWidget;
    auto* const column = new QVBoxLayout(upper);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(make_recovery_bar());
    auto* const bar = new QWidget;
    make_viewer_bar(bar);
    column->addWidget(bar);
    column->addWidget(make_probe());
    column->addWidget(viewer_, 1);
    column->addWidget(timeline_);
    auto* const splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(upper);
    splitter->addWidget(panel_);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 0);
    splitter->setSizes({640, 260});
    setCentralWidget(splitter);

    message_ = new QLabel;
    message_->setObjectName("message");
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    statusBar()->addWidget(message_, 1);
    frame_state_ = new QLabel;
    frame_state_->setObjectName("frame state");
    statusBar()->addPermanentWidget(frame_state_);

    make_docks();
    make_menus();
    connect_engine();
    engine_.start();
    viewer_->setFocus();
}

Window::~Window() { render::set_console_listener(nullptr); }

// ---- Making ----

QWidget* Window::make_recovery_bar() {
    recovery_ = new QWidget;
    recovery_->setObjectName("recovery");
    recovery_->setAutoFillBackground(true);
    recovery_->setBackgroundRole(QPalette::AlternateBase);
    auto* const row = new QHBoxLayout(recovery_);
    row->setContentsMargins(8, 4, 8, 4);
    recovery_text_ = new QLabel;
    row->addWidget(recovery_text_, 1);
    auto* const restore = new QPushButton(tr("Go on with it"));
    restore->setObjectName("recover");
    connect(restore, &QPushButton::clicked, this, [this] {
        if (lost_) recover(*lost_);
    });
    row->addWidget(restore);
    auto* const discard = new QPushButton(tr("Leave it"));
    discard->setObjectName("leave lost");
    connect(discard, &QPushButton::clicked, this, [this] {
        if (lost_) Journal::drop(lost_->path);
        lost_.reset();
        recovery_->hide();
    });
    row->addWidget(discard);
    recovery_->hide();
    return recovery_;
}

void Window::make_viewer_bar(QWidget* bar) {
    auto* const row = new QHBoxLayout(bar);
    row->setContentsMargins(8, 3, 8, 3);
    row->setSpacing(4);
    title_ = new QLabel;
    title_->setObjectName("title");
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    row->addWidget(title_);
    row->addSpacing(12);
    auto* const modes = new QActionGroup(this);
    const struct {
        const char* name;
        const char* help;
        Viewer::Mode mode;
        Qt::Key key;
    } rows[] = {
        {"Result", "The effect's picture (1)", Viewer::Mode::result, Qt::Key_1},
        {"Input", "What goes in (2)", Viewer::Mode::input, Qt::Key_2},
        {"Wipe", "Input on the left of a line, result on the right; drag the line (3)", Viewer::Mode::wipe, Qt::Key_3},
        {"Both", "Result and input side by side (4)", Viewer::Mode::side_by_side, Qt::Key_4}};
    for (const auto& mode : rows) {
        auto* const action = new QAction(tr(mode.name), this);
        action->setToolTip(tr(mode.help));
        action->setShortcut(mode.key);
        action->setCheckable(true);
        action->setChecked(mode.mode == Viewer::Mode::result);
        connect(action, &QAction::triggered, this, [this, which = mode.mode] { viewer_->set_mode(which); });
        modes->addAction(action);
        addAction(action);
        auto* const button = new QToolButton;
        button->setDefaultAction(action);
        button->setObjectName(QString("view ") + mode.name);
        button->setAutoRaise(true);
        row->addWidget(button);
    }
    input_ = new QComboBox;
    input_->setObjectName("shown input");
    input_->setAccessibleName(tr("Input shown"));
    input_->setToolTip(tr("Which input is shown: the picture, a matte, a second clip"));
    connect(input_, &QComboBox::activated, viewer_, &Viewer::set_input);
    row->addWidget(input_);
    auto* const channels = new QComboBox;
    channels->setObjectName("channels");
    channels->setAccessibleName(tr("Channels"));
    channels->setToolTip(tr("Channels shown (C goes round)"));
    channels->addItems({tr("RGB"), tr("Red"), tr("Green"), tr("Blue"), tr("Luma")});
    connect(channels, &QComboBox::currentIndexChanged, this,
            [this](int index) { viewer_->set_channels(static_cast<Viewer::Channels>(index)); });
    row->addWidget(channels);
    auto* const round = new QAction(this);
    round->setShortcut(Qt::Key_C);
    connect(round, &QAction::triggered, this,
            [channels] { channels->setCurrentIndex((channels->currentIndex() + 1) % channels->count()); });
    addAction(round);
    auto* const handles = new QAction(tr("Handles"), this);
    handles->setCheckable(true);
    handles->setChecked(true);
    handles->setShortcut(Qt::Key_H);
    handles->setToolTip(tr("Handles over the picture (H)"));
    connect(handles, &QAction::toggled, viewer_, &Viewer::set_handles);
    addAction(handles);
    auto* const handles_button = new QToolButton;
    handles_button->setDefaultAction(handles);
    handles_button->setAutoRaise(true);
    row->addWidget(handles_button);
    row->addStretch(1);
    row->addSpacing(12);
    auto* const zoom = new QLabel;
    zoom->setObjectName("zoom");
    zoom->setMinimumWidth(fontMetrics().horizontalAdvance("3200 %  "));
    zoom->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    connect(viewer_, &Viewer::zoom_changed, this,
            [zoom](double factor) { zoom->setText(QString("%1 %").arg(factor * 100, 0, 'f', factor < 0.1 ? 1 : 0)); });
    row->addWidget(zoom);
}

// A line of its own, as high and as wide with values as without: a picture that is laid out anew under the pen would
// carry the handle in hand away.
QWidget* Window::make_probe() {
    probe_ = new QLabel;
    probe_->setObjectName("probe");
    probe_->setTextFormat(Qt::RichText);
    probe_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    probe_->setContentsMargins(8, 0, 8, 2);
    probe_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    probe_->setFixedHeight(fontMetrics().height() + 6);
    return probe_;
}

void Window::make_docks() {
    setCorner(Qt::BottomLeftCorner, Qt::LeftDockWidgetArea);
    setCorner(Qt::BottomRightCorner, Qt::RightDockWidgetArea);
    const auto dock = [this](const QString& title, const char* name, QWidget* widget, Qt::DockWidgetArea area) {
        auto* const made = new QDockWidget(title);
        made->setObjectName(name);
        made->setWidget(widget);
        addDockWidget(area, made);
        return made;
    };
    looks_ = new Looks(data_directory_ + "/setups", data_directory_ + "/recent");
    looks_dock_ = dock(tr("Looks"), "looks dock", looks_, Qt::LeftDockWidgetArea);
    steps_ = new QListWidget;
    steps_->setObjectName("history");
    steps_->setAccessibleName(tr("History"));
    connect(steps_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) { go_to_step(steps_->row(item)); });
    connect(steps_, &QListWidget::itemActivated, this,
            [this](QListWidgetItem* item) { go_to_step(steps_->row(item)); });
    steps_dock_ = dock(tr("History"), "history dock", steps_, Qt::RightDockWidgetArea);
    text_ = new TextDock;
    text_dock_ = dock(tr("Text"), "text dock", text_, Qt::RightDockWidgetArea);
    output_ = new OutputDock;
    output_dock_ = dock(tr("Output"), "output dock", output_, Qt::RightDockWidgetArea);
    curve_ = new CurveEditor(engine_);
    curve_dock_ = dock(tr("Curve"), "curve dock", curve_, Qt::RightDockWidgetArea);
    tabifyDockWidget(steps_dock_, curve_dock_);
    tabifyDockWidget(curve_dock_, text_dock_);
    tabifyDockWidget(text_dock_, output_dock_);
    steps_dock_->raise();
    resizeDocks({looks_dock_, steps_dock_}, {320, 300}, Qt::Horizontal);

    connect(looks_, &Looks::effect_chosen, this, [this](const QString& effect) { choose_effect(effect, QString()); });
    connect(looks_, &Looks::setup_chosen, this, &Window::choose_effect);
    connect(looks_, &Looks::thumbnails_wanted, this, &Window::want_thumbnails);
    connect(text_, &TextDock::changed, this, &Window::check_text);
    connect(text_, &TextDock::told, this, &Window::tell);
    connect(output_, &OutputDock::told, this, &Window::tell);
    connect(output_, &OutputDock::render_asked, this, [this](const QString& output, const QString& frames) {
        if (output.trimmed().isEmpty()) return tell(2, tr("An output is needed, such as out.%04d.exr"));
        engine_.job(QFileInfo(output).isRelative() ? QDir::current().filePath(output) : output, frames);
    });
    connect(output_, &OutputDock::copy_asked, this, [this](const QString& output, const QString& frames) {
        engine_.command(output.trimmed().isEmpty() ? "out.%04d.png" : output, frames);
    });
}

void Window::make_menus() {
    const auto add = [this](QMenu* menu, const QString& text, const QKeySequence& keys, auto function) {
        QAction* const action = menu->addAction(text, this, function);
        action->setShortcut(keys);
        return action;
    };
    const auto show = [add](QMenu* menu, QDockWidget* dock, const QKeySequence& keys, QWidget* focus) {
        add(menu, dock->windowTitle(), keys, [dock, focus] {
            dock->show();
            dock->raise();
            if (focus) focus->setFocus();
        });
    };
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    add(file, tr("&Open pictures..."), QKeySequence::Open, [this] { open_pictures(); });
    add(file, tr("Open as a picture was &made..."), Qt::CTRL | Qt::SHIFT | Qt::Key_M, [this] { open_as_made(); });
    file->addSeparator();
    add(file, tr("&Load setup..."), Qt::CTRL | Qt::Key_L, [this] { load_setup(); });
    add(file, tr("&Save setup..."), QKeySequence::Save, [this] { save_setup(); });
    file->addSeparator();
    add(file, tr("&New text"), QKeySequence::New, [this] { new_text(); });
    add(file, tr("Open &text..."), Qt::CTRL | Qt::SHIFT | Qt::Key_O, [this] { open_text(); });
    add(file, tr("Sa&ve text"), Qt::CTRL | Qt::SHIFT | Qt::Key_S, [this] { text_->save(); });
    file->addSeparator();
    add(file, tr("&Copy as command"), Qt::CTRL | Qt::SHIFT | Qt::Key_C,
        [this] { findChild<QPushButton*>("copy command")->click(); });
    add(file, tr("&Go on with the last session"), QKeySequence(), [this] {
        if (const auto last = Journal::last_closed(data_directory_ + "/sessions"))
            recover(*last);
        else
            tell(1, tr("There is no earlier session"));
    });
    file->addSeparator();
    add(file, tr("&Quit"), QKeySequence::Quit, [this] { close(); });

    QMenu* const edit = menuBar()->addMenu(tr("&Edit"));
    undo_ = add(edit, tr("&Undo"), QKeySequence::Undo, [this] { go_to_step(history_.undo_index()); });
    redo_ = add(edit, tr("&Redo"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z),
                [this] { go_to_step(history_.redo_index()); });
    redo_->setShortcuts({Qt::CTRL | Qt::SHIFT | Qt::Key_Z, Qt::CTRL | Qt::Key_Y});
    add(edit, tr("Reset &all"), Qt::CTRL | Qt::Key_Backspace,
        [this] { engine_.post(0, true, [](Worker& worker) { worker.reset(0); }); });

    QMenu* const view = menuBar()->addMenu(tr("&View"));
    add(view, tr("&Fit"), Qt::Key_F, [this] { viewer_->fit(); });
    add(view, tr("&1:1"), Qt::SHIFT | Qt::Key_F, [this] {
        viewer_->set_zoom(1 / viewer_->devicePixelRatioF(), QPointF(viewer_->width() / 2.0, viewer_->height() / 2.0));
    });
    add(view, tr("&Process"), Qt::Key_F5,
        [this] { engine_.post(0, true, [](Worker& worker) { worker.process_now(); }); });

    QMenu* const play = menuBar()->addMenu(tr("F&rames"));
    add(play, tr("&Play"), Qt::Key_L, [this] {
        if (!timeline_->playing()) timeline_->toggle_play();
    });
    add(play, tr("&Stop"), Qt::Key_J, [this] {
        if (timeline_->playing()) timeline_->toggle_play();
    });
    add(play, tr("&Next frame"), Qt::Key_Period, [this] { timeline_->step(1); });
    add(play, tr("P&revious frame"), Qt::Key_Comma, [this] { timeline_->step(-1); });
    add(play, tr("First frame"), Qt::CTRL | Qt::Key_Home, [this] { timeline_->go(timeline_->in()); });
    add(play, tr("Last frame"), Qt::CTRL | Qt::Key_End, [this] { timeline_->go(timeline_->out()); });
    add(play, tr("&In here"), Qt::Key_I, [this] { timeline_->set_in(); });
    add(play, tr("&Out here"), Qt::Key_O, [this] { timeline_->set_out(); });

    QMenu* const go = menuBar()->addMenu(tr("&Go to"));
    add(go, tr("&Viewer"), Qt::CTRL | Qt::Key_1, [this] { viewer_->setFocus(); });
    add(go, tr("&Controls"), Qt::CTRL | Qt::Key_2, [this] { panel_->focus_first(); });
    add(go, tr("&Search for a look"), QKeySequence::Find, [this] {
        looks_dock_->show();
        looks_dock_->raise();
        looks_->search();
    });
    show(go, looks_dock_, Qt::CTRL | Qt::Key_3, findChild<QListWidget*>("looks"));
    show(go, steps_dock_, Qt::CTRL | Qt::Key_4, steps_);
    show(go, text_dock_, Qt::CTRL | Qt::Key_5, text_->editor());
    show(go, output_dock_, Qt::CTRL | Qt::Key_6, output_->findChild<QWidget*>("output path"));
    show(go, curve_dock_, Qt::CTRL | Qt::Key_7, curve_->findChild<QWidget*>("curve view"));
}

void Window::connect_engine() {
    connect(&engine_, &Engine::opened, this, &Window::show_opened);
    connect(&engine_, &Engine::panel_changed, this, [this](const PanelState& state) {
        panel_->show_state(state);
        timeline_->show_keys(state);
        curve_->show_state(state);
    });
    connect(&engine_, &Engine::picture_made, this, &Window::show_picture);
    connect(&engine_, &Engine::probed, this, &Window::show_probe);
    connect(&engine_, &Engine::told, this, &Window::tell);
    connect(&engine_, &Engine::step_made, this, [this](const StepState& step) { add_step(step.label, step.setup); });
    connect(&engine_, &Engine::looks_found, looks_, &Looks::add);
    connect(&engine_, &Engine::functions_found, text_, &TextDock::set_functions);
    connect(&engine_, &Engine::thumbnail_made, looks_, &Looks::set_thumbnail);
    connect(&engine_, &Engine::text_checked, text_, &TextDock::show_messages);
    connect(&engine_, &Engine::job_made, output_, &OutputDock::add);
    connect(&engine_, &Engine::command_made, this, [this](const QString& line) {
        QApplication::clipboard()->setText(line);
        tell(0, tr("Copied: %1").arg(line));
    });
    connect(viewer_, &Viewer::pointed_at, &engine_, &Engine::probe);
    connect(timeline_, &Timeline::frame_asked, &engine_, &Engine::seek);
    connect(timeline_, &Timeline::frame_asked, this, [this](int frame) {
        if (!timeline_->playing() && history_.present()) journal_.write_frame(frame);
    });
    connect(timeline_, &Timeline::range_changed, output_, &OutputDock::set_frames);
    connect(timeline_, &Timeline::length_asked, this, [this](int frames) {
        OpenRequest request = request_;
        request.length = frames;
        request.setup = history_.present() ? history_.present()->setup : std::string();
        open(request);
    });
    connect(panel_, &Panel::seek_asked, timeline_, &Timeline::go);
    connect(panel_, &Panel::control_used, curve_, &CurveEditor::show_control);
    connect(curve_, &CurveEditor::seek_asked, timeline_, &Timeline::go);
    connect(curve_, &CurveEditor::jump_asked, panel_, &Panel::jump_to_key);
    render::set_console_listener([this](int level, const std::string& text) {
        QMetaObject::invokeMethod(this, [this, level, text] { tell(level, QString::fromStdString(text)); });
    });
}

// ---- Opening ----

void Window::begin(const QStringList& arguments, const QString& setup) {
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
    if (!arguments.isEmpty()) open(request);
    if (!setup.isEmpty())
        engine_.post(0, false, [path = setup.toStdString()](Worker& worker) { worker.load_setup(path); });
}

void Window::open(const OpenRequest& request) { engine_.open(request); }

void Window::show_opened(const OpenState& state) {
    const bool other_pictures = state.request.inputs != request_.inputs || !history_.present();
    open_ = state;
    request_ = state.request;
    request_.setup.clear();
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
        HistoryEntry entry{request_,
                           state.request.replaces ? tr("text of %1").arg(state.name)
                                                  : QString("%1 : %2").arg(state.plugin, state.name),
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
    if (other_pictures) looks_->forget_thumbnails();
}

void Window::choose_effect(const QString& effect, const QString& setup_path) {
    OpenRequest request = request_;
    request.effect = effect.toStdString();
    request.edited = false;
    request.text.clear();
    request.frame = timeline_->frame();
    open(request);
    if (!setup_path.isEmpty())
        engine_.post(0, false, [path = setup_path.toStdString()](Worker& worker) { worker.load_setup(path); });
}

void Window::take_files(const QStringList& paths, bool as_made) {
    QStringList pictures;
    for (const QString& path : paths) {
        if (text_file(path)) {
            choose_effect(path, QString());
        } else if (path.endsWith(".setup")) {
            const QString effect = effect_of_setup(path);
            if (effect.isEmpty() || effect.compare(open_.effect, Qt::CaseInsensitive) == 0)
                engine_.post(0, false, [file = path.toStdString()](Worker& worker) { worker.load_setup(file); });
            else
                choose_effect(effect, path);
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
    if (!path.isEmpty()) choose_effect(path, QString());
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
    engine_.want_thumbnails(looks_->wanted());
}

// ---- Steps ----

void Window::add_step(const QString& label, const std::string& setup) {
    const HistoryEntry* const now = history_.present();
    if (!now) return;
    HistoryEntry entry{request_, step_words(now->setup, setup, label), setup};
    if (!history_.add(entry)) return;
    journal_.write_entry(entry, false);
    show_history();
}

void Window::show_history() {
    const auto& entries = history_.entries();
    while (steps_->count() > static_cast<int>(entries.size())) delete steps_->takeItem(steps_->count() - 1);
    for (int i = 0; i < static_cast<int>(entries.size()); i++) {
        const QString& label = entries[static_cast<size_t>(i)].label;
        if (i >= steps_->count()) steps_->addItem(label);
        if (steps_->item(i)->text() != label) steps_->item(i)->setText(label);
    }
    steps_->setCurrentRow(history_.index());
    undo_->setEnabled(history_.undo_index() >= 0);
    redo_->setEnabled(history_.redo_index() >= 0);
}

void Window::go_to_step(int index) {
    const HistoryEntry* const now = history_.present();
    if (index < 0 || index >= static_cast<int>(history_.entries().size()) || index == history_.index() || !now) return;
    const bool one_back = index == history_.undo_index();
    const OpenRequest before = now->open;
    history_.go(index);
    const HistoryEntry& entry = *history_.present();
    journal_.write_index(index);
    show_history();
    if (same_open(before, entry.open)) {
        engine_.post(0, true, [setup = entry.setup, one_back](Worker& worker) { worker.restore(setup, one_back); });
        return;
    }
    OpenRequest request = entry.open;
    request.setup = entry.setup;
    request.restores = true;
    request.frame = timeline_->frame();
    open(request);
}

void Window::offer_lost_session() {
    lost_ = Journal::find_lost(data_directory_ + "/sessions");
    // Where nothing was done but opening, nothing is lost.
    if (lost_ && lost_->entries.size() < 2 && lost_->text.isEmpty()) {
        Journal::drop(lost_->path);
        lost_.reset();
    }
    if (!lost_) return;
    const HistoryEntry& entry = lost_->entries[static_cast<size_t>(lost_->index)];
    recovery_text_->setText(tr("Work of %1 on %2, %3 steps, was not closed.")
                                .arg(lost_->when, QString::fromStdString(entry.open.effect))
                                .arg(lost_->entries.size()));
    recovery_->show();
}

void Window::recover(const KeptSession& session) {
    history_ = History();
    for (const HistoryEntry& entry : session.entries) {
        history_.add(entry);
        journal_.write_entry(entry, false);
    }
    const int index = std::min(session.index, static_cast<int>(history_.entries().size()) - 1);
    history_.go(index);
    journal_.write_index(index);
    OpenRequest request = history_.present()->open;
    request.setup = history_.present()->setup;
    request.restores = true;
    request.frame = session.frame;
    recovered_text_ = session.text;
    open(request);
    timeline_->begin_at(session.frame);
    show_history();
    Journal::drop(session.path);
    lost_.reset();
    recovery_->hide();
}

// ---- Showing ----

void Window::show_picture(const PictureState& picture) {
    viewer_->show_picture(picture);
    timeline_->show_frame(picture.frame);
    QString text = QString("%1\u00d7%2, %3 bit").arg(open_.width).arg(open_.height).arg(open_.bits);
    if (!picture.failure.isEmpty())
        text += tr(", no frame");
    else if (picture.resolution > 1)
        text += tr(", at 1/%1").arg(picture.resolution);
    if (picture.provisional) text += tr(", without the frames before");
    if (picture.failure.isEmpty()) text += tr(", %1 ms").arg(picture.seconds * 1000, 0, 'f', 0);
    frame_state_->setText(text);
    if (!picture.failure.isEmpty() && picture.failure != last_failure_) tell(2, picture.failure);
    last_failure_ = picture.failure;
}

void Window::show_probe(const ProbeState& probe) {
    if (!probe.valid) return probe_->clear();
    const auto values = [&](const char* name, const int codes[3]) {
        QString text = QString("<span style='color:gray'>%1</span> ").arg(tr(name));
        const char* const colours[] = {"#e07070", "#60b060", "#7090f0"};
        for (int i = 0; i < 3; i++)
            text += QString("<span style='color:%1'>%2</span> <small>%3</small> ")
                        .arg(colours[i])
                        .arg(codes[i])
                        .arg(codes[i] / static_cast<double>(probe.white), 0, 'f', 3);
        return text;
    };
    QString text = QString("<tt>%1, %2</tt>&nbsp; ").arg(probe.x).arg(probe.y);
    if (probe.has_result) text += values("result", probe.result);
    if (probe.has_input) text += "&nbsp;" + values("input", probe.input);
    probe_->setText(text);
}

void Window::tell(int level, const QString& text) {
    const QString line = text.trimmed();
    if (line.isEmpty()) return;
    const QString shown = (level >= 2 ? tr("Error: ") : level == 1 ? tr("Warning: ") : QString()) + line;
    if (told_.isEmpty() || told_.last() != shown) told_ << shown;
    while (told_.size() > kept_messages) told_.removeFirst();
    QPalette colours = palette();
    if (level >= 2) colours.setColor(QPalette::WindowText, QColor(220, 80, 60));
    if (level == 1) colours.setColor(QPalette::WindowText, QColor(200, 140, 40));
    message_->setPalette(colours);
    message_->setText(QString(shown).replace('\n', "  "));
    message_->setToolTip(told_.mid(std::max(0, static_cast<int>(told_.size()) - messages_in_tip)).join('\n'));
}

// ---- The window's own events ----

void Window::closeEvent(QCloseEvent* event) {
    if (output_->busy()) {
        const auto answer = QMessageBox::question(this, tr("Frames are being rendered"),
                                                  tr("Cancel them and close? What is finished stays."),
                                                  QMessageBox::Yes | QMessageBox::No);
        if (answer != QMessageBox::Yes) return event->ignore();
        output_->cancel_all();
    }
    if (text_->edited() && history_.present()) journal_.write_text(text_->text());
    journal_.close();
    event->accept();
}

void Window::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void Window::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    take_files(paths, !(event->modifiers() & Qt::ShiftModifier));
}

}  // namespace desk
