#include "hosts/desk/viewer.h"

#include "hosts/desk/engine.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace desk {

namespace {

constexpr double smallest_zoom = 1.0 / 32, largest_zoom = 64;
constexpr double wheel_zoom = 1.2;
constexpr int wipe_reach = 6;  // pixels
const QColor surround(38, 38, 38);

}  // namespace

Viewer::Viewer(Engine& engine, QWidget* parent) : QWidget(parent), engine_(engine) {
    setObjectName("viewer");
    setAccessibleName("Viewer");
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(240, 160);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setAttribute(Qt::WA_OpaquePaintEvent);
    asking_.setSingleShot(true);
    asking_.setInterval(0);
    connect(&asking_, &QTimer::timeout, this, &Viewer::ask);
}

void Viewer::set_clip(const OpenState& state) {
    const bool other_size = state.width != clip_.width || state.height != clip_.height;
    clip_ = state;
    input_ = std::clamp(input_, 0, std::max(0, static_cast<int>(state.inputs.size()) - 1));
    picture_ = PictureState();
    if (other_size) fit();
    changed_view();
}

void Viewer::show_picture(const PictureState& picture) {
    const bool keep = picture.failure.isEmpty() && picture.result.isNull();
    const QImage before = picture_.result;
    const QRect area = picture_.area;
    const int step = picture_.step;
    picture_ = picture;
    if (keep) {
        picture_.result = before;
        picture_.area = area;
        picture_.step = step;
        picture_.input = QImage();
    }
    update();
}

void Viewer::set_mode(Mode mode) {
    mode_ = mode;
    emit mode_changed(mode);
    if (fitted_) fit();
    changed_view();
}

void Viewer::set_channels(Channels channels) {
    channels_ = channels;
    update();
}

void Viewer::set_input(int input) {
    input_ = input;
    changed_view();
}

void Viewer::set_handles(bool on) {
    handles_ = on;
    changed_view();
}

// The frame as it lies in the widget; side by side the result is on the left and the input on the right.
QRectF Viewer::picture_rect(bool second) const {
    const double across = zoom_ * clip_.pixel_ratio, width = clip_.width * across, height = clip_.height * zoom_;
    QPointF middle(this->width() / 2.0, this->height() / 2.0);
    if (mode_ == Mode::side_by_side) middle.rx() += (second ? 1 : -1) * this->width() / 4.0;
    return {middle.x() - centre_.x() * across, middle.y() - centre_.y() * zoom_, width, height};
}

QPointF Viewer::frame_point(QPointF place) const {
    const QRectF rect = picture_rect();
    return {(place.x() - rect.left()) / zoom_ / clip_.pixel_ratio, clip_.height - (place.y() - rect.top()) / zoom_};
}

QPointF Viewer::place_of(QPointF point) const {
    const QRectF rect = picture_rect();
    return {rect.left() + point.x() * zoom_ * clip_.pixel_ratio, rect.top() + (clip_.height - point.y()) * zoom_};
}

void Viewer::fit() {
    fitted_ = true;
    if (clip_.width < 1) return;
    const double room = mode_ == Mode::side_by_side ? width() / 2.0 : width();
    zoom_ = std::min((room - 16) / (clip_.width * clip_.pixel_ratio), (height() - 16.0) / clip_.height);
    zoom_ = std::clamp(zoom_, smallest_zoom, largest_zoom);
    centre_ = QPointF(clip_.width / 2.0, clip_.height / 2.0);
    emit zoom_changed(zoom_);
    changed_view();
}

void Viewer::set_zoom(double zoom, QPointF place) {
    zoom = std::clamp(zoom, smallest_zoom, largest_zoom);
    const QPointF offset = place - QPointF(width() / 2.0, height() / 2.0);
    const QPointF unit(1 / clip_.pixel_ratio, 1);
    centre_ += QPointF(offset.x() * unit.x(), offset.y()) / zoom_ - QPointF(offset.x() * unit.x(), offset.y()) / zoom;
    zoom_ = zoom;
    fitted_ = false;
    emit zoom_changed(zoom_);
    changed_view();
}

void Viewer::changed_view() {
    asking_.start();
    update();
}

