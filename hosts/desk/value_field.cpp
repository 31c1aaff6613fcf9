#include "hosts/desk/value_field.h"

#include "hosts/desk/arithmetic.h"

#include <QApplication>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace desk {

namespace {

constexpr int drag_begins = 3;      // pixels
constexpr double drag_width = 300;  // pixels for the whole usual range
constexpr int value_margin = 14;
constexpr int least_value_width = 56, most_value_width = 90;
constexpr double fine = 0.1, coarse = 10;

bool begins_typing(const QKeyEvent& event) {
    const QString text = event.text();
    return !text.isEmpty() && QString("0123456789.,-+*/(").contains(text[0]) &&
           !(event.modifiers() & (Qt::ControlModifier | Qt::AltModifier));
}

double factor_of(Qt::KeyboardModifiers modifiers) {
    if (modifiers & Qt::ControlModifier) return fine;
    return modifiers & Qt::ShiftModifier ? coarse : 1.0;
}

}  // namespace

ValueField::ValueField(QWidget* parent) : NamedField(parent) {
    setCursor(Qt::SizeHorCursor);
    setAttribute(Qt::WA_Hover);
}

void ValueField::show_state(const ControlState& state, int frame) {
    NamedField::show_state(state, frame);
    if (!in_use() && !stepping_) value_ = state.values[0];
    setAccessibleDescription(value_text());
}

QString ValueField::value_text() const { return QString::number(static_cast<double>(value_), 'f', state_.decimals); }

// Of all values that most people need, in the letters of one that was moved.
int ValueField::box_width() const {
    QFont bold = font();
    bold.setBold(true);
    int widest = 0;
    for (const float value : {state_.low, state_.high, state_.defaults[0]})
        widest = std::max(widest, QFontMetrics(bold).horizontalAdvance(
                                      QString::number(static_cast<double>(value), 'f', state_.decimals)));
    return std::clamp(widest + value_margin, least_value_width, most_value_width);
}

void ValueField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF body = QRectF(box_rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(body, 3, 3);
    painter.fillPath(shape, palette().color(colours(), QPalette::Base));
    if (state_.high > state_.low) {
        // From the place of zero, or of the default, to the value.
        const double range = state_.high - state_.low;
        const auto place = [&](double v) { return std::clamp((v - state_.low) / range, 0.0, 1.0) * body.width(); };
        const double from = place(state_.defaults[0]), to = place(value_);
        QRectF bar(body.left() + std::min(from, to), body.bottom() - 2.5, std::abs(to - from), 2.5);
        QColor accent = palette().color(colours(), QPalette::Highlight);
        painter.save();
        painter.setClipPath(shape);
        painter.fillRect(bar, accent);
        painter.restore();
    }
    painter.setPen(rim(hasFocus() || dragging_));
    painter.drawPath(shape);

    draw_name(painter);
    painter.setPen(palette().color(colours(), QPalette::Text));
    const bool moved = value_ != state_.defaults[0];
    QFont bold = font();
    bold.setBold(moved);
    painter.setFont(bold);
    painter.drawText(box_rect().adjusted(4, 0, -6, 0), Qt::AlignVCenter | Qt::AlignRight, value_text());
}

void ValueField::set_value(float value, int action) {
    value = std::clamp(value, state_.min, state_.max);
    if (!std::isfinite(value) || (value == value_ && action == SPARK_ACTION_DRAG)) return;
    value_ = value;
    setAccessibleDescription(value_text());
    update();
    emit moved(value, action);
}

void ValueField::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    pressed_ = true;
    dragging_ = false;
    press_ = last_ = event->globalPosition();
    drag_start_ = value_;
    drag_travel_ = 0;
}

void ValueField::mouseMoveEvent(QMouseEvent* event) {
    if (!pressed_ || !(event->buttons() & Qt::LeftButton)) return;
    const QPointF at = event->globalPosition();
    if (!dragging_ && std::abs(at.x() - press_.x()) < drag_begins) return;
    if (!dragging_) last_ = at;
    dragging_ = true;
    drag_travel_ += (at.x() - last_.x()) * factor_of(event->modifiers());
    last_ = at;
    const double range = state_.high > state_.low ? state_.high - state_.low : 100.0 * state_.step;
    double value = drag_start_ + drag_travel_ * range / drag_width;
    const double step = std::max(static_cast<double>(state_.step), 1e-6) * std::min(1.0, factor_of(event->modifiers()));
    value = std::round(value / step) * step;
    set_value(static_cast<float>(value), SPARK_ACTION_DRAG);
}

