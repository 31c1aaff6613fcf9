#include "hosts/common/host.h"

namespace spark_host {
namespace {

Host default_host;
Host* host_in_force = &default_host;

}  // namespace

Host& host() { return *host_in_force; }

Host* use_host(Host* host) {
    Host* const before = host_in_force;
    host_in_force = host ? host : &default_host;
    return before;
}

SparkInfoStruct current_info(const Host& host) {
    SparkInfoStruct info = {};
    info.Name = "";
    info.FrameNo = static_cast<unsigned int>(host.frame);
    info.TotalFrameNo = host.total_frames;
    info.FrameWidth = host.format.width;
    info.FrameHeight = host.format.height;
    info.FrameDepth = host.format.depth;
    info.FrameBytes = host.format.bytes();
    info.FramePixels = host.format.pixels();
    info.FramePixelRatio = host.pixel_ratio;
    info.Quality = host.quality;
    info.Processors = static_cast<signed char>(host.processors);
    return info;
}

}  // namespace spark_host
