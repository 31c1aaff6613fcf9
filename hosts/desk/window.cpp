#include "hosts/desk/window.h"

#include "hosts/desk/panel.h"
#include "hosts/desk/timeline.h"
#include "hosts/desk/viewer.h"
#include "hosts/render/console.h"

#include <QActionGroup>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QSplitter>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace desk {

namespace {

constexpr int kept_messages = 200;

}  // namespace

Window::Window(QWidget* parent) : QMainWindow(parent) {
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
    auto* const bar = new QWidget;
    make_viewer_bar(bar);
    column->addWidget(bar);
    column->addWidget(viewer_, 1);
    column->addWidget(timeline_);
    auto* const splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(upper);
    splitter->addWidget(panel_);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 0);
    splitter->setSizes({640, 270});
    setCentralWidget(splitter);

    message_ = new QLabel;
    message_->setObjectName("message");
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    statusBar()->addWidget(message_, 1);
    frame_state_ = new QLabel;
    frame_state_->setObjectName("frame state");
    statusBar()->addPermanentWidget(frame_state_);

    connect(&engine_, &Engine::opened, this, &Window::show_opened);
    connect(&engine_, &Engine::panel_changed, this, [this](const PanelState& state) {
        panel_->show_state(state);
        timeline_->show_keys(state);
    });
    connect(&engine_, &Engine::picture_made, this, &Window::show_picture);
    connect(&engine_, &Engine::probed, this, &Window::show_probe);
    connect(&engine_, &Engine::told, this, &Window::tell);
    connect(viewer_, &Viewer::pointed_at, this, [this](int x, int y) { engine_.probe(x, y); });
    connect(timeline_, &Timeline::frame_asked, &engine_, &Engine::seek);
    connect(timeline_, &Timeline::length_asked, this, [this](int frames) {
        OpenRequest request = request_;
        request.length = frames;
        open(request);
    });
    connect(panel_, &Panel::seek_asked, timeline_, &Timeline::go);
    render::set_console_listener([this](int level, const std::string& text) {
        QMetaObject::invokeMethod(this, [this, level, text] { tell(level, QString::fromStdString(text)); });
    });
    make_actions();
    viewer_->setFocus();
}

Window::~Window() { render::set_console_listener(nullptr); }

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
    probe_ = new QLabel;
    probe_->setObjectName("probe");
    probe_->setTextFormat(Qt::RichText);
    row->addWidget(probe_);
    row->addSpacing(12);
    auto* const zoom = new QLabel;
    zoom->setObjectName("zoom");
    zoom->setMinimumWidth(fontMetrics().horizontalAdvance("3200 %  "));
    zoom->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    connect(viewer_, &Viewer::zoom_changed, this,
            [zoom](double factor) { zoom->setText(QString("%1 %").arg(factor * 100, 0, 'f', factor < 0.1 ? 1 : 0)); });
    row->addWidget(zoom);
}

void Window::make_actions() {
    const auto add = [this](QMenu* menu, const QString& text, const QKeySequence& keys, auto function) {
        QAction* const action = menu->addAction(text, this, function);
        action->setShortcut(keys);
        return action;
    };
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    add(file, tr("&Open pictures..."), QKeySequence::Open, [this] { open_pictures(); });
    file->addSeparator();
    add(file, tr("&Quit"), QKeySequence::Quit, [this] { close(); });

    QMenu* const view = menuBar()->addMenu(tr("&View"));
    add(view, tr("&Fit"), Qt::Key_F, [this] { viewer_->fit(); });
    add(view, tr("&1:1"), Qt::SHIFT | Qt::Key_F, [this] {
        viewer_->set_zoom(1 / viewer_->devicePixelRatioF(), QPointF(viewer_->width() / 2.0, viewer_->height() / 2.0));
    });
    add(view, tr("&Process"), Qt::Key_F5,
        [this] { engine_.post(0, true, [](Worker& worker) { worker.process_now(); }); });

    QMenu* const play = menuBar()->addMenu(tr("&Frames"));
    add(play, tr("&Play"), Qt::Key_L, [this] {
        if (!timeline_->playing()) timeline_->toggle_play();
    });
    add(play, tr("&Stop"), Qt::Key_K, [this] {
        if (timeline_->playing()) timeline_->toggle_play();
    });
    add(play, tr("&Next frame"), Qt::Key_Period, [this] { timeline_->step(1); });
    add(play, tr("P&revious frame"), Qt::Key_Comma, [this] { timeline_->step(-1); });
    add(play, tr("First frame"), Qt::CTRL | Qt::Key_Home, [this] { timeline_->go(timeline_->in()); });
    add(play, tr("Last frame"), Qt::CTRL | Qt::Key_End, [this] { timeline_->go(timeline_->out()); });
    add(play, tr("&In here"), Qt::Key_I, [this] { timeline_->set_in(); });
    add(play, tr("&Out here"), Qt::Key_O, [this] { timeline_->set_out(); });
}

