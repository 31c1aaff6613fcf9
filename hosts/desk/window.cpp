#include "hosts/desk/window.h"

#include "hosts/desk/output_dock.h"
#include "hosts/desk/panel.h"
#include "hosts/desk/text_dock.h"
#include "hosts/desk/timeline.h"
#include "hosts/desk/viewer.h"
#include "hosts/render/console.h"

#include <QComboBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QStandardPaths>
#include <QStatusBar>
#include <QVBoxLayout>

#include <algorithm>

namespace desk {

namespace {

constexpr int kept_messages = 200;
constexpr int messages_in_tip = 20;

QString data_directory() {
    const QString directory = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    QDir().mkpath(directory + "/setups");
    QDir().mkpath(directory + "/sessions");
    return directory;
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
    setCentralWidget(upper);

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
    if (level >= 2) viewer_->set_hint(QString());
    message_->setPalette(colours);
    message_->setText(QString(shown).replace('\n', "  "));
    message_->setToolTip(told_.mid(std::max(0, static_cast<int>(told_.size()) - messages_in_tip)).join('\n'));
}

// ---- The window's own events ----

bool Window::event(QEvent* event) {
    // What is typed over a popup looks for an entry of it, and is no shortcut.
    if (event->type() == QEvent::ShortcutOverride && qobject_cast<QComboBox*>(focusWidget())) {
        const auto* const key = static_cast<QKeyEvent*>(event);
        const bool plain = !(key->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier));
        if (plain && !key->text().isEmpty() && key->text()[0].isPrint()) event->accept();
    }
    return QMainWindow::event(event);
}

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
