#include "hosts/desk/curve_editor.h"

#include "hosts/common/curve.h"
#include "hosts/desk/engine.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>

#include <algorithm>
#include <cmath>

namespace desk {

namespace {

constexpr double key_size = 5, reach = 8;  // pixels
constexpr double left_margin = 52, margin = 12;

spark_host::Curve curve_of(const std::vector<KeyState>& keys) {
    using spark_host::Interpolation;
    spark_host::Curve curve;
    for (const KeyState& key : keys)
        set_key(curve, key.frame, key.value,
                key.held     ? Interpolation::constant
                : key.smooth ? Interpolation::hermite
                             : Interpolation::linear);
    return curve;
}

}  // namespace

CurveView::CurveView(Engine& engine, QWidget* parent) : QWidget(parent), engine_(engine) {
    setObjectName("curve view");
    setAccessibleName("Curve");
    setToolTip(
        tr("Drag a key, or double-click to set one. Left and Right go along the keys, Up and Down move their value, "
           "Delete deletes."));
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(160, 90);
}

void CurveView::set_clip(int first, int frames) {
    first_ = first;
    frames_ = std::max(1, frames);
    update();
}

void CurveView::show_control(const ControlState* state, int frame) {
    frame_ = frame;
    // What the hand holds is newer than what comes back.
    if (!dragging_) {
        const bool other = !state || !shown_ || state->number != state_.number;
        shown_ = state != nullptr;
        state_ = state ? *state : ControlState();
        if (other || !picked()) picked_ = {};
        fit_values();
    }
    update();
}

bool CurveView::picked() const { return picked_.channel >= 0 && picked_.key < state_.keys[picked_.channel].size(); }

void CurveView::fit_values() {
    float low = 1e30f, high = -1e30f;
    for (int channel = 0; channel < state_.channels; channel++) {
        const auto curve = curve_of(state_.keys[channel]);
        const auto add = [&](float value) {
            low = std::min(low, value);
            high = std::max(high, value);
        };
        add(state_.values[channel]);
        for (const KeyState& key : state_.keys[channel]) add(key.value);
        // Smooth pieces may go beyond their keys.
        for (int i = 0; i <= 100; i++)
            add(curve_value(curve, 1 + static_cast<float>(i * (frames_ - 1)) / 100, state_.values[channel]));
    }
    if (!(high >= low)) low = high = 0;
    const float room = high > low ? 0.15f * (high - low) : std::max(10 * state_.step, 1e-3f);
    low_ = low - room;
    high_ = high + room;
}

QRectF CurveView::area() const { return QRectF(rect()).adjusted(left_margin, margin, -margin, -margin - 10); }

QPointF CurveView::place_of(float frame, float value) const {
    const QRectF a = area();
    return {a.left() + (frame - 1) / std::max(1, frames_ - 1) * a.width(),
            a.bottom() - static_cast<double>(value - low_) / (high_ - low_) * a.height()};
}

float CurveView::frame_at(double x) const {
    const QRectF a = area();
    const double at = 1 + (x - a.left()) / std::max(1.0, a.width()) * std::max(1, frames_ - 1);
    return static_cast<float>(std::clamp<double>(std::round(at), 1, frames_));
}

float CurveView::value_at(double y) const {
    const QRectF a = area();
    const double value = low_ + (a.bottom() - y) / std::max(1.0, a.height()) * (high_ - low_);
    const double step = std::max(static_cast<double>(state_.step), 1e-6);
    return std::clamp(static_cast<float>(std::round(value / step) * step), state_.min, state_.max);
}

CurveView::Picked CurveView::near(QPointF place) const {
    Picked best;
    double distance = reach;
    for (int channel = 0; channel < state_.channels; channel++)
        for (size_t i = 0; i < state_.keys[channel].size(); i++) {
            const KeyState& key = state_.keys[channel][i];
            const QPointF way = place_of(key.frame, key.value) - place;
            if (std::hypot(way.x(), way.y()) > distance) continue;
            distance = std::hypot(way.x(), way.y());
            best = {channel, i};
        }
    return best;
}

void CurveView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& colours = palette();
    const QRectF a = area();
    painter.fillRect(rect(), colours.color(QPalette::Base));
    painter.setPen(colours.color(QPalette::PlaceholderText));
    if (!shown_) {
        painter.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, tr("The control that was used last"));
        return;
    }
    for (int i = 0; i <= 4; i++) {
        const float value = low_ + (high_ - low_) * static_cast<float>(i) / 4;
        const double y = place_of(1, value).y();
        painter.setPen(colours.color(QPalette::AlternateBase));
        painter.drawLine(QPointF(a.left(), y), QPointF(a.right(), y));
        painter.setPen(colours.color(QPalette::PlaceholderText));
        painter.drawText(QRectF(0, y - 10, left_margin - 6, 20), Qt::AlignRight | Qt::AlignVCenter,
                         QString::number(static_cast<double>(value), 'g', 3));
    }
    const QRectF foot(a.left(), a.bottom() + 2, a.width(), 16);
    painter.drawText(foot, Qt::AlignLeft | Qt::AlignVCenter, QString::number(first_));
    painter.drawText(foot, Qt::AlignRight | Qt::AlignVCenter, QString::number(first_ + frames_ - 1));
    const double now = place_of(static_cast<float>(frame_ + 1), 0).x();
    painter.setPen(QPen(colours.color(QPalette::Text), 1.5));
    painter.drawLine(QPointF(now, a.top()), QPointF(now, a.bottom()));

    // Channels differ by their dashes too, not by colour alone.
    const QColor of_channel[] = {QColor(224, 96, 96), QColor(80, 176, 80), QColor(96, 136, 240)};
    const Qt::PenStyle dashes[] = {Qt::SolidLine, Qt::DashLine, Qt::DotLine};
    for (int channel = 0; channel < state_.channels; channel++) {
        const QColor colour = state_.channels == 1 ? colours.color(QPalette::Highlight) : of_channel[channel];
        const auto curve = curve_of(state_.keys[channel]);
        QPainterPath line;
        const int pieces = std::max(1, static_cast<int>(a.width() / 2));
        for (int i = 0; i <= pieces; i++) {
            const float frame =
                1 + static_cast<float>(i) / static_cast<float>(pieces) * static_cast<float>(frames_ - 1);
            const QPointF at = place_of(frame, curve_value(curve, frame, state_.values[channel]));
            i == 0 ? line.moveTo(at) : line.lineTo(at);
        }
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(colour, 1.6, dashes[channel]));
        painter.drawPath(line);
        for (size_t i = 0; i < state_.keys[channel].size(); i++) {
            const KeyState& key = state_.keys[channel][i];
            const bool mine = picked_.channel == channel && picked_.key == i;
            const double size = mine ? key_size + 2 : key_size;
            const QPointF at = place_of(key.frame, key.value);
            const QPointF diamond[] = {at + QPointF(0, -size), at + QPointF(size, 0), at + QPointF(0, size),
                                       at + QPointF(-size, 0)};
            painter.setPen(QPen(mine ? colours.color(QPalette::Text) : colour, mine ? 2.0 : 1.2));
            painter.setBrush(key.frame == static_cast<float>(frame_ + 1) ? colour : colours.color(QPalette::Base));
            painter.drawPolygon(diamond, 4);
        }
    }
    if (hasFocus()) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(colours.color(QPalette::Highlight), 1.5));
        painter.drawRect(QRectF(rect()).adjusted(1, 1, -1, -1));
    }
}

