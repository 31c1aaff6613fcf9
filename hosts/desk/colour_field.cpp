#include "hosts/desk/colour_field.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

namespace desk {

ColourField::ColourField(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize ColourField::sizeHint() const { return {150, fontMetrics().height() + 9}; }

void ColourField::show_state(const ControlState& state, int frame) {
    state_ = state;
    mark_ = key_mark(state, frame);
    if (!picker_)
        colour_ = QColor(static_cast<int>(state.values[0]), static_cast<int>(state.values[1]),
                         static_cast<int>(state.values[2]));
    setEnabled(state.enabled);
    setToolTip(state.help);
    setAccessibleName(state.name.isEmpty() ? state.param : state.name);
    setAccessibleDescription(colour_.name());
    update();
}

QRect ColourField::swatch_rect() const { return rect().adjusted(width() - 58, 2, -2, -2); }

void ColourField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette::ColorGroup group = isEnabled() ? QPalette::Active : QPalette::Disabled;
    draw_key_mark(painter, QPointF(key_mark_width / 2.0, height() / 2.0), mark_, palette());
    painter.setPen(palette().color(group, QPalette::WindowText));
    const QRect name(key_mark_width + 2, 0, width() - 64 - key_mark_width, height());
    painter.drawText(name, Qt::AlignVCenter | Qt::AlignLeft,
                     fontMetrics().elidedText(state_.name, Qt::ElideMiddle, name.width()));
    painter.setPen(
        QPen(palette().color(group, hasFocus() ? QPalette::Highlight : QPalette::Mid), hasFocus() ? 1.5 : 1));
    painter.setBrush(isEnabled() ? colour_ : palette().color(group, QPalette::Window));
    painter.drawRoundedRect(QRectF(swatch_rect()).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
}

void ColourField::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && swatch_rect().contains(event->position().toPoint())) open_picker();
}

void ColourField::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space)
        return open_picker();
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) return emit reset_asked();
    QWidget::keyPressEvent(event);
}

void ColourField::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void ColourField::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    update();
}

void ColourField::open_picker() {
    if (picker_) return picker_->raise();
    const QColor before = colour_;
    picker_ = new QColorDialog(colour_, this);
    picker_->setAttribute(Qt::WA_DeleteOnClose);
    picker_->setOption(QColorDialog::DontUseNativeDialog);
    picker_->setWindowTitle(state_.name.isEmpty() ? state_.param : state_.name);
    connect(picker_, &QColorDialog::currentColorChanged, this, [this](const QColor& colour) {
        colour_ = colour;
        update();
        emit moved(colour, SPARK_ACTION_DRAG);
    });
    connect(picker_, &QDialog::finished, this, [this, before](int result) {
        if (result == QDialog::Rejected) colour_ = before;
        update();
        emit moved(colour_, SPARK_ACTION_RELEASE);
    });
    picker_->open();
}

}  // namespace desk