void ValueField::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !pressed_) return QWidget::mouseReleaseEvent(event);
    const bool was_dragging = dragging_;
    pressed_ = dragging_ = false;
    if (was_dragging)
        emit moved(value_, SPARK_ACTION_RELEASE);
    else if (box_rect().contains(event->position().toPoint()))
        begin_typing(value_text());
    update();
}

void ValueField::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (box_rect().contains(event->position().toPoint()))
        begin_typing(value_text());
    else
        emit reset_asked();
}

void ValueField::step(int steps, Qt::KeyboardModifiers modifiers, int action) {
    const double value = value_ + steps * static_cast<double>(state_.step) * factor_of(modifiers);
    stepping_ = action == SPARK_ACTION_DRAG;
    set_value(static_cast<float>(value), action);
}

// Only with the focus: a wheel over the panel must not change what it passes.
void ValueField::wheelEvent(QWheelEvent* event) {
    if (!hasFocus()) return event->ignore();
    const int steps = event->angleDelta().y() / 120;
    if (steps != 0) step(steps, event->modifiers(), SPARK_ACTION_RELEASE);
    event->accept();
}

void ValueField::keyPressEvent(QKeyEvent* event) {
    const QString text = event->text();
    switch (event->key()) {
        case Qt::Key_Up:
        case Qt::Key_Right:
            return step(1, event->modifiers(), SPARK_ACTION_DRAG);
        case Qt::Key_Down:
        case Qt::Key_Left:
            return step(-1, event->modifiers(), SPARK_ACTION_DRAG);
        case Qt::Key_PageUp:
            return step(10, event->modifiers(), SPARK_ACTION_DRAG);
        case Qt::Key_PageDown:
            return step(-10, event->modifiers(), SPARK_ACTION_DRAG);
        case Qt::Key_Return:
        case Qt::Key_Enter:
        case Qt::Key_F2:
            return begin_typing(value_text());
        default:
            break;
    }
    if (begins_typing(*event)) return begin_typing(text);
    NamedField::keyPressEvent(event);
}

// A key held down is one movement, which ends when it is let go.
void ValueField::keyReleaseEvent(QKeyEvent* event) {
    if (stepping_ && !event->isAutoRepeat()) {
        stepping_ = false;
        emit moved(value_, SPARK_ACTION_RELEASE);
    }
    QWidget::keyReleaseEvent(event);
}

void ValueField::focusOutEvent(QFocusEvent* event) {
    if (stepping_) emit moved(value_, SPARK_ACTION_RELEASE);
    stepping_ = false;
    NamedField::focusOutEvent(event);
}

bool ValueField::event(QEvent* event) {
    // What is typed here is no shortcut of the window, from the first digit on.
    if (event->type() == QEvent::ShortcutOverride && (editor_ || begins_typing(*static_cast<QKeyEvent*>(event)))) {
        event->accept();
        return true;
    }
    return QWidget::event(event);
}

void ValueField::begin_typing(const QString& text) {
    if (editor_ || !isEnabled()) return;
    editor_ = new QLineEdit(this);
    editor_->setObjectName("typed value");
    editor_->setAccessibleName(state_.name);
    editor_->setGeometry(box_rect());
    editor_->setAlignment(Qt::AlignRight);
    editor_->setFrame(false);
    editor_->setText(text);
    if (text == value_text()) editor_->selectAll();
    editor_->show();
    editor_->setFocus();
    connect(editor_, &QLineEdit::editingFinished, this, [this] { end_typing(true); });
    editor_->installEventFilter(this);
}

// What ends the typing must not reach the field, which would begin anew.
bool ValueField::eventFilter(QObject* watched, QEvent* event) {
    if (watched != editor_ || event->type() != QEvent::KeyPress) return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key != Qt::Key_Return && key != Qt::Key_Enter && key != Qt::Key_Escape) return false;
    end_typing(key != Qt::Key_Escape);
    return true;
}

void ValueField::end_typing(bool take) {
    if (!editor_) return;
    QLineEdit* const editor = editor_;
    editor_ = nullptr;
    const bool focused = editor->hasFocus();
    const QString text = editor->text();
    editor->hide();
    editor->deleteLater();
    if (focused) setFocus();
    const auto value = take ? typed_value(text, value_) : std::nullopt;
    if (value && text != value_text()) set_value(static_cast<float>(*value), SPARK_ACTION_RELEASE);
    update();
}

}  // namespace desk
