// A point.
#include "support/errors.h"
#include "widgets/glyph_shapes.h"
#include "widgets/placement.h"
#include "widgets/widget_factory.h"

namespace velloran::widgets {

class CenterWidget final : public PlacedWidget {
public:
    using PlacedWidget::PlacedWidget;

    bool build() {
        const Glyph* const shape = center_glyph(glyph_name("center"));
        if (!shape) {
            V_error(level_error, "Unknown center widget type %s", glyph_name("center"));
            return false;
        }
        glyph_ = addGlyphToRegion(*shape, 0);
        return true;
    }

    void startDrag(int, float x, float y) override { grip_ = Point{x, y} - at_; }
    // Keeps the pen at the same place of the cross.
    void drag(int, float x, float y) override { at_ = Point{x, y} - grip_; }
    void getValuesFromParams() override { at_ = get_place(frame_middle()); }
    void _setValuesIntoParams() override { set_place(at_); }
    bool setGlyphTransforms() override {
        glyph_->transform = screen_glyph(at_, center_pixels);
        return usable(at_);
    }

private:
    Glyph* glyph_ = nullptr;
    Point at_ = {0, 0}, grip_ = {0, 0};
};

DEFINE_WIDGET_FACTORY(center, CenterWidget)

}  // namespace velloran::widgets
