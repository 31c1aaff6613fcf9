#include "hosts/common/host.h"

#include "hosts/common/plugin.h"
#include "hosts/common/task_pool.h"

#include <sched.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <mutex>

namespace spark_host {
namespace {

Host default_host;
Host* host_in_force = &default_host;

constexpr size_t max_reports = 4096;

std::mutex reports_mutex;  // worker tasks report errors too

void keep(Host& host, std::vector<std::string>& reports, const std::string& text) {
    host.memory_ran_out |= text.find("ran out of memory") != std::string::npos;
    if (reports.size() >= max_reports) reports.erase(reports.begin(), reports.begin() + max_reports / 2);
    reports.push_back(text);
}

}  // namespace

int processors_here() {
    cpu_set_t set;
    const int n = sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 1;
    return std::clamp(n, 1, max_tasks);
}

int memory_buffers_here(const FrameFormat& format) {
    struct sysinfo memory = {};
    const double bytes = sysinfo(&memory) == 0 ? static_cast<double>(memory.totalram) * memory.mem_unit : 4e9;
    return static_cast<int>(std::clamp(bytes / 2 / static_cast<double>(format.bytes()), 8.0, 10000.0));
}

Host& host() { return *host_in_force; }

Host* use_host(Host* host) {
    Host* const before = host_in_force;
    host_in_force = host ? host : &default_host;
    return before;
}

SparkInfoStruct current_info(const Host& host) {
    SparkInfoStruct info = {};
    info.Name = host.plugin ? host.plugin->name.c_str() : "";
    info.ViewerX = host.viewer_x;
    info.ViewerY = host.viewer_y;
    info.FrameNo = static_cast<unsigned int>(host.frame);
    info.TotalFrameNo = host.total_frames;
    info.FrameWidth = host.format.width;
    info.FrameHeight = host.format.height;
    info.FrameDepth = host.format.depth;
    info.FrameBytes = host.format.bytes();
    info.FramePixels = host.format.pixels();
    info.FramePixelRatio = host.pixel_ratio;
    info.Quality = host.quality;
    info.Processors = static_cast<signed char>(std::clamp(host.processors, 1, max_tasks));
    if (host.plugin && !registers_buffers_p(host)) {
        std::vector<void*>& addresses = host.plugin->buffers.addresses;
        info.FrameBuffers = addresses.data();
        info.TotalBuffers = static_cast<int>(addresses.size());
    }
    return info;
}

bool registers_buffers_p(const Host& host) { return host.explicit_buffers && host.api_version >= 2.502f; }

int free_buffers(const Host& host) {
    const long frame = std::max(1L, host.format.bytes());
    const long used = (host.registered_bytes + frame - 1) / frame;
    return static_cast<int>(std::max(0L, host.memory_buffers - used));
}

void report_error(Host& host, const std::string& text) {
    const std::lock_guard lock(reports_mutex);
    keep(host, host.errors, text);
    if (host.on_error) host.on_error(text);
}

void report_message(Host& host, const std::string& text) {
    const std::lock_guard lock(reports_mutex);
    keep(host, host.messages, text);
    if (host.on_message) host.on_message(text);
}

}  // namespace spark_host