void Window::begin(const QStringList& arguments, const QString& setup) {
    OpenRequest request;
    QStringList pictures = arguments;
    request.effect = default_effect;
    if (!pictures.isEmpty()) {
        // The first word is an effect unless it is a picture.
        const QString first = pictures[0];
        const QString ending = QFileInfo(first).suffix().toLower();
        const bool picture = !ending.isEmpty() && ending != "text" && ending != "txt" && ending != "so" &&
                             !first.contains(".text:") && !first.contains(".txt:");
        if (!picture) request.effect = pictures.takeFirst().toStdString();
    }
    for (const QString& path : pictures) request.inputs.push_back(path.toStdString());
    if (!arguments.isEmpty()) open(request);
    if (!setup.isEmpty())
        engine_.post(0, false, [path = setup.toStdString()](Worker& worker) { worker.load_setup(path); });
}

void Window::open(const OpenRequest& request) {
    asked_ = request;
    engine_.open(request);
}

void Window::show_opened(const OpenState& state) {
    open_ = state;
    request_ = asked_;
    title_->setText(QString("%1 : %2").arg(state.plugin, state.name));
    title_->setToolTip(state.note);
    setWindowTitle(state.plugin + ":" + state.name);
    input_->clear();
    for (int i = 0; i < state.inputs.size(); i++) {
        const QString file = QFileInfo(state.input_paths.value(i)).fileName();
        input_->addItem(file.isEmpty() ? state.inputs[i] : QString("%1: %2").arg(state.inputs[i], file));
    }
    input_->setVisible(state.inputs.size() > 1);
    timeline_->set_clip(state);
    viewer_->set_clip(state);
}

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
    told_ << shown;
    while (told_.size() > kept_messages) told_.removeFirst();
    QPalette colours = palette();
    if (level >= 2) colours.setColor(QPalette::WindowText, QColor(220, 80, 60));
    if (level == 1) colours.setColor(QPalette::WindowText, QColor(200, 140, 40));
    message_->setPalette(colours);
    message_->setText(QString(shown).replace('\n', "  "));
    message_->setToolTip(told_.mid(std::max(0, static_cast<int>(told_.size()) - 20)).join('\n').toHtmlEscaped());
}

void Window::open_pictures() {
    const QStringList paths = QFileDialog::getOpenFileNames(
        this, tr("Open pictures"), QString(),
        tr("Pictures and movies (*.png *.jpg *.jpeg *.tif *.tiff *.exr *.dpx *.mov *.mkv *.mp4);;All files (*)"));
    take_files(paths);
}

void Window::take_files(const QStringList& paths) {
    if (paths.isEmpty()) return;
    OpenRequest request = request_;
    request.inputs.clear();
    for (const QString& path : paths) request.inputs.push_back(path.toStdString());
    if (request.effect.empty()) request.effect = default_effect;
    open(request);
}

void Window::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void Window::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    take_files(paths);
}

}  // namespace desk
