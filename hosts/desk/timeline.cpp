#include "hosts/desk/timeline.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QSpinBox>
#include <QStyle>
#include <QToolButton>

#include <algorithm>
#include <cmath>
#include <set>

namespace desk {

FrameStrip::FrameStrip(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName("Frames");
    setObjectName("frames");
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void FrameStrip::set_clip(int first, int frames) {
    first_ = first;
    frames_ = std::max(1, frames);
    update();
}

void FrameStrip::set_range(int in, int out) {
    in_ = in;
    out_ = out;
    update();
}

void FrameStrip::set_frame(int frame) {
    frame_ = frame;
    setAccessibleDescription(QString::number(first_ + frame));
    update();
}

void FrameStrip::set_keys(std::vector<int> keys) {
    if (keys == keys_) return;
    keys_ = std::move(keys);
    update();
}

double FrameStrip::place(double frame) const {
    return 6 + (width() - 12) * (frames_ > 1 ? frame / (frames_ - 1) : 0.0);
}

void FrameStrip::scrub(double x) {
    const double at = (x - 6) / std::max(1, width() - 12) * (frames_ - 1);
    const int frame = std::clamp(static_cast<int>(std::lround(at)), 0, frames_ - 1);
    if (frame != frame_) emit frame_asked(frame);
}

void FrameStrip::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) scrub(event->position().x());
}

void FrameStrip::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton) scrub(event->position().x());
}

void FrameStrip::keyPressEvent(QKeyEvent* event) {
    const int step = event->modifiers() & Qt::ShiftModifier ? 10 : 1;
    switch (event->key()) {
        case Qt::Key_Left:
            return emit frame_asked(std::max(0, frame_ - step));
        case Qt::Key_Right:
            return emit frame_asked(std::min(frames_ - 1, frame_ + step));
        case Qt::Key_Home:
            return emit frame_asked(in_);
        case Qt::Key_End:
            return emit frame_asked(out_);
        default:
            QWidget::keyPressEvent(event);
    }
}

void FrameStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& colours = palette();
    const double middle = height() / 2.0 + 3;
    painter.setPen(QPen(colours.color(QPalette::Mid), 2));
    painter.drawLine(QPointF(place(0), middle), QPointF(place(frames_ - 1), middle));
    painter.setPen(QPen(colours.color(QPalette::Highlight), 2));
    painter.drawLine(QPointF(place(in_), middle), QPointF(place(out_), middle));
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    painter.setFont(small);
    // As many numbers as there is room for, at round frames.
    const double room = width() / 60.0;
    int every = 1;
    for (const int factor : {2, 5, 10, 20, 50, 100, 200, 500, 1000, 5000, 10000, 100000, 1000000})
        if (frames_ / static_cast<double>(every) > room) every = factor;
    for (int frame = 0; frame < frames_; frame++) {
        if ((first_ + frame) % every != 0) continue;
        painter.setPen(colours.color(QPalette::Mid));
        painter.drawLine(QPointF(place(frame), middle - 4), QPointF(place(frame), middle));
        painter.setPen(colours.color(QPalette::PlaceholderText));
        const QRectF box(place(frame) - 30, 0, 60, middle - 4);
        if (box.left() >= 0 && box.right() <= width())
            painter.drawText(box, Qt::AlignHCenter | Qt::AlignTop, QString::number(first_ + frame));
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(colours.color(QPalette::Highlight));
    for (const int key : keys_) {
        const QPointF at(place(key), middle);
        const QPointF diamond[] = {at + QPointF(0, -4), at + QPointF(4, 0), at + QPointF(0, 4), at + QPointF(-4, 0)};
        painter.drawPolygon(diamond, 4);
    }
    painter.setPen(QPen(colours.color(QPalette::Text), hasFocus() ? 2.5 : 1.5));
    painter.drawLine(QPointF(place(frame_), 2), QPointF(place(frame_), height() - 2));
}

