// A number on the panel: drag it sideways, step it, or type over it.
#pragma once

#include "hosts/desk/named_field.h"

class QLineEdit;

namespace desk {

class ValueField : public NamedField {
    Q_OBJECT

public:
    explicit ValueField(QWidget* parent = nullptr);

    // While a hand drags or types here, the hand's own value stays.
    void show_state(const ControlState& state, int frame) override;
    float value() const { return value_; }
    bool in_use() const { return dragging_ || editor_; }

signals:
    // action: SPARK_ACTION_DRAG or SPARK_ACTION_RELEASE.
    void moved(float value, int action);

protected:
    int box_width() const override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void begin_typing(const QString& text);
    void end_typing(bool take);
    void set_value(float value, int action);
    void step(int steps, Qt::KeyboardModifiers modifiers, int action);
    QString value_text() const;

    float value_ = 0, drag_start_ = 0;
    double drag_travel_ = 0;
    QPointF press_, last_;
    bool pressed_ = false, dragging_ = false, stepping_ = false;
    QLineEdit* editor_ = nullptr;
};

}  // namespace desk
