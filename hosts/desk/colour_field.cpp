#include "hosts/desk/colour_field.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

namespace desk {

void ColourField::show_state(const ControlState& state, int frame) {
    NamedField::show_state(state, frame);
    if (!picker_)
        colour_ = QColor(static_cast<int>(state.values[0]), static_cast<int>(state.values[1]),
                         static_cast<int>(state.values[2]));
    setAccessibleDescription(colour_.name());
}

void ColourField::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    draw_name(painter);
    painter.setPen(rim(hasFocus()));
    painter.setBrush(isEnabled() ? colour_ : palette().color(colours(), QPalette::Window));
    painter.drawRoundedRect(QRectF(box_rect()).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
}

void ColourField::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && box_rect().contains(event->position().toPoint())) open_picker();
}

void ColourField::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space)
        return open_picker();
    NamedField::keyPressEvent(event);
}

void ColourField::open_picker() {
    if (picker_) return picker_->raise();
    const QColor before = colour_;
    picker_ = new QColorDialog(colour_, this);
    picker_->setAttribute(Qt::WA_DeleteOnClose);
    picker_->setOption(QColorDialog::DontUseNativeDialog);
    picker_->setWindowTitle(shown_name());
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