// The frame's pixels that can be seen, and how many of them make a pixel of the screen.
void Viewer::ask() {
    if (clip_.width < 1) return;
    ViewRequest view;
    const double ratio = devicePixelRatioF();
    view.step = std::max(1, static_cast<int>(std::floor(1.0 / (zoom_ * ratio) + 1e-6)));
    const QRectF rect = picture_rect();
    const QRectF other = picture_rect(true);
    const bool both = mode_ == Mode::side_by_side;
    const auto seen = [&](const QRectF& r, double left, double right) {
        return QRectF(QPointF((left - r.left()) / zoom_ / clip_.pixel_ratio, -r.top() / zoom_),
                      QPointF((right - r.left()) / zoom_ / clip_.pixel_ratio, (height() - r.top()) / zoom_));
    };
    QRectF area = seen(rect, 0, both ? width() / 2.0 : width());
    if (both) area = area.united(seen(other, width() / 2.0, width()));
    QRect whole = area.toAlignedRect().intersected(QRect(0, 0, clip_.width, clip_.height));
    // Whole cells of the grid, so that a picture does not swim while it is panned.
    const int s = view.step;
    whole.setLeft(whole.left() / s * s);
    whole.setTop(whole.top() / s * s);
    view.area = whole.isEmpty() ? QRect(0, 0, 1, 1) : whole;
    view.input = mode_ == Mode::result ? -1 : input_;
    view.handles = handles_ && !both && mode_ != Mode::input;
    view.zoom = static_cast<float>(zoom_);
    view.viewer = size();
    view.origin = QPointF(rect.left(), height() - rect.bottom());
    engine_.view(view);
}

QImage Viewer::in_channels(const QImage& image) const {
    if (channels_ == Channels::colours || image.isNull()) return image;
    QImage grey(image.size(), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); y++) {
        const auto* const from = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        auto* const to = reinterpret_cast<QRgb*>(grey.scanLine(y));
        for (int x = 0; x < image.width(); x++) {
            const QRgb p = from[x];
            const int value = channels_ == Channels::red     ? qRed(p)
                              : channels_ == Channels::green ? qGreen(p)
                              : channels_ == Channels::blue  ? qBlue(p)
                                                             : (54 * qRed(p) + 183 * qGreen(p) + 19 * qBlue(p)) >> 8;
            to[x] = qRgb(value, value, value);
        }
    }
    return grey;
}

void Viewer::draw_image(QPainter& painter, const QImage& image, bool second) {
    if (image.isNull()) return;
    const QRectF rect = picture_rect(second);
    const double across = zoom_ * clip_.pixel_ratio;
    const QRectF target(rect.left() + picture_.area.left() * across, rect.top() + picture_.area.top() * zoom_,
                        picture_.area.width() * across, picture_.area.height() * zoom_);
    // Seen from near, pixels are pixels.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, zoom_ < 2);
    painter.drawImage(target, in_channels(image));
}

void Viewer::set_hint(const QString& hint) {
    hint_ = hint;
    if (clip_.width < 1) update();
}

void Viewer::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), surround);
    if (clip_.width < 1) {
        painter.setPen(QColor(150, 150, 150));
        painter.drawText(rect(), Qt::AlignCenter,
                         hint_.isEmpty() ? tr("Drop a picture here, or open one with Ctrl+O") : hint_);
        return;
    }
    if (!picture_.failure.isEmpty()) {
        painter.fillRect(picture_rect(), QColor(24, 24, 24));
        painter.setPen(QColor(235, 160, 120));
        painter.drawText(picture_rect().intersected(rect()).adjusted(20, 20, -20, -20),
                         Qt::AlignCenter | Qt::TextWordWrap, tr("No frame: %1").arg(picture_.failure));
        if (mode_ == Mode::result) return;
    }
    switch (mode_) {
        case Mode::result:
            draw_image(painter, picture_.result, false);
            break;
        case Mode::input:
            draw_image(painter, picture_.input, false);
            break;
        case Mode::wipe: {
            const double x = wipe_ * width();
            painter.setClipRect(QRectF(0, 0, x, height()));
            draw_image(painter, picture_.input, false);
            painter.setClipRect(QRectF(x, 0, width() - x, height()));
            draw_image(painter, picture_.result, false);
            painter.setClipping(false);
            painter.setPen(QPen(QColor(0, 0, 0, 160), 3));
            painter.drawLine(QPointF(x, 0), QPointF(x, height()));
            painter.setPen(QPen(QColor(255, 255, 255, 220), 1));
            painter.drawLine(QPointF(x, 0), QPointF(x, height()));
            break;
        }
        case Mode::side_by_side:
            painter.setClipRect(QRectF(0, 0, width() / 2.0 - 1, height()));
            draw_image(painter, picture_.result, false);
            painter.setClipRect(QRectF(width() / 2.0 + 1, 0, width() / 2.0 - 1, height()));
            draw_image(painter, picture_.input, true);
            painter.setClipping(false);
            break;
    }
    if (!picture_.handles.isNull() && handles_) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);  // where the screen is denser
        painter.drawImage(QRectF(rect()), picture_.handles);
    }
}

