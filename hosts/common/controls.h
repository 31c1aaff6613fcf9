// The control panel of one plug-in as a host keeps it: names, values, curves, pages. The plug-in owns the control
// structures; this layer reads and writes their values.
#pragma once

#include "hosts/common/curve.h"
#include "spark/spark.h"

#include <map>
#include <string>
#include <vector>

namespace spark_host {

struct Control {
    int number = 0;
    SparkControlKind kind = SPARK_CONTROL_FLOAT;
    void* structure = nullptr;  // of the plug-in; null: a name was set before the control was known
    std::string name;           // by sparkSetControlName; empty: the structure's title stands
    std::string group;          // heading that it stands under, empty none
    bool enabled = true;
    int updates = 0;  // sparkControlUpdate calls
    Curve curves[3];  // animated where it has keys; a colour has red, green and blue (0 to 255), others the first
};

struct ControlPanel {
    std::map<int, Control> controls;  // by number
    std::map<int, std::string> page_titles, clip_titles;
};

// Takes over the list that a plug-in gave, keeping names and states set before.
void set_controls(ControlPanel& panel, const SparkControl* list, int count);

// The control, null if there is no structure for that number.
Control* find_control(ControlPanel& panel, int number);
const Control* find_control(const ControlPanel& panel, int number);

// Values without their kind: a colour has three channels of 0 to 255, a string none, anything else one.
int control_channels(const Control& control);
float control_value(const Control& control, int channel);
void set_control_value(Control& control, int channel, float value);

// Value of a channel at a frame of the timeline (from 1): the curve's, or what the control shows.
float value_at(const Control& control, int channel, float frame);

// Shows all curves at a frame in the structures.
void apply_curves(ControlPanel& panel, float frame);

// What a program shows: the pages in use, each with its controls in columns from the top left. A control that is out
// of use and has no name leaves its place empty.
struct ShownControl {
    int number = 0;
    SparkControlKind kind = SPARK_CONTROL_FLOAT;
    std::string name, value, group;
    bool enabled = true, animated = false;
};
struct ControlPage {
    int index = 0;
    std::string title;
    std::vector<std::vector<ShownControl>> columns;
};
std::vector<ControlPage> control_pages(const ControlPanel& panel);

const char* kind_word(SparkControlKind kind);
std::string control_title(const Control& control);
std::string value_text(const Control& control);

}  // namespace spark_host
