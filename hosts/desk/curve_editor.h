// The curves of one control over the frames of the clip: keys are seen, dragged, added and deleted.
#pragma once

#include "hosts/desk/state.h"

#include <QWidget>

#include <vector>

class QLabel;
class QToolButton;

namespace desk {

class Engine;

// The drawn part. Frames count from 1, as keys do.
class CurveView : public QWidget {
    Q_OBJECT

public:
    explicit CurveView(Engine& engine, QWidget* parent = nullptr);

    // Null: there is nothing to show.
    void show_control(const ControlState* state, int frame);
    void set_clip(int first, int frames);
    QSize sizeHint() const override { return {300, 200}; }
    // Where a key, or any place of the curve, is drawn.
    QPointF place_of(float frame, float value) const;

signals:
    void seek_asked(int frame);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    // A key by its channel and place in the list; channel -1: none.
    struct Picked {
        int channel = -1;
        size_t key = 0;
    };
    QRectF area() const;
    float frame_at(double x) const;
    float value_at(double y) const;
    Picked near(QPointF place) const;
    bool picked() const;
    void fit_values();
    void move_picked(float frame, float value);
    void send(bool done);
    void delete_picked();
    void pick_next(int direction);

    Engine& engine_;
    ControlState state_;
    bool shown_ = false, dragging_ = false;
    int first_ = 1, frames_ = 1, frame_ = 0;
    float low_ = 0, high_ = 1;  // values at the lower and upper edge
    Picked picked_;
};

// With its name and buttons.
class CurveEditor : public QWidget {
    Q_OBJECT

public:
    explicit CurveEditor(Engine& engine, QWidget* parent = nullptr);

    void show_state(const PanelState& state);
    void show_control(int number);
    void set_clip(const OpenState& state);

signals:
    void seek_asked(int frame);
    // The next key of the control, or the one before.
    void jump_asked(int number, int direction);

private:
    void show_now();

    Engine& engine_;
    PanelState panel_;
    int number_ = 0;  // of the control, 0 none yet
    CurveView* view_;
    QLabel* name_;
    std::vector<QToolButton*> buttons_;
};

}  // namespace desk
