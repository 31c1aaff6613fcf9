// The handles over the picture: what the pen takes hold of, what a drag makes of the params, what is drawn.
#include "testing/drawn_lines.h"
#include "testing/params_fixture.h"
#include "widgets/dispatcher.h"
#include "widgets/glyph_shapes.h"
#include "widgets/view.h"

#include <fstream>
#include <sstream>

namespace velloran {
namespace {

using widgets::Affine;
using widgets::Glyph;
using widgets::Point;
using widgets::WidgetDispatcher;

class Widgets : public ParamsTest {
protected:
    // Params and parts of one handle: "center=0,0 radius=0.5", values as the param holds them.
    Genotype* add_handle(const char* name, const std::string& type, const std::string& parts, int mode = screen_none) {
        Genotype* const effect = add_effect(name);
        std::istringstream words(parts);
        for (std::string word; words >> word;) {
            const size_t equals = word.find('=');
            const std::string part = word.substr(0, equals);
            std::vector<float> values;
            std::istringstream numbers(word.substr(equals + 1));
            for (std::string number; std::getline(numbers, number, ',');) values.push_back(std::stof(number));
            // Each param has a name of its own; effects that share a plug-in share none of them.
            Param* const p = add_param(effect, param_float, part.c_str(), static_cast<int>(values.size()));
            p->min_value = -1e6f;
            p->max_value = 1e6f;
            p->scale_flags = static_cast<uint8_t>(mode);
            for (size_t i = 0; i < values.size(); ++i) p->value[i] = p->default_value[i] = values[i];
            p->widget_list = clause(type.c_str(), part.c_str());
        }
        return effect;
    }
    static ParamWidgetData* clause(const char* type, const char* part) {
        auto* const data = safe_new_zeroed<ParamWidgetData>();
        data->widget_type = safe_strdup(type);
        data->part_name = safe_strdup(part);
        data->default_on = data->enable_index = -1;
        data->number = -1;
        return data;
    }

    static std::string values(const Genotype* effect) {
        std::ostringstream text;
        for (int i = 0; i < effect->param_number; ++i) {
            const Param* const p = effect->params[i];
            text << (i ? " " : "") << p->name << "=";
            for (int k = 0; k < p->n_channels; ++k) {
                const double rounded = std::round(static_cast<double>(p->value[k]) * 1000) / 1000;
                text << (k ? "," : "") << (rounded == 0 ? 0 : rounded);
            }
        }
        return text.str();
    }

    int pen(float x, float y, bool down) { return spark_dispatch_mouse_event(&info, x, y, down, zoom, &need_process); }
    void drag(const std::vector<Point>& way) {
        pen(way[0].x, way[0].y, false);
        for (const Point p : way) pen(p.x, p.y, true);
        pen(way.back().x, way.back().y, false);
    }
    static WidgetDispatcher* handles(const Genotype* effect) { return effect->widgets->dispatcher; }
    void redraw(const Genotype* effect, float ratio = 1) {
        spark_redraw_widgets(const_cast<Genotype*>(effect), &info, nullptr, zoom, ratio);
    }

