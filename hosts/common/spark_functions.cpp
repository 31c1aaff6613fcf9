// What every host offers: the spark functions that plug-ins link against.
#include "hosts/common/host.h"
#include "hosts/common/task_pool.h"

#include <algorithm>
#include <cstring>

using namespace spark_host;

#pragma GCC visibility push(default)
extern "C" {

float sparkAPIVersionInfo() { return host().api_version; }
int sparkCallingEnv() { return host().calling_env; }

int sparkProgramGetName(char* name, int size) {
    const std::string& program = host().program_name;
    if (name && size > 0) {
        const size_t n = std::min(program.size(), static_cast<size_t>(size - 1));
        std::memcpy(name, program.data(), n);
        name[n] = 0;
    }
    return static_cast<int>(program.size());
}

int sparkGetInfo(SparkInfoStruct* info) {
    *info = current_info(host());
    return host().info_known;
}

int sparkMemGetFreeMemory() { return host().memory_buffers; }
int sparkMemRegisterBufferSize(long) { return 0; }
int sparkMemGetBuffer(int, SparkMemBufStruct*) { return 0; }
void* sparkGetFrame(int, int, void*) { return nullptr; }

void sparkError(const char* text) {
    Host& h = host();
    h.errors.emplace_back(text);
    if (h.on_error) h.on_error(h.errors.back());
}

void sparkMessage(const char* text) {
    Host& h = host();
    h.messages.emplace_back(text);
    if (h.on_message) h.on_message(h.messages.back());
}

void sparkCursorBusy() { host().busy_cursors++; }
void sparkViewingCursor(int on) { host().viewing_cursor = on; }
void sparkViewingDraw() { host().viewer_draws++; }

int sparkPointerRead(float* x, float* y, float* pressure) {
    const Host& h = host();
    const Pen pen = h.read_pen ? h.read_pen() : h.pen;
    if (x) *x = pen.x;
    if (y) *y = pen.y;
    if (pressure) *pressure = pen.pressure;
    return pen.pressure > 0;
}

void sparkPointerWaitOff() { host().pen.pressure = 0; }
void sparkProcessTruncate() { host().truncated = true; }

void sparkControlUpdate(int) {}
int sparkSetControlName(int, int, const char*) { return 0; }
void sparkClipControlTitle(int, const char*) {}
int sparkSaveSetup(const char*) { return 0; }
int sparkLoadSetup(const char*) { return 0; }
float sparkGetCurveValue(int, int, int) { return 0; }
float sparkGetCurveValuef(int, int, float) { return 0; }
int sparkSetCurveKey(int, int, int, float) { return 0; }

int sparkMpFork(void (*function)(), int) {
    pool_run(function, host().processors);
    return 1;
}

void sparkMpInfo(int* offset, int* size) {
    const long pixels = host().format.pixels();
    const long share = std::max(1L, pixels / std::max(1, host().processors));
    const int index = pool_task_index();
    const bool last = index == pool_task_count() - 1;
    const long first = index * share;
    *offset = static_cast<int>(first);
    *size = static_cast<int>(last ? std::max(0L, pixels - first) : share);
}

}  // extern "C"
#pragma GCC visibility pop
