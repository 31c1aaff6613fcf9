// What fields of the panel have in common: a name, a mark of its curve before it, and a box for the value behind it.
#pragma once

#include "hosts/desk/state.h"

#include <QWidget>

class QPainter;

namespace desk {

// Whether a curve has a key where the clip stands.
enum class KeyMark { none, curve, here };
KeyMark key_mark(const ControlState& state, int frame);
// The diamond that tells, with its centre at the place given.
void draw_key_mark(QPainter& painter, QPointF centre, KeyMark mark, const QPalette& palette);
constexpr int key_mark_width = 14;

class NamedField : public QWidget {
    Q_OBJECT

public:
    explicit NamedField(QWidget* parent = nullptr);

    virtual void show_state(const ControlState& state, int frame);
    QSize sizeHint() const override;
    // A name is never shortened to fit: it is what one looks for.
    QSize minimumSizeHint() const override;

signals:
    void reset_asked();

protected:
    // What the box needs at least.
    virtual int box_width() const = 0;
    // At the right; a part of the field where there is room.
    QRect box_rect() const;
    QPalette::ColorGroup colours() const { return isEnabled() ? QPalette::Active : QPalette::Disabled; }
    // What the name of the control shows, or where it has none that of its param.
    QString shown_name() const { return state_.name.isEmpty() ? state_.param : state_.name; }
    void draw_name(QPainter& painter) const;
    // The rim of the box; hot: in use.
    QPen rim(bool hot) const;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

    ControlState state_;

private:
    int name_width() const;

    KeyMark mark_ = KeyMark::none;
};

}  // namespace desk
