// A colour on the panel: a name and a swatch that opens a picker.
#pragma once

#include "hosts/desk/named_field.h"

#include <QColorDialog>
#include <QPointer>

namespace desk {

class ColourField : public NamedField {
    Q_OBJECT

public:
    using NamedField::NamedField;

    void show_state(const ControlState& state, int frame) override;

signals:
    void moved(const QColor& colour, int action);

protected:
    int box_width() const override { return 56; }
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void open_picker();

    QColor colour_;
    QPointer<QColorDialog> picker_;
};

}  // namespace desk
