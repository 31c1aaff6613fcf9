// A colour on the panel: a name and a swatch that opens a picker.
#pragma once

#include "hosts/desk/value_field.h"

#include <QColorDialog>
#include <QPointer>

namespace desk {

class ColourField : public QWidget {
    Q_OBJECT

public:
    explicit ColourField(QWidget* parent = nullptr);

    void show_state(const ControlState& state, int frame);
    QSize sizeHint() const override;

signals:
    void moved(const QColor& colour, int action);
    void reset_asked();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void open_picker();
    QRect swatch_rect() const;

    ControlState state_;
    KeyMark mark_ = KeyMark::none;
    QColor colour_;
    QPointer<QColorDialog> picker_;
};

}  // namespace desk
