#include "widgets/widget.h"

#include "params/param_values.h"
#include "params/undo.h"
#include "support/errors.h"
#include "widgets/view.h"
#include "widgets/widget_types.h"

#include <algorithm>
#include <cstring>

namespace velloran::widgets {

Widget::Widget(const char* widget_name, const char* type, Param* enable)
    : name(widget_name), type_name(type), enable_param(enable) {}

bool Widget::construct_basic_widget(const WidgetPart* given, int count) {
    const WidgetType* const type = find_widget_type(type_name);
    bool all = type != nullptr;
    for (int i = 0; type && i < count; ++i) {
        const char* const word =
            given[i].data && given[i].data->part_name ? given[i].data->part_name : given[i].param->name;
        const int part = find_widget_part(*type, word);
        if (part < 0) {
            V_error(level_error, "Bad part name %s for %s widget %s", word, type_name, name ? name : "");
            all = false;
            continue;
        }
        params_.push_back({type->parts[part], given[i].param, given[i].data, {}});
    }
    return all;
}

const Widget::Part* Widget::find(const char* part) const {
    const size_t n = std::strlen(part);
    for (const Part& candidate : params_) {
        const char* const first = candidate.first_name;
        if (std::strncmp(first, part, n) == 0 && (first[n] == 0 || first[n] == '/')) return &candidate;
    }
    return nullptr;
}

const Param* Widget::part_param(const char* part) const {
    const Part* const found = find(part);
    return found ? found->param : nullptr;
}

const char* Widget::glyph_name(const char* part) const {
    const Part* const found = find(part);
    return found && found->data && found->data->glyph_name ? found->data->glyph_name : "";
}

const char* Widget::part_word(const char* part) const {
    const Part* const found = find(part);
    if (!found) return "";
    return found->data && found->data->part_name ? found->data->part_name : found->param->name;
}

int Widget::channels(const char* part) const {
    const Part* const found = find(part);
    return found ? std::clamp<int>(found->param->n_channels, 1, 4) : 0;
}

float Widget::part_flatness(const char* part) const {
    const Part* const found = find(part);
    return flatness(found ? found->param : nullptr);
}

bool Widget::maybe_set_val(const char* part, float* values, int n, Quantity quantity) {
    const Part* const found = find(part);
    if (!found) return false;
    for (int i = 0; i < std::min<int>(n, found->param->n_channels); ++i) {
        const ValueScale scale = value_scale(found->param, i, quantity);
        values[i] = current_value(found->param, i) * scale.factor + scale.shift;
    }
    return true;
}

bool Widget::maybe_set_val_screen(const char* part, Point* at, Quantity quantity) {
    float values[2] = {at->x, at->y};
    if (!maybe_set_val(part, values, 2, quantity)) return false;
    *at = {values[0], values[1]};
    return true;
}

bool Widget::maybe_set_param(const char* part, const float* values, int n, Quantity quantity) {
    const Part* const found = find(part);
    if (!found) return false;
    float internal[4];
    const int count = std::min<int>(n, found->param->n_channels);
    for (int i = 0; i < count; ++i) {
        const ValueScale scale = value_scale(found->param, i, quantity);
        const float shown = current_value(found->param, i) * scale.factor + scale.shift;
        // What the drag did not touch stays what it was, to the last place.
        const float moved =
            std::isfinite(values[i]) ? (values[i] - scale.shift) / scale.factor : found->param->value[i];
        internal[i] = values[i] == shown ? found->param->value[i] : moved;
    }
    param_set_values(found->param, 0, count, internal, set_update_control | set_undo_fold);
    return true;
}

bool Widget::maybe_set_param_screen(const char* part, Point at, Quantity quantity) {
    const float values[2] = {at.x, at.y};
    return maybe_set_param(part, values, 2, quantity);
}

Glyph* Widget::addGlyphToRegion(const Glyph& shape, int region) {
    auto found = std::find_if(regions.begin(), regions.end(), [=](const WidgetRegion& r) { return r.id == region; });
    if (found == regions.end()) {
        regions.push_back({region, {}, nullptr});
        found = regions.end() - 1;
    }
    // Its place first: what has none yet would be lost where memory runs out.
    found->glyphs.emplace_back();
    found->glyphs.back() = make_counted<Glyph>(shape);
    return found->glyphs.back().get();
}

bool Widget::isEnabled() const { return !enable_param || current_value(enable_param, 0) != 0; }

bool Widget::haveAnyParamValuesChanged() {
    bool changed = false;
    for (Part& part : params_) {
        for (int i = 0; i < std::clamp<int>(part.param->n_channels, 0, 4); ++i) {
            const float value = current_value(part.param, i);
            changed = changed || part.seen[i] != value;
            part.seen[i] = value;
        }
    }
    return changed;
}

int Widget::hit(float x, float y) {
    if (!isEnabled()) return -1;
    getValuesFromParams();
    if (!setGlyphTransforms()) return -1;
    for (WidgetRegion& region : regions) {
        for (const counted_ptr<Glyph>& glyph : region.glyphs) {
            if (!glyph->hit_p(x, y)) continue;
            region.hit_glyph = glyph;
            return region.id;
        }
    }
    return -1;
}

void Widget::draw() {
    if (!isEnabled()) return;
    getValuesFromParams();
    needs_update = false;
    if (!setGlyphTransforms()) return;
    // Together, since drivers draw fast what changes its colour seldom.
    for (const WidgetRegion& region : regions)
        for (const counted_ptr<Glyph>& glyph : region.glyphs) glyph->draw_rim();
    // What is hit first is drawn last, above the others.
    for (auto region = regions.rbegin(); region != regions.rend(); ++region) {
        GS.highlighted = region->id == hilite_region;
        GS.line_width = region->id == active_region ? 2.0f : 1.0f;
        for (const counted_ptr<Glyph>& glyph : region->glyphs) glyph->draw();
    }
    GS = {0, 1};
}

Affine screen_glyph(Point at, float pixels, float turns) {
    Affine transform;
    transform.translate(at.x, at.y);
    transform.scale(pixels * view_scale_x, pixels * view_scale_y);
    transform.rotate(turns);
    return transform;
}

}  // namespace velloran::widgets