    float zoom = 1;
    int need_process = 0;
};

// A frame of 720 by 486 whose pixels are square: a length of 1 is 360 pixels both ways, the middle is (360, 243).
const struct DragRow {
    const char *what, *type, *parts;
    std::vector<Point> way;  // where the pen comes down, and where it goes
    const char* then;        // all params afterwards
} drag_rows[] = {
    {"point", "center", "center=0,0", {{370, 243}, {406, 279}}, "center=0.1,0.1"},
    {"point and offset", "center", "center=0,0 offset=0.1,0", {{396, 243}, {396, 279}}, "center=0,0.1 offset=0.1,0"},
    {"point, negated", "center", "center=0.5,0 negate=1", {{180, 243}, {216, 243}}, "center=0.4,0 negate=1"},
    {"rim", "center_radius", "center=0.1,0 radius=0.5", {{576, 243}, {612, 243}}, "center=0.1,0 radius=0.6"},
    {"middle of a circle",
     "center_radius",
     "center=0,0 radius=0.5",
     {{366, 243}, {402, 243}},
     "center=0.1,0 radius=0.5"},
    {"rim of no size", "center_radius", "center=0,0 radius=0", {{360, 248}, {360, 284}}, "center=0,0 radius=0.1"},
    {"circle", "radius", "radius=0.25", {{450, 243}, {360, 423}}, "radius=0.5"},
    {"two radii", "radius", "radius=0.2,0.1", {{432, 243}, {504, 243}}, "radius=0.4,0.2"},
    {"arm", "angle", "angle=0", {{460, 243}, {360, 343}}, "angle=0.25"},
    {"whole turns",
     "angle",
     "angle=0",
     {{460, 243}, {360, 343}, {260, 243}, {360, 143}, {460, 243}, {360, 343}},
     "angle=1.25"},
    {"arm's place", "angle", "angle=0.1 center=0,0", {{360, 250}, {396, 250}}, "angle=0.1 center=0.1,0"},
    {"stretch", "angle", "angle=0 stretch=1", {{360, 303}, {360, 333}}, "angle=0 stretch=1.5"},
    {"stretch along", "angle", "angle=0 stretch=1,1", {{420, 243}, {450, 243}}, "angle=0 stretch=1.5,1"},
    {"stretch, turned", "angle", "angle=0.25 stretch=1,1", {{300, 243}, {270, 243}}, "angle=0.25 stretch=1,1.5"},
    {"size",
     "ellipse",
     "center=0,0 width=0.5 rel_height=0.5",
     {{487.28f, 306.64f}, {550.92f, 338.46f}},
     "center=0,0 width=0.75 rel_height=0.5"},
    {"height",
     "ellipse",
     "center=0,0 width=0.5 rel_height=0.5",
     {{360, 333}, {360, 378}},
     "center=0,0 width=0.5 rel_height=0.75"},
    {"width alone",
     "ellipse",
     "center=0,0 width=0.5 rel_height=0.5",
     {{540, 243}, {630, 243}},
     "center=0,0 width=0.75 rel_height=0.333"},
    {"shares",
     "ellipse",
     "center=0,0 width=0.5 rel_xy=1,0.5",
     {{540, 243}, {630, 243}},
     "center=0,0 width=0.5 rel_xy=1.5,0.5"},
    {"radii as lengths",
     "ellipse",
     "center=0,0 rel_x=0.5 rel_y=0.25",
     {{360, 333}, {360, 351}},
     "center=0,0 rel_x=0.5 rel_y=0.3"},
    {"turn of an ellipse",
     "ellipse",
     "center=0,0 width=0.5 rotate=0",
     {{573, 243}, {360, 456}},
     "center=0,0 width=0.5 rotate=0.25"},
    {"edge",
     "ellipse",
     "center=0,0 width=0.5 edge_width=0.1",
     {{360, 27}, {360, 9}},
     "center=0,0 width=0.5 edge_width=0.15"},
    {"place of an ellipse", "ellipse", "center=0,0 width=0.5", {{366, 243}, {402, 279}}, "center=0.1,0.1 width=0.5"},
    {"offset",
     "ellipse",
     "center=0,0 width=0.5 offset=0.1,0",
     {{403, 250}, {439, 250}},
     "center=0,0 width=0.5 offset=0.2,0"},
    {"other side",
     "ellipse",
     "center=0.5,0 width=0.1 negate=0",
     {{180, 243}, {200, 243}},
     "center=0.5,0 width=0.1 negate=1"},
    {"star", "glint", "size=1", {{394.44f, 159.85f}, {411.66f, 118.28f}}, "size=1.5"},
    {"level ray", "glint", "size=1 size_x=1", {{450, 243}, {495, 243}}, "size=1 size_x=1.5"},
    {"level ray, by its other end",
     "glint",
     "size=1 size_x=1 size_y=1",
     {{360, 333}, {360, 378}},
     "size=1 size_x=1 size_y=1.5"},
    {"rising ray", "glint", "size=1 size_diag1=1", {{423.64f, 306.64f}, {455.46f, 338.46f}}, "size=1 size_diag1=1.5"},
    {"falling ray", "glint", "size=1 size_diag2=1", {{296.36f, 306.64f}, {264.54f, 338.46f}}, "size=1 size_diag2=1.5"},
    {"rays together", "glint", "size=1 size_xy=1,1", {{450, 333}, {495, 342}}, "size=1 size_xy=1.5,1.1"},
    {"red", "glint", "size=1 size_red=1", {{443.15f, 277.44f}, {484.72f, 294.66f}}, "size=1 size_red=1.5"},
    {"green", "glint", "size=1 size_green=1", {{394.44f, 326.15f}, {411.66f, 367.72f}}, "size=1 size_green=1.5"},
    {"blue", "glint", "size=1 size_blue=1", {{325.56f, 326.15f}, {308.34f, 367.72f}}, "size=1 size_blue=1.5"},
    {"alpha", "glint", "size=1 size_alpha=1", {{276.85f, 277.44f}, {235.28f, 294.66f}}, "size=1 size_alpha=1.5"},
    {"place of a star", "glint", "size=1 center=0,0", {{364, 243}, {400, 243}}, "size=1 center=0.1,0"},
    {"corner of the frame",
     "rect",
     "center=0,0 z_dist=2 rotate=0 shift=0,0",
     {{540, 364.5f}, {720, 486}},
     "center=0,0 z_dist=1 rotate=0 shift=0,0"},
    {"turn of the frame",
     "rect",
     "center=0,0 z_dist=2 rotate=0 shift=0,0",
     {{573, 243}, {360, 456}},
     "center=0,0 z_dist=2 rotate=0.25 shift=0,0"},
    {"shift",
     "rect",
     "center=0,0 z_dist=2 rotate=0.5 shift=0,0",
     {{400, 121.5f}, {436, 139.5f}},
     "center=0,0 z_dist=2 rotate=0.5 shift=0.1,0.05"},
    {"pivot", "rect", "center=0,0 z_dist=2 shift=0.1,0", {{360, 250}, {396, 250}}, "center=0.1,0 z_dist=2 shift=0.1,0"},
    {"shift before the turn",
     "rectshift",
     "center=0,0 z_dist=2 rotate=0.25 shift=0,0",
     {{481.5f, 200}, {481.5f, 236}},
     "center=0,0 z_dist=2 rotate=0.25 shift=0.2,0"},
    {"corner", "rect_c_sz", "center=0,0 size=1,0.5", {{544, 337}, {580, 355}}, "center=0,0 size=1.2,0.6"},
    {"opposite corner", "rect_c_sz", "center=0,0 size=1,0.5", {{176, 149}, {140, 131}}, "center=0,0 size=1.2,0.6"},
    {"side", "rect_c_sz", "center=0,0 size=1,0.5", {{540, 243}, {576, 300}}, "center=0,0 size=1.2,0.5"},
    {"side of a square", "rect_c_sz", "center=0,0 size=0.5", {{450, 200}, {486, 200}}, "center=0,0 size=0.7"},
    {"turn of a rectangle",
     "rect_c_sz",
     "center=0,0 size=1,0.5 angle=0",
     {{573, 243}, {360, 456}},
     "center=0,0 size=1,0.5 angle=0.25"},
    {"scale",
     "rect_c_sz",
     "center=0,0 size=0.5,0.5 scale=1",
     {{474, 357}, {588, 471}},
     "center=0,0 size=0.5,0.5 scale=2"},
    {"share of the height",
     "rect_c_sz",
     "center=0,0 size=0.5,0.5 scale_rel=1,1",
     {{360, 333}, {360, 378}},
     "center=0,0 size=0.5,0.5 scale_rel=1,1.5"},
    {"place of a rectangle",
     "rect_c_sz",
     "center=0,0 size=0.5,0.5",
     {{366, 243}, {402, 243}},
     "center=0.1,0 size=0.5,0.5"},
    {"offset of a rectangle",
     "rect_c_sz",
     "center=0,0 size=0.5,0.5 offset=0,0",
     {{367, 250}, {403, 250}},
     "center=0,0 size=0.5,0.5 offset=0.1,0"},
    {"other side of a rectangle",
     "rect_c_sz",
     "center=0.5,0 size=0.2,0.2 negate=1",
     {{540, 243}, {520, 243}},
     "center=0.5,0 size=0.2,0.2 negate=0"},
    {"corner of a frame",
     "simple_rect",
     "left_bottom=-0.5,-0.5 right_top=0.5,0.5",
     {{176, 59}, {212, 59}},
     "left_bottom=-0.4,-0.5 right_top=0.5,0.5"},
    {"edge of a frame",
     "simple_rect",
     "left_bottom=-0.5,-0.5 right_top=0.5,0.5",
     {{540, 200}, {576, 300}},
     "left_bottom=-0.5,-0.5 right_top=0.6,0.5"},
    {"edges stay apart",
     "simple_rect",
     "left_bottom=-0.5,-0.5 right_top=0.5,0.5",
     {{540, 200}, {90, 200}},
     "left_bottom=-0.5,-0.5 right_top=-0.497,0.5"},
    {"whole frame",
     "simple_rect",
     "left_bottom=-0.5,-0.5 right_top=0.5,0.5",
     {{366, 243}, {402, 279}},
     "left_bottom=-0.4,-0.4 right_top=0.6,0.6"},
    {"slice",
     "timeslice",
     "angle=0 slice_width=0.25 offset=1",
     {{450, 100}, {495, 100}},
     "angle=0 slice_width=0.25 offset=1.5"},
    {"width of a slice",
     "timeslice",
     "angle=0 slice_width=0.25 offset=1",
     {{540, 100}, {585, 100}},
     "angle=0 slice_width=0.375 offset=0.667"},
    {"the slice before",
     "timeslice",
     "angle=0 slice_width=0.25 offset=1",
     {{360, 100}, {315, 100}},
     "angle=0 slice_width=0.375 offset=0.667"},
    {"turn of slices",
     "timeslice",
     "angle=0 slice_width=0.25 offset=0",
     {{366, 388.8f}, {214.2f, 249}},
     "angle=0.25 slice_width=0.25 offset=0"},
    {"offset alone", "timeslice", "offset=0.25", {{450, 100}, {486, 100}}, "offset=0.35"},
    {"wipe", "wipe", "wipe_amount=0.5 grad_angle=0", {{360, 100}, {432, 100}}, "wipe_amount=0.6 grad_angle=0"},
    {"wipe in percent", "wipe", "mix_percent=50", {{360, 100}, {432, 100}}, "mix_percent=60"},
    {"wipe upwards",
     "wipe",
     "wipe_amount=0.5 grad_angle=0.25",
     {{100, 243}, {100, 291.6f}},
     "wipe_amount=0.6 grad_angle=0.25"},
    {"softness",
     "wipe",
     "wipe_amount=0.5 edge_softness=0.2",
     {{396, 100}, {414, 100}},
     "wipe_amount=0.5 edge_softness=0.3"},
    {"softness, other side",
     "wipe",
     "wipe_amount=0.5 edge_softness=0.2",
     {{324, 100}, {306, 100}},
     "wipe_amount=0.5 edge_softness=0.3"},
    {"no softness yet",
     "wipe",
     "wipe_amount=0.5 edge_softness=0",
     {{360, 315.9f}, {378, 315.9f}},
     "wipe_amount=0.5 edge_softness=0.1"},
    {"border",
     "wipe",
     "wipe_amount=0.5 border_width=0.2",
     {{396, 100}, {414, 100}},
     "wipe_amount=0.5 border_width=0.3"},
    {"what is added",
     "wipe",
     "wipe_amount=0.5 grad_add=0.25",
     {{540, 200}, {612, 200}},
     "wipe_amount=0.5 grad_add=0.35"},
    {"turn of a wipe",
     "wipe",
     "wipe_amount=0.5 grad_angle=0",
     {{366, 400.95f}, {202.05f, 249}},
     "wipe_amount=0.5 grad_angle=0.25"},
    {"runs by itself",
     "wipe",
     "wipe_amount=0.5 auto_trans=0",
     {{340.8f, 93.05f}, {370, 93.05f}},
     "wipe_amount=0.5 auto_trans=1"},
    {"runs no longer",
     "wipe",
     "wipe_amount=0.5 auto_trans=1",
     {{379.2f, 93.05f}, {340, 93.05f}},
     "wipe_amount=0.5 auto_trans=0"},
};

TEST_F(Widgets, EveryDragMovesItsParamsAloneAndIsOneUndo) {
    for (const DragRow& row : drag_rows) {
        SCOPED_TRACE(std::string(row.type) + ", " + row.what);
        Genotype* const effect = add_handle("E", row.type, row.parts);
        show(0);
        EXPECT_EQ(reported, std::vector<std::string>());
        ASSERT_EQ(handles(effect)->widgets.size(), 1u);
        const std::string before = values(effect);
        drag(row.way);
        EXPECT_EQ(values(effect), row.then);
        // Another drag, away and back, and whatever it does is a step of its own.
        const std::string between = values(effect);
        drag({row.way.back(), row.way.front() + Point{3, 2}});
        undo_list_undo(get_undo_list(effect));
        EXPECT_TRUE(values(effect) == between || values(effect) == before);
        if (values(effect) == between) {
            EXPECT_EQ(undo_list_undo(get_undo_list(effect)), 1);
            EXPECT_EQ(values(effect), before);
        }
        forget_effects();
    }
}

// The same with every place and way counted in pixels, for the kinds whose params may be declared so.
TEST_F(Widgets, PlacesCountAsTheParamsDoThatTheyStandFor) {
    const struct {
        const char* what;
        int mode;
        const char *type, *parts;
        Point from, to;
        const char* then;
    } rows[] = {
        {"from the corner", screen_screen, "center", "center=100,200", {100, 200}, {110, 205}, "center=110,205"},
        {"from the middle", screen_center, "center", "center=100,200", {100, 200}, {110, 205}, "center=110,205"},
        {"about the middle", screen_center0, "center", "center=10,20", {370, 263}, {380, 268}, "center=20,25"},
        {"coordinates", screen_to_norm, "center", "center=0,0", {360, 243}, {396, 243}, "center=0.1,0"},
        {"coordinates, centred", screen_center_to_norm, "center", "center=0,0", {360, 243}, {396, 243}, "center=0.1,0"},
        {"as they stand", screen_normalize, "center", "center=0,0", {360, 243}, {396, 279}, "center=0.1,0.1"},
        {"radius in pixels", screen_x, "radius", "radius=100", {460, 243}, {480, 243}, "radius=120"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Genotype* const effect = add_handle("E", row.type, row.parts, row.mode);
        show(0);
        drag({row.from, row.to});
        EXPECT_EQ(values(effect), row.then);
        forget_effects();
    }
    // Degrees that a text makes of turns.
    Genotype* const effect = add_handle("E", "angle", "rotate=0");
    effect->params[0]->scale_flags = screen_normalize_scale;
    effect->params[0]->normalize_scale = 360;
    show(0);
    drag({{460, 243}, {360, 343}});
    EXPECT_EQ(values(effect), "rotate=90");
    forget_effects();
    // Pixels that are wider than high: what is round is flat in them, a quarter is a quarter.
    the_frame->pixel_aspect_ratio = 2;
    Genotype* const wide = add_handle("E", "center_radius", "center=0,0 radius=0.5");
    show(0);
    drag({{360, 243 + 90}, {360, 243 + 108}});
    EXPECT_EQ(values(wide), "center=0,0 radius=0.6");
}

TEST_F(Widgets, APenNeedsToComeWithinSixPixelsOfTheWindow) {
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    show(0);
    handles(effect)->dispatch_move_event(0, 0);
    for (const float z : {0.25f, 1.0f, 4.0f}) {
        zoom = z;
        // The cross reaches 25 pixels of the window to the right.
        EXPECT_EQ(pen(360 + 30 / z, 243, false), 1) << z;
        EXPECT_EQ(pen(360 + 32.5f / z, 243, false), 0) << z;
        EXPECT_EQ(pen(360 + 20 / z, 243 + 5.5f / z, false), 1) << z;
        EXPECT_EQ(pen(360 + 20 / z, 243 + 6.5f / z, false), 0) << z;
    }
}

TEST_F(Widgets, TheAnswerToAPenSaysWhatItMet) {
    using namespace widgets;
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    show(0);
    WidgetDispatcher& d = *handles(effect);
    setup_view(&info, 1, 1);
    EXPECT_EQ(d.dispatch_mouse_event(10, 10, false), 0);
    EXPECT_EQ(d.dispatch_mouse_event(360, 243, false), event_over | event_active | event_changed) << "a new one";
    EXPECT_STREQ(d.get_current_widget_name(), "Center");
    EXPECT_EQ(d.dispatch_mouse_event(361, 243, false), event_over | event_active);
    EXPECT_EQ(d.dispatch_mouse_event(361, 243, true), event_over | event_active | event_press | event_changed);
    EXPECT_EQ(d.widgets[0]->active_region, 0);
    EXPECT_EQ(d.dispatch_mouse_event(371, 243, true), event_over | event_drag | event_changed);
    const std::string moved = values(effect);
    effect->params[0]->value[0] = 0;  // the pen stands: nobody asks where it is
    at->floats[effect->params[0]->buttons[0] + BUTTON_BASE].Value = 0;
    d.dispatch_mouse_event(371, 243, true);
    EXPECT_EQ(values(effect), "center=0,0");
    EXPECT_EQ(d.dispatch_mouse_event(381, 243, false), event_over | event_release | event_changed);
    EXPECT_EQ(values(effect), "center=0.056,0") << "the release comes after a last drag";
    EXPECT_EQ(d.widgets[0]->active_region, -1);
    EXPECT_EQ(d.dispatch_mouse_event(10, 10, false), event_active | event_changed) << "left";
    EXPECT_EQ(d.widgets[0]->hilite_region, -1);
    // A pen that came down beside it takes nothing on its way.
    EXPECT_EQ(d.dispatch_mouse_event(10, 10, true), event_changed);
    EXPECT_EQ(d.dispatch_mouse_event(380, 243, true), 0);
    EXPECT_EQ(d.dispatch_mouse_event(390, 243, false) & event_kind_mask, 0);
    EXPECT_EQ(values(effect), "center=0.056,0");
    disable_dispatcher(&d);
    EXPECT_EQ(d.dispatch_mouse_event(380, 243, false), 0);
    EXPECT_EQ(d.dispatch_mouse_event(380, 243, true), 0);
    enable_dispatcher(&d);
    EXPECT_EQ(moved, "center=0.028,0");
}

TEST_F(Widgets, ADragIsTheRecordsAndAsksForAPicture) {
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    show(0);
    EXPECT_TRUE(any_widgets_enabled_p());
    EXPECT_EQ(pen(360, 243, false), 1);
    need_process = 0;
    EXPECT_EQ(pen(360, 243, true), 1);
    EXPECT_EQ(record.dragging, 0);
    EXPECT_EQ(pen(400, 243, true), 1);
    EXPECT_EQ(record.dragging, 2);
    EXPECT_EQ(need_process, 1);
    const int draws = host.viewer_draws;
    EXPECT_EQ(pen(410, 243, true), 1);
    EXPECT_EQ(host.viewer_draws, draws + 1) << "once for each event";
    EXPECT_EQ(pen(410, 243, false), 1);
    EXPECT_EQ(record.dragging, 0);
    EXPECT_EQ(plugin.panel.controls.at(effect->params[0]->buttons[0] + BUTTON_BASE).updates > 0, true);
    EXPECT_NEAR(at->floats[effect->params[0]->buttons[0] + BUTTON_BASE].Value, 50.0f / 360, 1e-4);
    // A value that is typed moves the handle.
    at->floats[effect->params[0]->buttons[0] + BUTTON_BASE].Value = -0.5f;
    EXPECT_EQ(pen(180, 243, false), 1);
    EXPECT_EQ(pen(410, 243, false), 0);
}

TEST_F(Widgets, AHandleThatIsSwitchedOffIsNeitherHitNorDrawn) {
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    Genotype* const other = add_handle("F", "center", "center=0,0");
    for (Genotype* const g : {effect, other}) g->params[0]->widget_list->enable_index = 45;
    show(0);
    // Two effects that name the same button have one switch.
    Param* const enable = effect->widgets->widgets[0].enable_param;
    EXPECT_EQ(enable, other->widgets->widgets[0].enable_param);
    EXPECT_EQ(handles(effect)->widgets[0]->enable_param, enable);
    EXPECT_EQ(handles(other)->widgets[0]->enable_param, enable);
    for (const Genotype* const shown : {effect, other}) {
        const int index = shown == effect ? 0 : 1;
        record.selected_effect = record.shown_effect = static_cast<int16_t>(index);
        record.effect_genotype = record.genotypes[index];
        setup_effect_buttons(index, 0);
        for (const unsigned char on : {1, 0}) {
            at->toggles[45].Value = on;
            EXPECT_EQ(pen(360, 243, false), on);
            pen(0, 0, false);
            EXPECT_EQ(any_widgets_enabled_p(), on != 0);
            DrawnLines drawn;
            redraw(shown);
            EXPECT_EQ(drawn.lines.empty(), on == 0);
            EXPECT_EQ(drawn.depth, 0);
        }
        at->toggles[45].Value = 1;
    }
}

TEST_F(Widgets, TheCropAndTheEffectShareAPen) {
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    show(0);
    set_crop_and_button_defaults(720, 486);
    set_crop_bounds(720, 486);
    const auto set_global = [&](int index, float v) { global_param_set_value(index, v); };
    set_global(global_crop_left, 300);
    set_global(global_crop_right, 420);
    set_global(global_crop_bottom, 200);
    set_global(global_crop_top, 286);
    set_global(global_crop_view, 1);
    ASSERT_NE(record.crop_widgets, nullptr);
    const auto crop = [&] {
        std::string text;
        for (const int index : {global_crop_left, global_crop_bottom, global_crop_right, global_crop_top})
            text += std::to_string(static_cast<int>(global_param_get_value(index))) + " ";
        return text;
    };
    // Both have something in the middle: the effect's comes first.
    drag({{360, 243}, {370, 243}});
    EXPECT_EQ(crop(), "300 200 420 286 ");
    EXPECT_EQ(values(effect), "center=0.028,0");
    undo_list_undo(get_undo_list(effect));
    // Who has the pen keeps it, also over the other.
    drag({{300, 260}, {360, 243}, {330, 243}});
    EXPECT_EQ(crop(), "330 200 420 286 ");
    EXPECT_EQ(values(effect), "center=0,0");
    drag({{420, 260}, {100, 260}});
    EXPECT_EQ(crop(), "330 200 331 286 ") << "a pixel is left";
    undo_list_undo(get_undo_list(effect));
    EXPECT_EQ(crop(), "330 200 420 286 ");
    undo_list_undo(get_undo_list(effect));
    EXPECT_EQ(crop(), "300 200 420 286 ");
    // All of it is moved as one and stops at the frame.
    effect->widgets->widgets[0].enable_param->value[0] = 0;
    at->toggles[effect->widgets->widgets[0].enable_param->first_button + BUTTON_BASE].Value = 0;
    drag({{360, 243}, {0, 0}});
    EXPECT_EQ(crop(), "0 0 120 86 ");
    set_global(global_crop_view, 0);
    EXPECT_EQ(pen(60, 43, false), 0);
}

TEST_F(Widgets, WhatIsDrawnTellsStates) {
    Genotype* const effect = add_handle("E", "radius", "radius=0.5");
    show(0);
    const auto count = [&](auto test) {
        DrawnLines drawn;
        redraw(effect);
        EXPECT_EQ(drawn.depth, 0);
        EXPECT_EQ(drawn.flushes, 1);
        return std::count_if(drawn.lines.begin(), drawn.lines.end(), test);
    };
    const auto yellow = [](const DrawnLine& l) { return l.r == 1 && l.g == 1 && l.b < 0.5f; };
    const auto dashed = [](const DrawnLine& l) { return l.dashed && l.r == 1 && l.g < 0.5f; };
    const auto wide = [&](const DrawnLine& l) { return yellow(l) && l.width >= 2; };
    EXPECT_EQ(count(yellow), 0);
    pen(540, 243, false);
    EXPECT_GT(count(wide), 0) << "under the pen it is thicker, too";
    EXPECT_EQ(count(dashed), 0);
    pen(540, 243, true);
    EXPECT_GT(count(dashed), 0);
    EXPECT_GT(count([&](const DrawnLine& l) { return yellow(l) && l.width >= 3; }), 0);
    pen(540, 243, false);
    EXPECT_EQ(count(dashed), 0);
    pen(0, 0, false);
    EXPECT_EQ(count(yellow), 0);
}

TEST_F(Widgets, DrawingGoesThroughTheView) {
    Genotype* const effect = add_handle("E", "center_radius", "center=0.5,0 radius=0.25");
    show(0);
    info.ViewerX = 100;
    info.ViewerY = 40;
    zoom = 2;
    DrawnLines drawn;
    redraw(effect, 1.5f);
    // The centre is at (540, 243), the rim 90 pixels away.
    const float x = 100 + 540 * 3, y = 40 + 243 * 2;
    EXPECT_LT(drawn.nearest(x + 90 * 3, y), 1.5f);
    EXPECT_LT(drawn.nearest(x, y - 90 * 2), 1.5f);
    EXPECT_LT(drawn.nearest(x + 12, y), 0.01f) << "the cross keeps its size";
    EXPECT_GT(drawn.nearest(x + 40, y), 20);
    // Whatever the values, what reaches the driver is bounded.
    effect->params[0]->value[0] = at->floats[effect->params[0]->buttons[0] + BUTTON_BASE].Value = 1e6f;
    effect->params[1]->value[0] = at->floats[effect->params[1]->buttons[0] + BUTTON_BASE].Value = 1e6f;
    DrawnLines huge;
    redraw(effect);
    for (const DrawnLine& l : huge.lines)
        for (const float v : {l.x0, l.y0, l.x1, l.y1}) ASSERT_LE(std::fabs(v), 2 * 16383.0f);
}

// The lines of a drawing as text: a letter covers 10 by 20 pixels, # where a line passes.
using Shape = std::vector<std::string>;

Shape shape_of(const DrawnLines& drawn) {
    Shape shape(25, std::string(72, '.'));
    for (const DrawnLine& l : drawn.lines) {
        const int steps = 1 + static_cast<int>(std::hypot(l.x1 - l.x0, l.y1 - l.y0));
        for (int i = 0; i <= steps; ++i) {
            const float t = static_cast<float>(i) / static_cast<float>(steps);
            const int column = static_cast<int>(std::floor((l.x0 + t * (l.x1 - l.x0)) / 10));
            const int row = 24 - static_cast<int>(std::floor((l.y0 + t * (l.y1 - l.y0)) / 20));
            if (column >= 0 && column < 72 && row >= 0 && row < 25)
                shape[static_cast<size_t>(row)][static_cast<size_t>(column)] = '#';
        }
    }
    return shape;
}

// Every # of one has one of the other beside it.
bool near_all(const Shape& a, const Shape& b) {
    const auto at = [&](int row, int column) {
        return row >= 0 && row < static_cast<int>(b.size()) && column >= 0 &&
               column < static_cast<int>(b[static_cast<size_t>(row)].size()) &&
               b[static_cast<size_t>(row)][static_cast<size_t>(column)] == '#';
    };
    for (int row = 0; row < static_cast<int>(a.size()); ++row)
        for (int column = 0; column < static_cast<int>(a[static_cast<size_t>(row)].size()); ++column) {
            if (a[static_cast<size_t>(row)][static_cast<size_t>(column)] != '#') continue;
            bool found = false;
            for (int i = 0; i < 9; ++i) found = found || at(row + i / 3 - 1, column + i % 3 - 1);
            if (!found) return false;
        }
    return true;
}

TEST_F(Widgets, EveryKindHasTheShapeThatIsKept) {
    static constexpr const char* kinds[][2] = {
        {"center", "center=-0.3,0.2"},
        {"center_radius", "center=0.1,0 radius=0.5"},
        {"radius", "radius=0.4"},
        {"angle", "angle=0.1 center=0,0 stretch=1.5,1"},
        {"ellipse", "center=0,0 width=0.6 rel_height=0.5 rotate=0.05 edge_width=0.2 offset=0.1,0"},
        {"glint", "size=1.6 size_x=1 size_y=0.8 size_diag1=0.6 size_diag2=0.6 size_red=1.3 size_blue=0.7 center=0,0"},
        {"rect", "center=0,0 z_dist=1.5 rotate=0.05 shift=0.1,0"},
        {"rectshift", "center=0,0 z_dist=1.5 rotate=0.05 shift=0.1,0.3"},
        {"rect_c_sz", "center=0.2,0.1 size=0.8,0.5 angle=-0.05 scale=1 scale_rel=1,1 negate=0"},
        {"simple_rect", "left_bottom=-0.6,-0.4 right_top=0.5,0.3"},
        {"timeslice", "angle=0.05 slice_width=0.3 offset=0.5"},
        {"wipe", "wipe_amount=0.4 grad_angle=0.03 edge_softness=0.3 border_width=0.1 grad_add=0.2 autotrans_p=0"},
    };
    std::ifstream file(HANDLE_SHAPES);
    ASSERT_TRUE(file);
    for (const auto& [kind, parts] : kinds) {
        Genotype* const effect = add_handle("E", kind, parts);
        show(0);
        DrawnLines drawn;
        redraw(effect);
        const Shape shape = shape_of(drawn);
        Shape kept;
        std::string line, text;
        ASSERT_TRUE(std::getline(file, line)) << kind;
        EXPECT_EQ(line, kind);
        for (size_t i = 0; i < shape.size() && std::getline(file, line); ++i) kept.push_back(line);
        for (const std::string& row : shape) text += row + "\n";
        EXPECT_TRUE(near_all(shape, kept) && near_all(kept, shape)) << kind << " is drawn as\n" << text;
        forget_effects();
    }
}

TEST_F(Widgets, HostsAnswersThatAreNoRatioDoNoHarm) {
    Genotype* const effect = add_handle("E", "center", "center=0,0");
    show(0);
    host.pixel_ratio = 2;
    for (const float bad : {0.0f, -1.0f, NAN, INFINITY}) {
        DrawnLines drawn;
        redraw(effect, bad);
        EXPECT_LT(drawn.nearest(720 + 12, 243), 0.01f) << "the footage's pixels stand in";
    }
    for (const float bad : {0.0f, NAN, INFINITY, 1e30f}) {
        zoom = bad;
        DrawnLines drawn;
        redraw(effect);
        pen(360, 243, false);
        pen(NAN, INFINITY, true);
        pen(1e30f, 3, true);
        pen(1, 1, false);
    }
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(std::isfinite(effect->params[0]->value[i]));
}

TEST_F(Widgets, GlyphsAreHitWhereTheyAreDrawnAndNowhereElse) {
    widgets::setup_view(&info, 1, 1);
    std::set<std::string> names;
    for (const Glyph* const shape : widgets::all_glyphs()) {
        SCOPED_TRACE(shape->name);
        names.insert(shape->name);
        Glyph glyph = *shape;
        glyph.transform = {};
        glyph.transform.translate(300, 200);
        glyph.transform.rotate(0.15f);
        glyph.transform.scale(80, 80);
        DrawnLines drawn;
        ASSERT_TRUE(widgets::gfx_begin_overlay());
        widgets::gfx_xform_stack_reset();
        glyph.draw();
        widgets::gfx_end_overlay();
        ASSERT_FALSE(drawn.lines.empty());
        int hits = 0;
        for (float x = 180; x < 420; x += 3) {
            for (float y = 80; y < 320; y += 3) {
                const float far = drawn.nearest(x, y);
                if (std::fabs(far - widgets::hit_pixels) < 1.5f) continue;
                EXPECT_EQ(glyph.hit_p(x, y), far < widgets::hit_pixels) << x << " " << y << " is " << far << " away";
                hits += far < widgets::hit_pixels;
            }
        }
        EXPECT_GT(hits, 10);
        // A map that is flat, or none, is never hit.
        glyph.transform.scale(1, 0);
        EXPECT_FALSE(glyph.hit_p(300, 200));
        glyph.transform = {{NAN, 0, 0, 1, 0, 0}};
        EXPECT_FALSE(glyph.hit_p(0, 0));
    }
    EXPECT_EQ(names.size(), widgets::all_glyphs().size());
}

TEST_F(Widgets, TheStackOfMapsIsBounded) {
    widgets::gfx_xform_stack_reset();
    widgets::gfx_translate(3, 4);
    for (int i = 1; i < widgets::xform_stack_size; ++i) widgets::gfx_xform_stack_push();
    EXPECT_TRUE(reported.empty());
    widgets::gfx_scale(2, 2);
    widgets::gfx_xform_stack_push();
    EXPECT_EQ(reported, std::vector<std::string>{"8 gfx_xform_stack_push: stack is full (8 entries)."});
    const Point p = widgets::gfx_top()({1, 1});
    EXPECT_EQ(p.x, 5);
    EXPECT_EQ(p.y, 6);
    reported.clear();
    for (int i = 1; i < widgets::xform_stack_size; ++i) widgets::gfx_xform_stack_pop();
    EXPECT_EQ(widgets::gfx_top()({1, 1}).x, 4);
    EXPECT_TRUE(reported.empty());
    widgets::gfx_xform_stack_pop();
    EXPECT_EQ(reported, std::vector<std::string>{"8 gfx_xform_stack_pop: stack is empty."});
    EXPECT_EQ(widgets::gfx_top()({1, 1}).x, 4);
}

TEST_F(Widgets, AGlyphNamesTheShapeOfACentre) {
    const auto drawn_shape = [&](const char* name) {
        Genotype* const effect = add_handle("E", "center", "center=0,0");
        effect->params[0]->widget_list->glyph_name = safe_strdup(name);
        show(0);
        DrawnLines drawn;
        redraw(effect);
        const size_t n = drawn.lines.size();
        forget_effects();
        return n;
    };
    EXPECT_EQ(drawn_shape("single_hline"), 2u);  // with its rim
    EXPECT_EQ(drawn_shape("simple_cross"), 4u);
    EXPECT_EQ(drawn_shape("star8"), 8u);
    EXPECT_GT(drawn_shape("cross_circle_red"), 20u);
    EXPECT_TRUE(reported.empty());
    EXPECT_EQ(drawn_shape("blob"), 0u);
    EXPECT_EQ(reported, std::vector<std::string>{"8 Unknown center widget type blob"});
}

// Clauses as "TYPE.PART" and words: #N a number, name=, on, off, here, use=PARAM, at=BUTTON. Each is of a param a, b,
// ...
void add_clauses(Genotype* effect, const std::string& text, Param* (*add)(Genotype*, const char*)) {
    std::istringstream clauses(text);
    char name[2] = "a";
    for (std::string line; std::getline(clauses, line, ';'); ++name[0]) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        const size_t point = word.find('.');
        auto* const data = safe_new_zeroed<ParamWidgetData>();
        data->widget_type = safe_strdup(word.substr(0, point).c_str());
        data->part_name = safe_strdup(word.substr(point + 1).c_str());
        data->default_on = data->enable_index = -1;
        data->number = -1;
        while (words >> word) {
            const std::string value = word.substr(word.find('=') + 1);
            if (word[0] == '#') data->number = std::stoi(word.substr(1));
            if (word.rfind("name=", 0) == 0) data->widget_name = safe_strdup(value.c_str());
            if (word.rfind("use=", 0) == 0) data->enable_param_name = safe_strdup(value.c_str());
            if (word.rfind("at=", 0) == 0) data->enable_index = static_cast<int8_t>(std::stoi(value));
            if (word == "on" || word == "off") data->default_on = word == "on";
            data->enable_here |= word == "here";
        }
        add(effect, name)->widget_list = data;
    }
}

TEST_F(Widgets, ConflictsOfDeclarationsAreTold) {
    const struct {
        const char *clauses, *message;
        size_t handles;
    } rows[] = {
        {"centre.center", "8 No such widget type name as centre", 0},
        {"center.middle", "8 Bad part name middle for center widget ", 0},
        {"center_radius.radius", "8 E.a widget: No base type for radius\n", 0},
        {"center_radius.radius #3",
         "8 E: missing part center, so can't get widget name for type 'center_radius' (base type center).\n  Found the "
         "following parts: a",
         1},
        {"ellipse.center name=A; ellipse.width name=B", "8 Already saw widget 0 name A, b wants to call it B.\n", 1},
        {"ellipse.center on; ellipse.width off", "8 Conflicting default_on_p settings for b (ellipse)", 1},
        {"center.center #1; center_radius.radius #1",
         "8 Mismatched widget type names for center vs center_radius, seen while looking at part radius in param b; "
         "may "
         "be instance numbering problem?",
         0},
        {"center.center #1; center.center",
         "8 Mixing instance-number and non-numbered widgets in same plugin, part center of E has no instance (param b)",
         2},
        {"center.center; center.center #1",
         "8 Mixing instance-number and non-numbered widgets in same plugin, part center of E says instance 1 (param b)",
         2},
        {"ellipse.center here; ellipse.width here",
         "8 widget 0 (ellipse) already has a wenable_here on a; can't add it to b", 1},
        {"ellipse.center use=a; ellipse.width use=b",
         "8 widget 0 (ellipse) already has other enable name a; param b says b.\n", 1},
        {"ellipse.center name=Oval at=40; ellipse.width at=41",
         "7 Duplicate non-matching wenable buttons for 'Oval': 40 vs 41 on part width of widget ellipse", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.clauses);
        Genotype* const effect = add_effect("E");
        add_clauses(effect, row.clauses, [](Genotype* g, const char* name) { return add_param(g, param_float, name); });
        show(0);
        ASSERT_FALSE(reported.empty());
        std::string first = reported[0];
        std::string wanted = row.message;
        for (std::string* text : {&first, &wanted}) text->erase(text->find_last_not_of(" \n") + 1);
        EXPECT_EQ(first, wanted);
        EXPECT_EQ(handles(effect)->widgets.size(), row.handles);
        drag({{360, 243}, {400, 260}});  // what is left works
        forget_effects();
        reported.clear();
    }
}

}  // namespace
}  // namespace velloran