Timeline::Timeline(QWidget* parent) : QWidget(parent) {
    auto* const row = new QHBoxLayout(this);
    row->setContentsMargins(8, 2, 8, 2);
    play_ = new QToolButton;
    play_->setObjectName("play");
    play_->setAccessibleName(tr("Play"));
    play_->setToolTip(tr("Play (L), stop (K)"));
    play_->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    play_->setAutoRaise(true);
    connect(play_, &QToolButton::clicked, this, &Timeline::toggle_play);
    row->addWidget(play_);
    number_ = new QSpinBox;
    number_->setObjectName("frame number");
    number_->setAccessibleName(tr("Frame"));
    number_->setToolTip(tr("Frame, by the files' numbers"));
    number_->setKeyboardTracking(false);
    connect(number_, &QSpinBox::valueChanged, this, [this](int value) {
        if (value - first_ != frame_) go(value - first_);
    });
    row->addWidget(number_);
    strip_ = new FrameStrip;
    connect(strip_, &FrameStrip::frame_asked, this, &Timeline::go);
    row->addWidget(strip_, 1);
    range_ = new QLabel;
    range_->setToolTip(tr("In (I) and out (O)"));
    row->addWidget(range_);
    length_ = new QSpinBox;
    length_->setObjectName("length");
    length_->setAccessibleName(tr("Length"));
    length_->setToolTip(tr("Frames of the clip that a still stands for"));
    length_->setRange(1, 100000);
    length_->setSuffix(tr(" fr"));
    length_->setKeyboardTracking(false);
    connect(length_, &QSpinBox::valueChanged, this, [this](int value) {
        if (value != frames_) emit length_asked(value);
    });
    row->addWidget(length_);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setSingleShot(true);
    connect(&timer_, &QTimer::timeout, this, &Timeline::play_on);
    set_clip(OpenState());
}

void Timeline::set_clip(const OpenState& state) {
    const bool other = state.first_frame != first_ || state.frames != frames_;
    first_ = state.first_frame;
    frames_ = std::max(1, state.frames);
    rate_ = state.frame_rate > 0 ? state.frame_rate : 24;
    if (other) {
        in_ = 0;
        out_ = frames_ - 1;
    }
    frame_ = std::clamp(frame_, 0, frames_ - 1);
    const QSignalBlocker quiet_number(number_), quiet_length(length_);
    number_->setRange(first_, first_ + frames_ - 1);
    number_->setValue(first_ + frame_);
    length_->setValue(frames_);
    const bool stills = std::all_of(state.input_paths.begin(), state.input_paths.end(),
                                    [](const QString& path) { return !path.contains('%') && !path.contains('#'); });
    length_->setVisible(stills && state.first_frame == 1);
    strip_->set_clip(first_, frames_);
    strip_->set_frame(frame_);
    show_range();
    play_->setEnabled(frames_ > 1);
}

void Timeline::show_keys(const PanelState& panel) {
    std::set<int> keys;
    for (const ControlState& control : panel.controls)
        for (const auto& curve : control.keys)
            for (const KeyState& key : curve) keys.insert(static_cast<int>(key.frame) - 1);
    strip_->set_keys({keys.begin(), keys.end()});
}

void Timeline::go(int frame) {
    frame = std::clamp(frame, 0, frames_ - 1);
    frame_ = frame;
    strip_->set_frame(frame);
    const QSignalBlocker quiet(number_);
    number_->setValue(first_ + frame);
    emit frame_asked(frame);
}

void Timeline::show_range() {
    strip_->set_range(in_, out_);
    range_->setText(QString("%1 \u2013 %2").arg(first_ + in_).arg(first_ + out_));
    emit range_changed(in_ == out_ ? QString::number(first_ + in_)
                                   : QString("%1-%2").arg(first_ + in_).arg(first_ + out_));
}

void Timeline::set_in() {
    in_ = std::min(frame_, out_);
    show_range();
}

void Timeline::set_out() {
    out_ = std::max(frame_, in_);
    show_range();
}

void Timeline::toggle_play() {
    playing_ = !playing_ && frames_ > 1;
    play_->setIcon(style()->standardIcon(playing_ ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    play_->setAccessibleName(playing_ ? tr("Stop") : tr("Play"));
    if (playing_) play_on();
}

// Every frame is shown, in time where it can be made in time.
void Timeline::show_frame(int frame) {
    if (!playing_ || frame != frame_ || timer_.isActive()) return;
    const double period = 1000 / rate_;
    timer_.start(std::max(0, static_cast<int>(period - static_cast<double>(since_.elapsed()))));
}

void Timeline::play_on() {
    if (!playing_) return;
    since_.restart();
    go(frame_ >= out_ || frame_ < in_ ? in_ : frame_ + 1);
}

}  // namespace desk
