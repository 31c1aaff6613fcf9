// Handles in the window: what is dragged on the picture stands in the fields, and the other way round.
#include "tests/desk_test_window.h"

#include <cmath>

namespace desk_test {
namespace {

class DeskHandles : public Desk {
protected:
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
        return QRectF(box).center() / viewer()->devicePixelRatioF();
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

TEST_F(DeskHandles, AValueThatIsTypedMovesTheHandle) {
    ASSERT_NO_FATAL_FAILURE(open_spot("screen_center0", "[10 5]"));
    viewer()->set_zoom(2, QPointF(viewer()->width() / 2.0, viewer()->height() / 2.0));
    wait_for_rest();
    const QPointF from = handle();
    type_value("place", "25");
    ASSERT_SOON(shown().x() == 25 && settled());
    wait_for_rest();
    EXPECT_NEAR(handle().x() - from.x(), 30, 1);
    EXPECT_NEAR(handle().y(), from.y(), 1);
}

}  // namespace
}  // namespace desk_test
