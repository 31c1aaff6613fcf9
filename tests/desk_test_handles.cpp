// Handles in the window: what is dragged on the picture stands in the fields, and the other way round.
#include "tests/desk_test_window.h"

#include <cmath>

namespace desk_test {
namespace {

class DeskHandles : public Desk {
protected:
    static constexpr int rest = 200;  // milliseconds, more than a hand that rests is waited for

    // A point, in each of the ways that a text may count it; it starts 10 pixels right of and 5 above the middle.
    void open_spot(const char* units, const char* place) {
        const QString path = directory_.filePath("spot.text");
        std::ofstream(path.toStdString())
            << "(def_effect Spot (Source) ()\n"
            << "  place = " << place << " (" << units << " min -1000 max 1000 step 0.001 widget center.center)\n"
            << "  dest = (* Source (+ 0.5 (* 0.0001 (mag place))))\n)\n";
        open({path, plate_});
        show_handles();
    }
    void show_handles() {
        for (QCheckBox* const box : window_->findChildren<QCheckBox*>())
            if (box->text().contains("Widget") && !box->text().contains("Crop") && !box->isChecked()) box->click();
        ASSERT_SOON(!viewer()->picture().handles.isNull() && handle_seen());
    }
    bool handle_seen() { return !std::isnan(handle().x()); }
    // The middle of what is drawn over the picture, in the widget's pixels.
    QPointF handle() {
        const QImage& drawn = viewer()->picture().handles;
        QRect box;
        for (int y = 0; y < drawn.height(); y++)
            for (int x = 0; x < drawn.width(); x++)
                if (qAlpha(drawn.pixel(x, y)) > 0) box |= QRect(x, y, 1, 1);
        if (box.isEmpty()) return {std::nan(""), 0};
        return QRectF(box).center();
    }
    // Fields of the channels, in order.
    std::vector<ValueField*> fields(const QString& param) {
        std::vector<ValueField*> found;
        for (ValueField* const one : window_->findChildren<ValueField*>())
            if (one->objectName().startsWith(param)) found.push_back(one);
        return found;
    }
    QPointF shown() {
        const auto both = fields("place");
        return both.size() < 2 ? QPointF() : QPointF(both[0]->value(), both[1]->value());
    }
};

TEST_F(DeskHandles, HandlesAreDrawnOverThePictureAndHiddenByAKey) {
    const QString path = directory_.filePath("spot.text");
    std::ofstream(path.toStdString()) << "(def_effect Spot (Source) ()\n"
                                         "  place = [0 0] (screen_center_to_norm pointer_set)\n"
                                         "  dest = (* Source (- 1 (* 0.5 (mag (- xy place)))))\n"
                                         ")\n";
    open({path, plate_});
    // Its switch first, if it does not stand.
    for (QCheckBox* const box : window_->findChildren<QCheckBox*>())
        if (box->text().contains("Widget") && !box->text().contains("Crop") && !box->isChecked()) box->click();
    ASSERT_SOON(!viewer()->picture().handles.isNull());
    shortcut(Qt::Key_H);
    ASSERT_SOON(viewer()->picture().handles.isNull());
}

// What is dragged stays under the pen: n pixels of the window are n / zoom of the frame, whatever the zoom.
TEST_F(DeskHandles, AHandleFollowsThePenAndTheFieldsFollowTheHandle) {
    const struct {
        const char* units;
        const char* place;
        double unit_x, unit_y;  // of the field, for a pixel of the frame
    } rows[] = {{"screen_center_to_norm", "[10 5]", 1, 1},
                {"screen_center0", "[10 5]", 1, 1},
                {"screen", "[58 37]", 1, 1},
                {"", "[0.2083 0.1042]", 2.0 / 96, 2.0 / 96}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.units);
        ASSERT_NO_FATAL_FAILURE(open_spot(row.units, row.place));
        int steps = history()->count();
        for (const double zoom : {0.5, 1.0, 2.0, 4.4}) {
            const QPoint pan = zoom < 1 || zoom > 2 ? QPoint(37, -21) : QPoint();
            SCOPED_TRACE(testing::Message() << "zoom " << zoom << " pan " << pan.x());
            shortcut(Qt::Key_F);
            viewer()->set_zoom(zoom, QPointF(viewer()->width() / 2.0, viewer()->height() / 2.0));
            if (!pan.isNull()) drag(viewer(), {5, 5}, QPoint(5, 5) + pan, 3, Qt::MiddleButton);
            wait_for_rest(rest);
            const QPointF from = handle(), before = shown();
            const QSize size = viewer()->size();
            const QPoint way(20, -10);
            drag(viewer(), from.toPoint(), from.toPoint() + way, 5);
            ++steps;
            ASSERT_SOON(history()->count() == steps && settled());
            wait_for_rest(rest);
            EXPECT_EQ(history()->count(), steps) << "one drag is one step";
            EXPECT_EQ(viewer()->size(), size) << "what is told on the way moves the picture";
            const QPointF moved = shown() - before;
            EXPECT_NEAR(moved.x(), way.x() / zoom * row.unit_x, 0.02 * row.unit_x);
            EXPECT_NEAR(moved.y(), -way.y() / zoom * row.unit_y, 0.02 * row.unit_y);
            const QPointF drawn = handle() - from;
            EXPECT_NEAR(drawn.x(), way.x(), 1.01);
            EXPECT_NEAR(drawn.y(), way.y(), 1.01);
            shortcut(Qt::CTRL | Qt::Key_Z);
            ASSERT_SOON((shown() - before).manhattanLength() < 1e-4);
            wait_for_rest(rest);
            shortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
            ASSERT_SOON((shown() - before - moved).manhattanLength() < 1e-4);
            shortcut(Qt::CTRL | Qt::Key_Z);
            ASSERT_SOON((shown() - before).manhattanLength() < 1e-4);
        }
        window_ = nullptr;
    }
}

TEST_F(DeskHandles, ADragSetsKeysWhereThereIsACurve) {
    ASSERT_NO_FATAL_FAILURE(open_spot("screen_center0", "[10 5]"));
    find<QSpinBox>("length")->setValue(5);
    ASSERT_SOON(find<QSpinBox>("frame number")->maximum() == 5 && has_picture());
    shortcut(Qt::Key_F);
    viewer()->set_zoom(2, QPointF(viewer()->width() / 2.0, viewer()->height() / 2.0));
    QTest::keyClick(fields("place")[0], Qt::Key_K);
    ASSERT_SOON(message().isEmpty() && history()->count() == 3);
    find<QSpinBox>("frame number")->setValue(5);
    ASSERT_SOON(viewer()->picture().frame == 4);
    ASSERT_NO_FATAL_FAILURE(show_handles());
    wait_for_rest(rest);
    const int steps = history()->count();
    drag(viewer(), handle().toPoint(), handle().toPoint() + QPoint(16, 0), 4);
    ASSERT_SOON(history()->count() == steps + 1 && settled() && std::abs(shown().x() - 18) < 0.02);
    find<QSpinBox>("frame number")->setValue(3);
    ASSERT_SOON(viewer()->picture().frame == 2 && std::abs(shown().x() - 14) < 0.02);
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(shown().x() == 10);
}

TEST_F(DeskHandles, AValueThatIsTypedMovesTheHandle) {
    ASSERT_NO_FATAL_FAILURE(open_spot("screen_center0", "[10 5]"));
    viewer()->set_zoom(2, QPointF(viewer()->width() / 2.0, viewer()->height() / 2.0));
    wait_for_rest(rest);
    const QPointF from = handle();
    type_value("place", "25");
    ASSERT_SOON(shown().x() == 25 && settled());
    wait_for_rest(rest);
    EXPECT_NEAR(handle().x() - from.x(), 30, 1);
    EXPECT_NEAR(handle().y(), from.y(), 1);
}

}  // namespace
}  // namespace desk_test
