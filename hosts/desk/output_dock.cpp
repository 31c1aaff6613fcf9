#include "hosts/desk/output_dock.h"

#include <QCoreApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

namespace desk {

namespace {

constexpr int clean_up_time = 10000;  // milliseconds that a cancelled run has to remove what is half written

}  // namespace

OutputJob::OutputJob(const QString& program, const QStringList& arguments, const QString& output, QWidget* parent)
    : QWidget(parent), program_(program), output_(output), arguments_(arguments) {
    setObjectName("job");
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(2, 2, 2, 6);
    auto* const row = new QHBoxLayout;
    name_ = new QLabel(output);
    name_->setToolTip(output);
    name_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    row->addWidget(name_, 1);
    cancel_ = new QPushButton(tr("Cancel"));
    cancel_->setObjectName("cancel job");
    connect(cancel_, &QPushButton::clicked, this, &OutputJob::cancel);
    row->addWidget(cancel_);
    column->addLayout(row);
    bar_ = new QProgressBar;
    bar_->setObjectName("job progress");
    bar_->setAccessibleName(tr("Progress"));
    bar_->setRange(0, 1);
    bar_->setValue(0);
    bar_->setTextVisible(false);
    bar_->setMaximumHeight(8);
    column->addWidget(bar_);
    state_ = new QLabel(tr("waits"));
    state_->setObjectName("job state");
    state_->setWordWrap(true);
    column->addWidget(state_);
    connect(&process_, &QProcess::readyReadStandardError, this, &OutputJob::read_events);
    connect(&process_, &QProcess::finished, this, &OutputJob::end);
    connect(&process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) return;
        last_error_ = process_.errorString();
        end(2, QProcess::NormalExit);
    });
}

OutputJob::~OutputJob() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.disconnect(this);
    process_.terminate();
    if (!process_.waitForFinished(clean_up_time)) process_.kill();
    process_.waitForFinished(1000);
}

void OutputJob::start() {
    running_ = true;
    state_->setText(tr("begins"));
    process_.setStandardOutputFile(QProcess::nullDevice());
    process_.start(program_, arguments_ + QStringList{"--progress", "json"});
}

void OutputJob::cancel() {
    cancelled_ = true;
    if (running_)
        process_.terminate();  // it removes what is half written
    else if (!ended_)
        end(143, QProcess::NormalExit);
}

void OutputJob::read_events() {
    pending_ += process_.readAllStandardError();
    for (qsizetype end; (end = pending_.indexOf('\n')) >= 0; pending_.remove(0, end + 1)) {
        const QJsonObject event = QJsonDocument::fromJson(pending_.left(end)).object();
        const QString kind = event["event"].toString();
        if (kind == "rendered" || kind == "skipped" || kind == "failed") {
            bar_->setRange(0, std::max(1, event["total"].toInt()));
            bar_->setValue(event["done"].toInt());
            QString text = tr("%1 of %2").arg(event["done"].toInt()).arg(event["total"].toInt());
            if (event.contains("seconds_left"))
                text += tr(", %1 s left").arg(event["seconds_left"].toDouble(), 0, 'f', 0);
            state_->setText(text);
        }
        if (kind == "failed") last_error_ = event["error"].toString();
        if (kind == "error") last_error_ = event["text"].toString();
        if (kind == "error" || kind == "warning") emit told(kind == "error" ? 2 : 1, event["text"].toString());
    }
}

QString OutputJob::words() const {
    if (!ended_) return running_ ? tr("renders") : tr("waits");
    const int done = bar_->value(), all = bar_->maximum();
    switch (status_) {
        case 0:
            return tr("done: every frame is there and whole");
        case 1:
            return tr("some frames failed, the others are whole: %1").arg(last_error_);
        case 33:
            return tr("out of memory: %1").arg(last_error_);
        case 130:
        case 143:
            return tr("cancelled after %1 of %2; what is there is whole").arg(done).arg(all);
        default:
            return tr("nothing was rendered: %1").arg(last_error_);
    }
}

