// The services that only newer hosts have. A program that leaves this library out is an older host.
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "hosts/common/task_pool.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

using namespace spark_host;

namespace {

struct TaskHandle {
    std::thread thread;
};

int enable_control(int panel, int number, bool enabled) {
    Plugin* const plugin = host().plugin;
    if (!plugin || panel != 1 || number < SPARK_FIRST_CONTROL || number > SPARK_LAST_CONTROL) return 0;
    Control& control = plugin->panel.controls[number];
    control.number = number;
    control.enabled = enabled;
    return 1;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

float sparkFrameRate() { return host().frame_rate; }
float sparkGetViewerRatio() { return host().viewer_ratio; }
int sparkGetScanFormat() { return host().scan_format; }

int sparkSystemSh(const char* command) {
    const int status = std::system(command);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int sparkSystemNoSh(const char* path, char* const argv[]) {
    pid_t pid = -1;
    return posix_spawnp(&pid, path, nullptr, nullptr, argv, environ) == 0 ? static_cast<int>(pid) : -1;
}

int sparkWaitpid(int pid, int* status, int options) { return static_cast<int>(waitpid(pid, status, options)); }

int sparkMpIsMainTask() { return pool_main_task_p(); }

void* sparkMpAllocateTaskHandle() { return new TaskHandle; }

int sparkMpCreateTask(void* handle, void (*function)(void*), void* argument) {
    TaskHandle* const task = static_cast<TaskHandle*>(handle);
    if (!task || task->thread.joinable()) return 0;
    try {
        task->thread = std::thread(function, argument);
    } catch (const std::exception&) {
        return 0;
    }
    return 1;
}

int sparkMpWaitTask(void* handle) {
    TaskHandle* const task = static_cast<TaskHandle*>(handle);
    if (!task || !task->thread.joinable()) return 0;
    task->thread.join();
    return 1;
}

void sparkMpFreeTaskHandle(void* handle) {
    sparkMpWaitTask(handle);
    delete static_cast<TaskHandle*>(handle);
}

int sparkEnableParameter(int panel, int number) { return enable_control(panel, number, true); }
int sparkDisableParameter(int panel, int number) { return enable_control(panel, number, false); }

int sparkControlTitle(int page, const char* text) {
    Plugin* const plugin = host().plugin;
    if (!plugin || page < 0) return 0;
    plugin->panel.page_titles[page] = text ? text : "";
    return 1;
}

int sparkControlGroup(int panel, int number, const char* text) {
    Plugin* const plugin = host().plugin;
    if (!plugin || panel != 1 || number < SPARK_FIRST_CONTROL || number > SPARK_LAST_CONTROL) return 0;
    Control& control = plugin->panel.controls[number];
    control.number = number;
    control.group = text ? text : "";
    return 1;
}

// A program without a message line has nothing to put back after the delay.
int sparkMessageDelay(int, const char* text) {
    report_message(host(), text ? text : "");
    return 1;
}

int sparkGraphSetup(float* pixel_ratio) {
    const float ratio = host().pixel_ratio;
    if (!(ratio > 0)) return 0;
    if (pixel_ratio) *pixel_ratio = ratio;
    return 1;
}

}  // extern "C"
#pragma GCC visibility pop
