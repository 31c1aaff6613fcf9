// The line of frames: where the clip stands, play, in and out.
#pragma once

#include "hosts/desk/state.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

class QLabel;
class QSpinBox;
class QToolButton;

namespace desk {

// The strip that is scrubbed, with keys and the range from in to out.
class FrameStrip : public QWidget {
    Q_OBJECT

public:
    explicit FrameStrip(QWidget* parent = nullptr);
    void set_clip(int first, int frames);
    void set_range(int in, int out);
    void set_frame(int frame);
    void set_keys(std::vector<int> keys);
    QSize sizeHint() const override { return {300, 26}; }

signals:
    void frame_asked(int frame);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    double place(double frame) const;
    void scrub(double x);

    int first_ = 1, frames_ = 1, frame_ = 0, in_ = 0, out_ = 0;
    std::vector<int> keys_;
};

// Frames are counted from 0 inside, and shown by the files' numbers.
class Timeline : public QWidget {
    Q_OBJECT

public:
    explicit Timeline(QWidget* parent = nullptr);

    void set_clip(const OpenState& state);
    // The engine came to this frame: while playing, the next one is asked for in time.
    void show_frame(int frame);
    void show_keys(const PanelState& panel);
    int frame() const { return frame_; }
    int in() const { return in_; }
    int out() const { return out_; }
    void go(int frame);
    // The clip that is being opened begins with this frame.
    void begin_at(int frame) { frame_ = frame; }
    void step(int frames) { go(frame_ + frames); }
    void set_in();
    void set_out();
    void toggle_play();
    bool playing() const { return playing_; }

signals:
    void frame_asked(int frame);
    void length_asked(int frames);
    // From in to out, as a list of frames.
    void range_changed(const QString& frames);

private:
    void play_on();
    void show_range();

    FrameStrip* strip_;
    QSpinBox* number_;
    QSpinBox* length_;
    QToolButton* play_;
    QLabel* range_;
    QTimer timer_;
    QElapsedTimer since_;
    int first_ = 1, frames_ = 1, frame_ = 0, in_ = 0, out_ = 0;
    double rate_ = 24;
    bool playing_ = false;
};

}  // namespace desk
