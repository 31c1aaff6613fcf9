// The state of a host, all of it settable, so that a program or a test can be any host it likes. The spark functions of
// spark/spark.h answer from the host in force.
#pragma once

#include "spark/spark.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace spark_host {

struct Plugin;

struct FrameFormat {
    int width = 720, height = 486;
    int depth = SPARK_DEPTH_8;

    long pixels() const { return static_cast<long>(width) * height; }
    long bytes() const { return pixels() * 3 * (depth == SPARK_DEPTH_8 ? 1 : 2); }
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
    int processors = 1;
    int memory_buffers = 64;       // frame-sized buffers that may be registered in all
    bool explicit_buffers = true;  // false: plug-ins get FrameBuffers
    int spare_buffers = 0;         // entries of FrameBuffers behind the destination
    int quality = 1;

    // The footage.
    FrameFormat format;
    float pixel_ratio = 1;
    int total_frames = 1;
    int frame = 0;  // frame in hand, from 0
    float frame_rate = 30;
    float viewer_ratio = 1;
    int scan_format = 0;
    bool info_known = true;  // what sparkGetInfo answers

    // The user.
    Pen pen;
    std::vector<std::string> errors, messages;  // everything reported, in order
    std::function<void(const std::string&)> on_error, on_message;
    std::function<Pen()> read_pen;  // replaces pen where set
    int busy_cursors = 0, viewing_cursor = 0, viewer_draws = 0, overlays_drawn = 0;
    bool truncated = false;  // the plug-in ended the run of frames

    Plugin* plugin = nullptr;  // the plug-in being called; null outside calls
};

// The host in force; a default one until use_host says otherwise.
Host& host();
// Puts a host in force and answers the one before; null stands for the default one. Host's thread only.
Host* use_host(Host* host);

// What a call for the frame in hand would be about.
SparkInfoStruct current_info(const Host& host);

}  // namespace spark_host
