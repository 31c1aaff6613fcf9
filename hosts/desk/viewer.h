// The picture: result and input, whole, wiped over each other or side by side.
#pragma once

#include "hosts/desk/worker.h"

#include <QTimer>
#include <QWidget>

namespace desk {

class Engine;

class Viewer : public QWidget {
    Q_OBJECT

public:
    enum class Mode { result, input, wipe, side_by_side };
    enum class Channels { colours, red, green, blue, luma };

    explicit Viewer(Engine& engine, QWidget* parent = nullptr);

    void set_clip(const OpenState& state);
    // What is told where nothing is open; empty: what one can do.
    void set_hint(const QString& hint);
    void show_picture(const PictureState& picture);
    void set_mode(Mode mode);
    Mode mode() const { return mode_; }
    void set_channels(Channels channels);
    Channels channels() const { return channels_; }
    void set_input(int input);
    void set_handles(bool on);
    bool handles() const { return handles_; }

    void fit();
    // Viewer pixels for a frame pixel, with the place (in the widget) staying where it is.
    void set_zoom(double zoom, QPointF place);
    double zoom() const { return zoom_; }
    // Where a pixel of the frame, from its bottom left, is seen.
    QPointF place_of(QPointF frame_point) const;
    const PictureState& picture() const { return picture_; }
    QSize sizeHint() const override { return {960, 540}; }

signals:
    void zoom_changed(double zoom);
    void mode_changed(desk::Viewer::Mode mode);
    // From the bottom left of the frame; -1 outside.
    void pointed_at(int x, int y);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

private:
    void changed_view();
    void ask();
    QRectF picture_rect(bool second = false) const;
    QPointF frame_point(QPointF place) const;
    void draw_image(QPainter& painter, const QImage& image, bool second);
    QImage in_channels(const QImage& image) const;
    void send_pen(QPointF place, float pressure);
    float host_zoom() const;
    bool near_wipe(QPointF place) const;

    Engine& engine_;
    OpenState clip_;
    QString hint_;
    PictureState picture_;
    Mode mode_ = Mode::result;
    Channels channels_ = Channels::colours;
    int input_ = 0;
    bool handles_ = true, fitted_ = true;
    double zoom_ = 1, wipe_ = 0.5;
    QPointF centre_;  // point of the frame, from its top left, in the middle of the widget
    enum class Hand { none, pen, pan, wipe } hand_ = Hand::none;
    bool space_ = false;
    QPointF hand_from_, centre_from_;
    QTimer asking_;
};

}  // namespace desk