void CurveView::send(bool done) {
    engine_.set_curve(state_.number, picked_.channel, state_.keys[picked_.channel], done);
}

// Keys never meet: one that is dragged over another goes by it.
void CurveView::move_picked(float frame, float value) {
    auto& keys = state_.keys[picked_.channel];
    KeyState moved = keys[picked_.key];
    for (size_t i = 0; i < keys.size(); i++)
        if (i != picked_.key && keys[i].frame == frame) frame = moved.frame;
    if (moved.frame == frame && moved.value == value) return;
    moved.frame = frame;
    moved.value = value;
    keys.erase(keys.begin() + static_cast<long>(picked_.key));
    const auto at = std::find_if(keys.begin(), keys.end(), [&](const KeyState& key) { return key.frame > frame; });
    picked_.key = static_cast<size_t>(at - keys.begin());
    keys.insert(at, moved);
    send(false);
    update();
}

void CurveView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !shown_) return;
    picked_ = near(event->position());
    dragging_ = picked();
    if (!dragging_) emit seek_asked(static_cast<int>(frame_at(event->position().x())) - 1);
    update();
}

void CurveView::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton) || !shown_) return;
    const QPointF at = event->position();
    if (dragging_ && picked())
        move_picked(frame_at(at.x()), value_at(at.y()));
    else if (!dragging_)
        emit seek_asked(static_cast<int>(frame_at(at.x())) - 1);
}

void CurveView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !dragging_) return;
    dragging_ = false;
    if (picked()) send(true);
    fit_values();
    update();
}

void CurveView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !shown_ || state_.channels < 1) return;
    if (near(event->position()).channel >= 0) return;
    const float frame = frame_at(event->position().x()), value = value_at(event->position().y());
    // Into the channel whose curve is nearest there.
    int channel = 0;
    double distance = 1e30;
    for (int i = 0; i < state_.channels; i++) {
        const float there = curve_value(curve_of(state_.keys[i]), frame, state_.values[i]);
        if (std::abs(there - value) >= distance) continue;
        distance = std::abs(there - value);
        channel = i;
    }
    auto& keys = state_.keys[channel];
    const bool smooth = !keys.empty() && keys[0].smooth;
    std::erase_if(keys, [frame](const KeyState& key) { return key.frame == frame; });
    const auto at = std::find_if(keys.begin(), keys.end(), [&](const KeyState& key) { return key.frame > frame; });
    picked_ = {channel, static_cast<size_t>(at - keys.begin())};
    keys.insert(at, KeyState{frame, value, smooth, false});
    send(true);
    update();
}

