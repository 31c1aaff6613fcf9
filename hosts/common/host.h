// The state of a host, all of it settable, so that a program or a test can be any host it likes. The spark functions of
// spark/spark.h answer from the host in force and from the plug-in that is being called.
#pragma once

#include "spark/spark.h"

#include <functional>
#include <string>
#include <vector>

namespace spark_host {

struct Plugin;

struct FrameFormat {
    int width = 720, height = 486;
    int depth = SPARK_DEPTH_8;

    long pixels() const { return static_cast<long>(width) * height; }
    int sample_bytes() const { return depth == SPARK_DEPTH_8 ? 1 : 2; }
    long bytes() const { return pixels() * 3 * sample_bytes(); }
    bool operator==(const FrameFormat&) const = default;
};

struct Pen {
    float x = 0, y = 0;  // pixels of the full frame, from the bottom left
    float pressure = 0;  // above 0: down
};

struct Host {
    // What the host is.
    float api_version = 4.039f;
    std::string program_name = "velloran";
    int calling_env = SPARK_ENV_DESKTOP;
    int processors = 1;            // 1 to 64
    int memory_buffers = 64;       // frame-sized buffers that plug-ins may register in all
    bool explicit_buffers = true;  // false: plug-ins get FrameBuffers
    int spare_buffers = 8;         // entries of FrameBuffers behind the destination
    int quality = 1;

    // The footage. The format must stay as it is while a plug-in runs.
    FrameFormat format;
    float pixel_ratio = 1;  // width of a pixel over its height, 0 unknown
    int total_frames = 1;
    int frame = 0;  // frame in hand, from 0
    float frame_rate = 30;
    float viewer_ratio = 1;
    int scan_format = 0;
    bool info_known = true;  // what sparkGetInfo answers

    // The user.
    Pen pen;
    std::function<Pen()> read_pen;              // replaces pen where set
    std::vector<std::string> errors, messages;  // the latest reports, in order
    std::function<void(const std::string&)> on_error, on_message;
    // Replaces what sparkViewingDraw does, for a viewer that is drawn later or elsewhere. Without it the overlay is
    // drawn at once where viewer says that an OpenGL viewer is current.
    std::function<void()> on_viewing_draw;
    bool viewer = false;
    float viewer_zoom = 1;           // as SparkOverlay's
    int viewer_x = 0, viewer_y = 0;  // where the frame's lower left corner stands in the viewer's window, from below
    int busy_cursors = 0, viewing_cursor = 0, viewer_draws = 0;
    bool truncated = false;  // the plug-in ended the run of frames
    // Since the call in hand began: a buffer could not be had, or the plug-in reported that it found no memory.
    bool memory_ran_out = false;

    // Looks at every answer of sparkMemGetBuffer and may change it; the result is the call's. For hosts that misbehave.
    std::function<int(int id, SparkMemBufStruct* buffer)> on_get_buffer;

    Plugin* plugin = nullptr;   // the plug-in being called; null outside calls
    long registered_bytes = 0;  // by all plug-ins of this host
};

// The host in force; a default one until use_host says otherwise.
Host& host();
// Processors that this process may use, as far as there are tasks for them; and the buffers for frames of that format
// that half of the machine's memory holds.
int processors_here();
int memory_buffers_here(const FrameFormat& format);
// Puts a host in force and answers the one before; null stands for the default one. Host's thread only.
Host* use_host(Host* host);

// What a call for the frame in hand would be about.
SparkInfoStruct current_info(const Host& host);

// The number that tells a plug-in how many pixels of the window cover one of the frame: what SparkInteract and
// SparkOverlay take as zoom counts below 1 in another way.
inline float spark_zoom(float pixels) { return pixels >= 1 ? pixels : 2 - 1 / pixels; }

// True if plug-ins register buffers; hosts below API 2.502 never have them.
bool registers_buffers_p(const Host& host);

// Frame-sized buffers that may still be registered.
int free_buffers(const Host& host);

// Keeps a report and shows it. Only the latest few thousand are kept. Any task may call.
void report_error(Host& host, const std::string& text);
void report_message(Host& host, const std::string& text);

}  // namespace spark_host