void OutputJob::end(int code, QProcess::ExitStatus how) {
    if (ended_) return;
    read_events();
    running_ = false;
    ended_ = true;
    status_ = how == QProcess::CrashExit ? (cancelled_ ? 143 : 2) : code;
    if (how == QProcess::CrashExit && !cancelled_) last_error_ = tr("the program died");
    state_->setText(words());
    cancel_->hide();
    emit told(status_ == 0 ? 0 : cancelled_ ? 1 : 2, QString("%1: %2").arg(output_, words()));
    emit finished();
}

OutputDock::OutputDock(QWidget* parent) : QWidget(parent) {
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(8, 6, 8, 6);
    auto* const form = new QFormLayout;
    auto* const row = new QHBoxLayout;
    output_ = new QLineEdit;
    output_->setObjectName("output path");
    output_->setPlaceholderText("out.%04d.exr, out.png, out.mov");
    row->addWidget(output_);
    auto* const browse = new QToolButton;
    browse->setText("\u2026");
    browse->setAccessibleName(tr("Browse"));
    connect(browse, &QToolButton::clicked, this, [this] {
        const QString path =
            QFileDialog::getSaveFileName(this, tr("Output"), output_->text(),
                                         tr("Pictures and movies (*.png *.jpg *.tif *.exr *.dpx *.mov *.mkv *.mp4)"));
        if (!path.isEmpty()) output_->setText(path);
    });
    row->addWidget(browse);
    form->addRow(tr("To"), row);
    frames_ = new QLineEdit;
    frames_->setObjectName("output frames");
    frames_->setToolTip(tr("7, 1-24, 1-24x2, 1-10,20-30; from in to out as long as nothing is typed"));
    connect(frames_, &QLineEdit::textEdited, this, [this](const QString& text) { frames_typed_ = !text.isEmpty(); });
    form->addRow(tr("Frames"), frames_);
    column->addLayout(form);
    auto* const buttons = new QHBoxLayout;
    auto* const render = new QPushButton(tr("Render"));
    render->setObjectName("render");
    connect(render, &QPushButton::clicked, this, [this] { emit render_asked(output_->text(), frames_->text()); });
    connect(output_, &QLineEdit::returnPressed, render, &QPushButton::click);
    buttons->addWidget(render);
    auto* const copy = new QPushButton(tr("Copy as command"));
    copy->setObjectName("copy command");
    connect(copy, &QPushButton::clicked, this, [this] { emit copy_asked(output_->text(), frames_->text()); });
    buttons->addWidget(copy);
    buttons->addStretch(1);
    column->addLayout(buttons);
    auto* const content = new QWidget;
    list_ = new QVBoxLayout(content);
    list_->addStretch(1);
    auto* const scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    column->addWidget(scroll, 1);
}

void OutputDock::set_frames(const QString& frames) {
    if (!frames_typed_) frames_->setText(frames);
}

void OutputDock::add(const QStringList& arguments, const QString& output) {
    QString program = QCoreApplication::applicationDirPath() + "/velloran";
    if (!QFileInfo::exists(program)) program = QCoreApplication::applicationDirPath() + "/../bin/velloran";
    auto* const job = new OutputJob(program, arguments, output);
    connect(job, &OutputJob::told, this, &OutputDock::told);
    connect(job, &OutputJob::finished, this, &OutputDock::start_next);
    jobs_.push_back(job);
    list_->insertWidget(0, job);
    start_next();
}

// One after the other: each takes all processors by itself.
void OutputDock::start_next() {
    for (const OutputJob* job : jobs_)
        if (job->runs()) return;
    for (OutputJob* job : jobs_)
        if (!job->ended()) return job->start();
}

bool OutputDock::busy() const {
    for (const OutputJob* job : jobs_)
        if (!job->ended()) return true;
    return false;
}

void OutputDock::cancel_all() {
    for (OutputJob* job : jobs_)
        if (!job->ended()) job->cancel();
}

}  // namespace desk