void CurveView::delete_picked() {
    if (!picked()) return;
    auto& keys = state_.keys[picked_.channel];
    keys.erase(keys.begin() + static_cast<long>(picked_.key));
    send(true);
    picked_ = {};
    update();
}

void CurveView::pick_next(int direction) {
    if (!picked()) {
        for (int channel = 0; channel < state_.channels && !picked(); channel++) picked_ = {channel, 0};
    } else {
        const size_t n = state_.keys[picked_.channel].size();
        picked_.key = direction < 0 ? (picked_.key > 0 ? picked_.key - 1 : 0) : std::min(picked_.key + 1, n - 1);
    }
    if (!picked()) return;
    emit seek_asked(static_cast<int>(state_.keys[picked_.channel][picked_.key].frame) - 1);
    update();
}

void CurveView::keyPressEvent(QKeyEvent* event) {
    const int number = state_.number;
    const auto step = [&](float steps) {
        if (!picked()) return;
        const KeyState key = state_.keys[picked_.channel][picked_.key];
        move_picked(key.frame, std::clamp(key.value + steps * state_.step, state_.min, state_.max));
        send(true);
    };
    switch (event->key()) {
        case Qt::Key_Left:
        case Qt::Key_Right:
            return pick_next(event->key() == Qt::Key_Left ? -1 : 1);
        case Qt::Key_Up:
        case Qt::Key_Down:
            return step((event->key() == Qt::Key_Up ? 1.0f : -1.0f) *
                        (event->modifiers() & Qt::ShiftModifier ? 10.0f : 1.0f));
        case Qt::Key_Delete:
        case Qt::Key_Backspace:
            return delete_picked();
        case Qt::Key_K:
            if (shown_) engine_.post(0, true, [number](Worker& worker) { worker.key(number, Worker::KeyAction::set); });
            return;
        default:
            QWidget::keyPressEvent(event);
    }
}

CurveEditor::CurveEditor(Engine& engine, QWidget* parent) : QWidget(parent), engine_(engine) {
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    auto* const row = new QHBoxLayout;
    name_ = new QLabel;
    name_->setObjectName("curve name");
    name_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    column->addWidget(name_);
    const auto add = [&](const QString& text, const QString& name, const QString& help, auto function) {
        auto* const button = new QToolButton;
        button->setText(text);
        button->setObjectName(name);
        button->setAccessibleName(help);
        button->setToolTip(help);
        button->setAutoRaise(true);
        connect(button, &QToolButton::clicked, this, function);
        row->addWidget(button);
        buttons_.push_back(button);
    };
    using Action = Worker::KeyAction;
    const auto key = [this](Action action) {
        return [this, action] {
            engine_.post(0, true, [number = number_, action](Worker& worker) { worker.key(number, action); });
        };
    };
    add(tr("Set"), "set key", tr("Set a key at this frame"), key(Action::set));
    add(tr("Delete"), "delete key", tr("Delete the key at this frame"), key(Action::remove));
    add("<", "previous key", tr("To the key before"), [this] { emit jump_asked(number_, -1); });
    add(">", "next key", tr("To the next key"), [this] { emit jump_asked(number_, 1); });
    add(tr("Straight"), "straight", tr("Straight between keys"), key(Action::linear));
    add(tr("Smooth"), "smooth", tr("Smooth between keys"), key(Action::smooth));
    row->addStretch(1);
    column->addLayout(row);
    view_ = new CurveView(engine);
    connect(view_, &CurveView::seek_asked, this, &CurveEditor::seek_asked);
    column->addWidget(view_, 1);
    show_now();
}

void CurveEditor::set_clip(const OpenState& state) { view_->set_clip(state.first_frame, state.frames); }

void CurveEditor::show_state(const PanelState& state) {
    panel_ = state;
    show_now();
}

void CurveEditor::show_control(int number) {
    number_ = number;
    show_now();
}

void CurveEditor::show_now() {
    const ControlState* shown = nullptr;
    for (const ControlState& control : panel_.controls)
        if (control.number == number_ && control.channels > 0 && !control.button && !control.caption) shown = &control;
    name_->setText(!shown                                          ? QString()
                   : shown->param.isEmpty() || shown->channels > 1 ? shown->name
                   : shown->name.startsWith(shown->param)          ? shown->name
                                                                   : shown->param + " " + shown->name);
    for (QToolButton* const button : buttons_) button->setEnabled(shown != nullptr);
    view_->show_control(shown, panel_.frame);
}

}  // namespace desk
