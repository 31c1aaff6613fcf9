// What the window is made of, and what tells what.
#include "hosts/desk/curve_editor.h"
#include "hosts/desk/looks.h"
#include "hosts/desk/output_dock.h"
#include "hosts/desk/panel.h"
#include "hosts/desk/text_dock.h"
#include "hosts/desk/timeline.h"
#include "hosts/desk/viewer.h"
#include "hosts/desk/window.h"
#include "hosts/render/console.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QToolButton>

namespace desk {

namespace {

constexpr int text_dock_width = 480;

}  // namespace

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
    input_->hide();  // until there is one to choose
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
    // The controls have the whole width: their columns are many, and names are to be read.
    setCorner(Qt::BottomLeftCorner, Qt::BottomDockWidgetArea);
    setCorner(Qt::BottomRightCorner, Qt::BottomDockWidgetArea);
    const auto dock = [this](const QString& title, const char* name, QWidget* widget, Qt::DockWidgetArea area) {
        auto* const made = new QDockWidget(title);
        made->setObjectName(name);
        made->setWidget(widget);
        addDockWidget(area, made);
        return made;
    };
    QDockWidget* const controls = dock(tr("Controls"), "controls dock", panel_, Qt::BottomDockWidgetArea);
    controls->setFeatures(QDockWidget::NoDockWidgetFeatures);
    controls->setTitleBarWidget(new QWidget);
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
    // Lines of a text are longer than steps; once, so that what a hand chose stays.
    connect(text_dock_, &QDockWidget::visibilityChanged, this, [this, widened = false](bool seen) mutable {
        if (!seen || widened || !isVisible()) return;
        widened = true;
        if (text_dock_->width() < text_dock_width) resizeDocks({text_dock_}, {text_dock_width}, Qt::Horizontal);
    });
    tabifyDockWidget(steps_dock_, curve_dock_);
    tabifyDockWidget(curve_dock_, text_dock_);
    tabifyDockWidget(text_dock_, output_dock_);
    steps_dock_->raise();
    resizeDocks({looks_dock_, steps_dock_}, {310, 300}, Qt::Horizontal);
    resizeDocks({controls}, {270}, Qt::Vertical);

    connect(looks_, &Looks::chosen, this, &Window::choose);
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
    connect(&engine_, &Engine::effects_found, looks_, &Looks::add);
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
    // From the frame that was asked for last: the panel may still show the one before.
    const auto jump = [this](int number, int direction) {
        const int frame = panel_->key_beside(number, direction, timeline_->frame());
        if (frame >= 0) timeline_->go(frame);
    };
    connect(panel_, &Panel::jump_asked, this, jump);
    connect(panel_, &Panel::control_used, curve_, &CurveEditor::show_control);
    connect(curve_, &CurveEditor::seek_asked, timeline_, &Timeline::go);
    connect(curve_, &CurveEditor::jump_asked, this, jump);
    render::set_console_listener([this](int level, const std::string& text) {
        QMetaObject::invokeMethod(this, [this, level, text] { tell(level, QString::fromStdString(text)); });
    });
}

}  // namespace desk