void Viewer::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (fitted_)
        fit();
    else
        changed_view();
}

// What plug-ins take for a zoom below 1: -n stands for 1 / (n + 2), also between whole numbers.
float Viewer::host_zoom() const { return static_cast<float>(zoom_ < 1 ? 2 - 1 / zoom_ : zoom_); }

void Viewer::send_pen(QPointF place, float pressure) {
    if (!handles_ || mode_ == Mode::input || mode_ == Mode::side_by_side) return;
    const QPointF point = frame_point(place);
    engine_.pen(static_cast<float>(point.x()), static_cast<float>(point.y()), pressure, host_zoom());
}

bool Viewer::near_wipe(QPointF place) const {
    return mode_ == Mode::wipe && std::abs(place.x() - wipe_ * width()) <= wipe_reach;
}

void Viewer::mousePressEvent(QMouseEvent* event) {
    hand_from_ = event->position();
    centre_from_ = centre_;
    const bool pans = event->button() == Qt::MiddleButton ||
                      (event->button() == Qt::LeftButton && (space_ || (event->modifiers() & Qt::AltModifier)));
    if (pans)
        hand_ = Hand::pan;
    else if (event->button() == Qt::LeftButton)
        hand_ = near_wipe(event->position()) ? Hand::wipe : Hand::pen;
    if (hand_ == Hand::pan) setCursor(Qt::ClosedHandCursor);
    if (hand_ == Hand::pen) send_pen(event->position(), 1);
}

void Viewer::mouseMoveEvent(QMouseEvent* event) {
    const QPointF place = event->position();
    switch (hand_) {
        case Hand::pan: {
            const QPointF moved = place - hand_from_;
            centre_ = centre_from_ - QPointF(moved.x() / zoom_ / clip_.pixel_ratio, moved.y() / zoom_);
            fitted_ = false;
            changed_view();
            break;
        }
        case Hand::wipe:
            wipe_ = std::clamp(place.x() / std::max(1, width()), 0.0, 1.0);
            update();
            break;
        case Hand::pen:
            send_pen(place, 1);
            break;
        case Hand::none:
            setCursor(near_wipe(place) ? Qt::SplitHCursor : Qt::ArrowCursor);
            send_pen(place, 0);
            break;
    }
    const QPointF point = frame_point(place);
    const bool inside = point.x() >= 0 && point.y() > 0 && point.x() < clip_.width && point.y() <= clip_.height;
    emit pointed_at(inside ? static_cast<int>(std::floor(point.x())) : -1,
                    inside ? static_cast<int>(std::ceil(point.y())) - 1 : -1);
}

void Viewer::mouseReleaseEvent(QMouseEvent* event) {
    if (hand_ == Hand::pen) send_pen(event->position(), 0);
    hand_ = Hand::none;
    setCursor(space_ ? Qt::OpenHandCursor : Qt::ArrowCursor);
}

void Viewer::leaveEvent(QEvent* event) {
    QWidget::leaveEvent(event);
    emit pointed_at(-1, -1);
}

void Viewer::wheelEvent(QWheelEvent* event) {
    const double steps = event->angleDelta().y() / 120.0;
    set_zoom(zoom_ * std::pow(wheel_zoom, steps), event->position());
    event->accept();
}

void Viewer::keyPressEvent(QKeyEvent* event) {
    const QPointF middle(width() / 2.0, height() / 2.0);
    const double pan = 0.1 * std::min(width(), height()) / zoom_;
    switch (event->key()) {
        case Qt::Key_Space:
            space_ = true;
            setCursor(Qt::OpenHandCursor);
            return;
        case Qt::Key_Plus:
        case Qt::Key_Equal:
            return set_zoom(zoom_ * wheel_zoom, middle);
        case Qt::Key_Minus:
            return set_zoom(zoom_ / wheel_zoom, middle);
        case Qt::Key_Up:
        case Qt::Key_Down:
        case Qt::Key_Left:
        case Qt::Key_Right:
            if (event->key() == Qt::Key_Up) centre_.ry() -= pan;
            if (event->key() == Qt::Key_Down) centre_.ry() += pan;
            if (event->key() == Qt::Key_Left) centre_.rx() -= pan;
            if (event->key() == Qt::Key_Right) centre_.rx() += pan;
            fitted_ = false;
            return changed_view();
        default:
            QWidget::keyPressEvent(event);
    }
}

void Viewer::keyReleaseEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        space_ = false;
        setCursor(Qt::ArrowCursor);
    }
    QWidget::keyReleaseEvent(event);
}

}  // namespace desk
