#include "support/optional_host.h"

#include "spark/spark.h"

#include <dlfcn.h>

namespace velloran {
namespace {

// Every service with its result when the host lacks it. Declarations only: taking the address of a host function would
// demand it at load time.
#define OPTIONAL_SERVICES(SERVICE)     \
    SERVICE(sparkFrameRate)            \
    SERVICE(sparkGetViewerRatio)       \
    SERVICE(sparkGetScanFormat)        \
    SERVICE(sparkSystemSh)             \
    SERVICE(sparkSystemNoSh)           \
    SERVICE(sparkWaitpid)              \
    SERVICE(sparkMpIsMainTask)         \
    SERVICE(sparkMpAllocateTaskHandle) \
    SERVICE(sparkMpCreateTask)         \
    SERVICE(sparkEnableParameter)      \
    SERVICE(sparkDisableParameter)     \
    SERVICE(sparkControlTitle)         \
    SERVICE(sparkMpFreeTaskHandle)     \
    SERVICE(sparkMpWaitTask)           \
    SERVICE(sparkMessageDelay)         \
    SERVICE(sparkGraphSetup)           \
    SERVICE(sparkControlGroup)

struct OptionalHostApi {
#define DECLARE(name) decltype(::name)* name;
    OPTIONAL_SERVICES(DECLARE)
#undef DECLARE
};

OptionalHostApi api;
bool api_loaded = false;

const OptionalHostApi& host_api() {
    load_optional_host_api();
    return api;
}

}  // namespace

void load_optional_host_api() {
    if (api_loaded) return;
    void* const program = dlopen(nullptr, RTLD_LAZY);
    if (program) {
#define RESOLVE(name) api.name = reinterpret_cast<decltype(api.name)>(dlsym(program, #name));
        OPTIONAL_SERVICES(RESOLVE)
#undef RESOLVE
        dlclose(program);
    }
    api_loaded = true;
}

#define HAS_SERVICE(name) \
    bool has_##name##_p() { return host_api().name != nullptr; }
OPTIONAL_SERVICES(HAS_SERVICE)
#undef HAS_SERVICE

float v_sparkFrameRate() { return host_api().sparkFrameRate ? api.sparkFrameRate() : 30.0f; }
float v_sparkGetViewerRatio() { return host_api().sparkGetViewerRatio ? api.sparkGetViewerRatio() : 1.0f; }
int v_sparkGetScanFormat() { return host_api().sparkGetScanFormat ? api.sparkGetScanFormat() : 0; }
int v_sparkSystemSh(const char* command) { return host_api().sparkSystemSh ? api.sparkSystemSh(command) : 0; }
int v_sparkSystemNoSh(const char* path, char* const arguments[]) {
    return host_api().sparkSystemNoSh ? api.sparkSystemNoSh(path, arguments) : 0;
}
int v_sparkWaitpid(int pid, int* status, int options) {
    return host_api().sparkWaitpid ? api.sparkWaitpid(pid, status, options) : 0;
}
int v_sparkMpIsMainTask() { return host_api().sparkMpIsMainTask ? api.sparkMpIsMainTask() : 0; }
void* v_sparkMpAllocateTaskHandle() {
    return host_api().sparkMpAllocateTaskHandle ? api.sparkMpAllocateTaskHandle() : nullptr;
}
int v_sparkMpCreateTask(void* handle, void (*function)(void*), void* argument) {
    return host_api().sparkMpCreateTask ? api.sparkMpCreateTask(handle, function, argument) : 0;
}
int v_sparkEnableParameter(int panel, int number) {
    return host_api().sparkEnableParameter ? api.sparkEnableParameter(panel, number) : 0;
}
int v_sparkDisableParameter(int panel, int number) {
    return host_api().sparkDisableParameter ? api.sparkDisableParameter(panel, number) : 0;
}
int v_sparkControlTitle(int page, const char* text) {
    return host_api().sparkControlTitle ? api.sparkControlTitle(page, text) : 0;
}
void v_sparkMpFreeTaskHandle(void* handle) {
    if (host_api().sparkMpFreeTaskHandle) api.sparkMpFreeTaskHandle(handle);
}
int v_sparkMpWaitTask(void* handle) { return host_api().sparkMpWaitTask ? api.sparkMpWaitTask(handle) : 0; }
int v_sparkMessageDelay(int milliseconds, const char* text) {
    return host_api().sparkMessageDelay ? api.sparkMessageDelay(milliseconds, text) : 0;
}
int v_sparkGraphSetup(float* pixel_ratio) { return host_api().sparkGraphSetup ? api.sparkGraphSetup(pixel_ratio) : 0; }
int v_sparkControlGroup(int panel, int number, const char* text) {
    return host_api().sparkControlGroup ? api.sparkControlGroup(panel, number, text) : 0;
}

}  // namespace velloran
