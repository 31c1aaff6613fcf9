#include "hosts/desk/named_field.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace desk {

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

NamedField::NamedField(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize NamedField::sizeHint() const { return {190, fontMetrics().height() + 9}; }
QSize NamedField::minimumSizeHint() const { return {name_width() + box_width(), fontMetrics().height() + 9}; }

int NamedField::name_width() const { return key_mark_width + 2 + fontMetrics().horizontalAdvance(shown_name()) + 6; }

QRect NamedField::box_rect() const {
    const int wide = std::max(box_width(), std::min(width() * 2 / 5, width() - name_width()));
    return rect().adjusted(width() - wide, 1, -1, -1);
}

void NamedField::show_state(const ControlState& state, int frame) {
    const bool renamed = state_.name != state.name || state_.decimals != state.decimals;
    state_ = state;
    if (renamed) updateGeometry();
    mark_ = key_mark(state, frame);
    setEnabled(state.enabled);
    setToolTip(state.help);
    setAccessibleName(shown_name());
    update();
}

void NamedField::draw_name(QPainter& painter) const {
    draw_key_mark(painter, QPointF(key_mark_width / 2.0, height() / 2.0), mark_, palette());
    painter.setPen(palette().color(colours(), QPalette::WindowText));
    const QRect name(key_mark_width + 2, 0, box_rect().left() - key_mark_width - 4, height());
    painter.drawText(name, Qt::AlignVCenter | Qt::AlignLeft,
                     fontMetrics().elidedText(shown_name(), Qt::ElideMiddle, name.width()));
}

QPen NamedField::rim(bool hot) const {
    return {palette().color(colours(), hot ? QPalette::Highlight : QPalette::Mid), hot ? 1.5 : 1.0};
}

void NamedField::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) return emit reset_asked();
    QWidget::keyPressEvent(event);
}

void NamedField::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void NamedField::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    update();
}

}  // namespace desk
