// Host functions that only newer hosts export, found by name in the running program at first use. has_X_p tells whether
// the host has one; v_X calls it, or gives the stated result without it. First use is on the host's thread; afterwards
// any task may call.
#pragma once

namespace velloran {

void load_optional_host_api();

bool has_sparkFrameRate_p();
float v_sparkFrameRate();  // 30
bool has_sparkGetViewerRatio_p();
float v_sparkGetViewerRatio();  // 1
bool has_sparkGetScanFormat_p();
int v_sparkGetScanFormat();  // 0
bool has_sparkSystemSh_p();
int v_sparkSystemSh(const char* command);  // 0
bool has_sparkSystemNoSh_p();
int v_sparkSystemNoSh(const char* path, char* const arguments[]);  // 0
bool has_sparkWaitpid_p();
int v_sparkWaitpid(int pid, int* status, int options);  // 0
bool has_sparkMpIsMainTask_p();
int v_sparkMpIsMainTask();  // 0
bool has_sparkMpAllocateTaskHandle_p();
void* v_sparkMpAllocateTaskHandle();  // null
bool has_sparkMpCreateTask_p();
int v_sparkMpCreateTask(void* handle, void (*function)(void*), void* argument);  // 0
bool has_sparkEnableParameter_p();
int v_sparkEnableParameter(int panel, int number);  // 0
bool has_sparkDisableParameter_p();
int v_sparkDisableParameter(int panel, int number);  // 0
bool has_sparkControlTitle_p();
int v_sparkControlTitle(int page, const char* text);  // 0
bool has_sparkMpFreeTaskHandle_p();
void v_sparkMpFreeTaskHandle(void* handle);
bool has_sparkMpWaitTask_p();
int v_sparkMpWaitTask(void* handle);  // 0
bool has_sparkMessageDelay_p();
int v_sparkMessageDelay(int milliseconds, const char* text);  // 0
bool has_sparkGraphSetup_p();
int v_sparkGraphSetup(float* pixel_ratio);  // 0

bool has_sparkControlGroup_p();
int v_sparkControlGroup(int panel, int number, const char* text);  // 0

}  // namespace velloran
