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

KeyMark key_mark(const ControlState& state, int frame) {
    KeyMark mark = KeyMark::none;
    for (const auto& keys : state.keys)
        for (const KeyState& key : keys) {
            if (mark == KeyMark::none) mark = KeyMark::curve;
            if (key.frame == static_cast<float>(frame + 1)) mark = KeyMark::here;
        }
    return mark;
}

void draw_key_mark(QPainter& painter, QPointF centre, KeyMark mark, const QPalette& palette) {
    if (mark == KeyMark::none) return;
    QPainterPath diamond;
    diamond.moveTo(centre + QPointF(0, -4.5));
    diamond.lineTo(centre + QPointF(4.5, 0));
    diamond.lineTo(centre + QPointF(0, 4.5));
    diamond.lineTo(centre + QPointF(-4.5, 0));
    diamond.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(palette.color(QPalette::Text), 1.2));
    painter.setBrush(mark == KeyMark::here ? palette.brush(QPalette::Highlight) : QBrush(Qt::NoBrush));
    painter.drawPath(diamond);
    painter.restore();
}

ValueField::ValueField(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setCursor(Qt::SizeHorCursor);
    setAttribute(Qt::WA_Hover);
}

QSize ValueField::sizeHint() const { return {190, fontMetrics().height() + 9}; }
// A name is never shortened to fit: it is what one looks for.
QSize ValueField::minimumSizeHint() const { return {name_width() + value_width(), fontMetrics().height() + 9}; }

void ValueField::show_state(const ControlState& state, int frame) {
    const bool renamed = state_.name != state.name || state_.decimals != state.decimals;
    state_ = state;
    if (renamed) updateGeometry();
    mark_ = key_mark(state, frame);
    if (!in_use() && !stepping_) value_ = state.values[0];
    setEnabled(state.enabled);
    setToolTip(state.help);
    setAccessibleName(state.name);
    setAccessibleDescription(value_text());
    update();
}

QString ValueField::value_text() const { return QString::number(static_cast<double>(value_), 'f', state_.decimals); }

// Of all values that most people need, in the letters of one that was moved.
int ValueField::value_width() const {
    QFont bold = font();
    bold.setBold(true);
    int widest = 0;
    for (const float value : {state_.low, state_.high, state_.defaults[0]})
        widest = std::max(widest, QFontMetrics(bold).horizontalAdvance(
                                      QString::number(static_cast<double>(value), 'f', state_.decimals)));
    return std::clamp(widest + value_margin, least_value_width, most_value_width);
}

int ValueField::name_width() const { return key_mark_width + 2 + fontMetrics().horizontalAdvance(state_.name) + 6; }

QRect ValueField::value_rect() const {
    const int wide = std::max(value_width(), std::min(width() * 2 / 5, width() - name_width()));
    return rect().adjusted(width() - wide, 1, -1, -1);
}

void ValueField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& colours = palette();
    const QPalette::ColorGroup group = isEnabled() ? QPalette::Active : QPalette::Disabled;
    const QRectF body = QRectF(value_rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(body, 3, 3);
    painter.fillPath(shape, colours.color(group, QPalette::Base));
    if (state_.high > state_.low) {
        // From the place of zero, or of the default, to the value.
        const double range = state_.high - state_.low;
        const auto place = [&](double v) { return std::clamp((v - state_.low) / range, 0.0, 1.0) * body.width(); };
        const double from = place(state_.defaults[0]), to = place(value_);
        QRectF bar(body.left() + std::min(from, to), body.bottom() - 2.5, std::abs(to - from), 2.5);
        QColor accent = colours.color(group, QPalette::Highlight);
        painter.save();
        painter.setClipPath(shape);
        painter.fillRect(bar, accent);
        painter.restore();
    }
    const bool hot = hasFocus() || dragging_;
    painter.setPen(QPen(colours.color(group, hot ? QPalette::Highlight : QPalette::Mid), hot ? 1.5 : 1));
    painter.drawPath(shape);

    draw_key_mark(painter, QPointF(key_mark_width / 2.0, height() / 2.0), mark_, colours);
    painter.setPen(colours.color(group, QPalette::WindowText));
    const QRect name(key_mark_width + 2, 0, value_rect().left() - key_mark_width - 4, height());
    painter.drawText(name, Qt::AlignVCenter | Qt::AlignLeft,
                     fontMetrics().elidedText(state_.name, Qt::ElideMiddle, name.width()));
    painter.setPen(colours.color(group, QPalette::Text));
    const bool moved = value_ != state_.defaults[0];
    QFont bold = font();
    bold.setBold(moved);
    painter.setFont(bold);
    painter.drawText(value_rect().adjusted(4, 0, -6, 0), Qt::AlignVCenter | Qt::AlignRight, value_text());
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
    else if (value_rect().contains(event->position().toPoint()))
        begin_typing(value_text());
    update();
}

void ValueField::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (value_rect().contains(event->position().toPoint()))
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
        case Qt::Key_Delete:
        case Qt::Key_Backspace:
            return emit reset_asked();
        default:
            break;
    }
    if (begins_typing(*event)) return begin_typing(text);
    QWidget::keyPressEvent(event);
}

// A key held down is one movement, which ends when it is let go.
void ValueField::keyReleaseEvent(QKeyEvent* event) {
    if (stepping_ && !event->isAutoRepeat()) {
        stepping_ = false;
        emit moved(value_, SPARK_ACTION_RELEASE);
    }
    QWidget::keyReleaseEvent(event);
}

void ValueField::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void ValueField::focusOutEvent(QFocusEvent* event) {
    if (stepping_) emit moved(value_, SPARK_ACTION_RELEASE);
    stepping_ = false;
    QWidget::focusOutEvent(event);
    update();
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
    editor_->setGeometry(value_rect());
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
