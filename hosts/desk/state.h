// What the engine's thread tells the window: plain values, copied from what the plug-in shows, so that no widget ever
// looks into a plug-in.
#pragma once

#include "spark/spark.h"

#include <QImage>
#include <QMetaType>
#include <QRect>
#include <QString>
#include <QStringList>

#include <compare>
#include <memory>
#include <string>
#include <vector>

namespace desk {

struct KeyState {
    float frame = 1;  // of the clip, whose first is 1
    float value = 0;
    bool smooth = false;
    bool held = false;  // until the next key

    bool operator==(const KeyState&) const = default;
};

// One control as the plug-in has laid it out.
struct ControlState {
    int number = 0;
    int page = 0, row = 0, column = 0;
    SparkControlKind kind = SPARK_CONTROL_FLOAT;
    bool caption = false;  // shows a name and no value
    bool button = false;   // acts when it is pressed and springs back
    bool enabled = true;
    bool standard = false;  // of every effect
    QString name, group, help;
    QString param;  // as the text or the command line names it
    int channels = 0;
    float values[3] = {0, 0, 0}, defaults[3] = {0, 0, 0};
    float min = -1e6f, max = 1e6f;  // values are held to them
    float low = 0, high = 0;        // what most people need; low == high: not told
    float step = 0.01f;
    int decimals = 2;
    QStringList entries;
    QString text;
    std::vector<KeyState> keys[3];

    // The same widget can show it.
    bool same_layout(const ControlState& other) const;
};

struct PanelState {
    std::vector<ControlState> controls;  // by number
    QStringList pages;                   // titles, by page
    int frame = 0;                       // whose values they are, from 0
};

// What is chosen from its picture: an effect as it comes, or with a look of its own or a setup of the person's.
struct Choice {
    std::string effect;  // as the command line takes it
    std::string look;    // its name, empty: none
    std::string setup;   // path of the file, empty: none

    auto operator<=>(const Choice&) const = default;
};

// A setting that comes along with an effect.
struct LookState {
    QString name, note;
};

// What is to be opened.
struct OpenRequest {
    std::string effect;               // as the command line takes it
    std::string text;                 // with edited: the definitions as they stand in the editor
    bool edited = false;              // effect is then "NAME.text" or "NAME.text:Effect", on disk or not
    std::vector<std::string> inputs;  // paths; missing and empty ones are black
    int length = 0;                   // frames of the clip where only stills are given; 0: one
    std::string setup;                // values to begin with, empty: the defaults
    std::string look, setup_file;     // whose values come next, a look of the effect or a file
    // Not empty: a picture that may say how it was made. Then its effect and values are opened with the inputs; else
    // all is opened as it stands here, with inputs_otherwise.
    std::string made;
    std::vector<std::string> inputs_otherwise;
    int frame = 0;
    bool restores = false;  // brings a known step back, and is no new one
    bool replaces = false;  // takes the place of the step before: a text while it is typed
};

// What a clip and an effect are, once they are open.
struct OpenState {
    OpenRequest request;
    QString effect;  // as the command line takes it
    QString plugin, name, note;
    QStringList inputs;       // names of the effect's
    QStringList input_paths;  // as given, "" where there is none
    int width = 0, height = 0, bits = 8;
    int first_frame = 1, frames = 1;
    float frame_rate = 24;
    float pixel_ratio = 1;
    bool from_text = false;
    QString text_path;
    QString definitions;  // the text that the effect is in
    std::vector<LookState> looks;
    std::string setup;
};

// The part of a frame that the viewer asked for, every step-th pixel of it.
struct PictureState {
    QImage result, input;
    QRect area;  // in pixels of the frame, from the top left
    int step = 1;
    int frame = 0;             // from 0
    int resolution = 1;        // 1: every pixel was made
    bool settled = false;      // nothing better comes by itself
    bool provisional = false;  // the effect builds on earlier frames, which were not made
    double seconds = 0;
    QString failure;  // not empty: there is no frame
    QImage handles;   // drawn over the viewer, in its own pixels; null: none
};

struct ProbeState {
    bool valid = false;
    int x = 0, y = 0;  // from the bottom left
    int white = 255;   // host code of white
    int result[3] = {0, 0, 0}, input[3] = {0, 0, 0};
    bool has_result = false, has_input = false;
};

// What the plug-in shows, as a setup's text, after an action that came to its end.
struct StepState {
    QString label;
    std::string setup;
};

struct TextMessageState {
    bool error = false;
    int line = 0, column = 0;
    QString text;
};

}  // namespace desk

Q_DECLARE_METATYPE(desk::Choice)
Q_DECLARE_METATYPE(desk::PanelState)
Q_DECLARE_METATYPE(desk::OpenState)
Q_DECLARE_METATYPE(desk::PictureState)
Q_DECLARE_METATYPE(desk::ProbeState)
Q_DECLARE_METATYPE(desk::StepState)
Q_DECLARE_METATYPE(std::vector<desk::TextMessageState>)
