// A handle over the viewer's picture: glyphs in regions that a pen can take hold of, tied to params. Dragging a region
// writes the params, and what the params hold places the glyphs. Host's thread only; a map of the view must be set (see
// view.h). Places are pixels of the full frame, y up.
#pragma once

#include "records/widget_record.h"
#include "widgets/glyph.h"
#include "widgets/widget_values.h"

namespace velloran::widgets {

struct WidgetRegion {
    int id = 0;
    KeptVector<counted_ptr<Glyph>> glyphs;
    counted_ptr<Glyph> hit_glyph;  // the one that was hit last
};

class Widget : public Kept {
public:
    Widget(const char* widget_name, const char* type, Param* enable);
    virtual ~Widget() = default;
    Widget(const Widget&) = delete;
    Widget& operator=(const Widget&) = delete;

    virtual void startDrag(int /*region*/, float /*x*/, float /*y*/) {}
    virtual void drag(int region, float x, float y) = 0;
    virtual void stopDrag(int /*region*/, float /*x*/, float /*y*/) {}
    virtual void getValuesFromParams() = 0;
    virtual void _setValuesIntoParams() = 0;
    // Lays the glyphs out for the values. False: there is nothing to be seen.
    virtual bool setGlyphTransforms() = 0;

    // Files the parts under the first name of their group. False after a message where a part's name is unknown; the
    // others stand.
    bool construct_basic_widget(const WidgetPart* given, int count);

    // The region that a point lies on, or -1.
    int hit(float x, float y);
    void draw();
    bool isEnabled() const;
    const Param* part_param(const char* part) const;  // null where there is no such part
    bool haveAnyParamValuesChanged();                 // since this was asked last

    int index = 0;  // of its record among the effect's
    const char* name;
    const char* type_name;
    Param* enable_param;                         // null: always on
    KeptVector<WidgetRegion> regions;            // in the order of hits
    int hilite_region = -1, active_region = -1;  // ids, -1 none
    bool needs_update = false;

protected:
    // A copy of the shape; its transform is the widget's to set.
    Glyph* addGlyphToRegion(const Glyph& shape, int region);

    bool has(const char* part) const { return find(part) != nullptr; }
    // The text behind "glyph" in the declaration of a part; "" where there is none.
    const char* glyph_name(const char* part) const;
    const char* part_word(const char* part) const;  // as the declaration names it, "" where there is no such part
    int channels(const char* part) const;           // 0 where there is no such part
    float part_flatness(const char* part) const;

    // These read and write only where the part exists, and answer whether it does. Channels behind the param's last are
    // left alone. Writing shows the value on the panel and keeps the old one for Undo.
    bool maybe_set_val(const char* part, float* values, int n = 1, Quantity quantity = Quantity::plain);
    bool maybe_set_val_screen(const char* part, Point* at, Quantity quantity = Quantity::position);
    bool maybe_set_param(const char* part, const float* values, int n = 1, Quantity quantity = Quantity::plain);
    bool maybe_set_param_screen(const char* part, Point at, Quantity quantity = Quantity::position);

private:
    struct Part {
        const char* first_name;  // of its group, up to a slash
        Param* param;
        const ParamWidgetData* data;
        float seen[4];
    };
    const Part* find(const char* part) const;

    KeptVector<Part> params_;
};

// Keeps a glyph of that many pixels on the screen at a place, turned.
Affine screen_glyph(Point at, float pixels, float turns = 0);

}  // namespace velloran::widgets
