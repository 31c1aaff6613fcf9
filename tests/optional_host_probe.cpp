// A host with the optional services that its link gave it. The arguments name them, "all" stands for every one: the
// library must find these and no others, and answer as told where one is missing. Ends with 1 after saying what is
// wrong.
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "support/clock.h"
#include "support/errors.h"
#include "support/optional_host.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>

using namespace velloran;

namespace {

int wrong = 0;

void expect(bool right, const char* what) {
    if (right) return;
    std::printf("%s\n", what);
    wrong = 1;
}

bool given(int argc, char** argv, const char* service) {
    for (int i = 1; i < argc; i++)
        if (!std::strcmp(argv[i], service) || !std::strcmp(argv[i], "all")) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    spark_host::Host host;
    spark_host::Plugin plugin;
    host.plugin = &plugin;
    plugin.host = &host;
    host.frame_rate = 25;
    host.viewer_ratio = 1.5f;
    host.scan_format = 2;
    host.pixel_ratio = 2;
    spark_host::use_host(&host);
    const auto has = [&](const char* service) { return given(argc, argv, service); };
#define EXPECT_FOUND(service) expect(has_##service##_p() == has(#service), #service " is found where it is not, or not")
    EXPECT_FOUND(sparkFrameRate);
    EXPECT_FOUND(sparkGetViewerRatio);
    EXPECT_FOUND(sparkGetScanFormat);
    EXPECT_FOUND(sparkSystemSh);
    EXPECT_FOUND(sparkSystemNoSh);
    EXPECT_FOUND(sparkWaitpid);
    EXPECT_FOUND(sparkMpIsMainTask);
    EXPECT_FOUND(sparkMpAllocateTaskHandle);
    EXPECT_FOUND(sparkMpCreateTask);
    EXPECT_FOUND(sparkEnableParameter);
    EXPECT_FOUND(sparkDisableParameter);
    EXPECT_FOUND(sparkControlTitle);
    EXPECT_FOUND(sparkControlGroup);
    EXPECT_FOUND(sparkMpFreeTaskHandle);
    EXPECT_FOUND(sparkMpWaitTask);
    EXPECT_FOUND(sparkMessageDelay);
    EXPECT_FOUND(sparkGraphSetup);

    const auto expect_number = [](float number, float wanted, const char* what) { expect(number == wanted, what); };
    const auto one_if = [&](const char* service) { return has(service) ? 1.0f : 0.0f; };
    expect_number(v_sparkFrameRate(), has("sparkFrameRate") ? 25 : 30, "frame rate");
    expect_number(v_sparkGetViewerRatio(), has("sparkGetViewerRatio") ? 1.5f : 1, "viewer ratio");
    expect_number(static_cast<float>(v_sparkGetScanFormat()), has("sparkGetScanFormat") ? 2 : 0, "scan format");
    expect_number(static_cast<float>(v_sparkSystemSh("exit 7")), has("sparkSystemSh") ? 7 : 0, "shell");
    char program[] = "/bin/true";
    char* const words[] = {program, nullptr};
    const int pid = v_sparkSystemNoSh("/bin/true", words);
    expect((pid > 0) == has("sparkSystemNoSh"), "program");
    int status = -1;
    const int waited = v_sparkWaitpid(pid, &status, 0);
    // With no child to wait for, the service itself says so.
    expect(has("sparkWaitpid") ? (pid > 0 ? waited == pid && status == 0 : waited == -1) : waited == 0, "wait");
    expect_number(static_cast<float>(v_sparkMpIsMainTask()), one_if("sparkMpIsMainTask"), "main task");
    void* const handle = v_sparkMpAllocateTaskHandle();
    expect((handle != nullptr) == has("sparkMpAllocateTaskHandle"), "task handle");
    int ran = 0;
    const auto run = [](void* flag) { *static_cast<int*>(flag) = 1; };
    const bool tasks = handle && has("sparkMpCreateTask");
    expect(v_sparkMpCreateTask(handle, run, &ran) == (tasks ? 1 : 0), "task");
    if (tasks) expect(v_sparkMpWaitTask(handle) == one_if("sparkMpWaitTask"), "waiting for a task");
    if (tasks) expect(ran == 1, "the task did not run");
    v_sparkMpFreeTaskHandle(handle);
    const int number = SPARK_FIRST_CONTROL;
    expect(v_sparkDisableParameter(1, number) == one_if("sparkDisableParameter"), "disabling");
    expect(v_sparkEnableParameter(1, number) == one_if("sparkEnableParameter"), "enabling");
    expect(v_sparkControlTitle(1, "Page") == one_if("sparkControlTitle"), "page title");
    expect(plugin.panel.page_titles.size() == (has("sparkControlTitle") ? 1u : 0u), "page titles");
    expect(v_sparkControlGroup(1, number, "Group") == one_if("sparkControlGroup"), "group");
    float ratio = 5;
    expect(v_sparkGraphSetup(&ratio) == one_if("sparkGraphSetup"), "graph setup");
    expect_number(ratio, has("sparkGraphSetup") ? 2 : 5, "pixel ratio");
    expect(v_sparkMessageDelay(1, "direct") == one_if("sparkMessageDelay"), "message delay");
    host.messages.clear();
    const double before = steady_seconds();
    show_message_delay(40, "a moment");
    const bool waited_itself = steady_seconds() - before >= 0.04;
    expect(waited_itself != has("sparkMessageDelay"), "who waits while a message stands");
    expect(host.messages.size() == 1 && host.messages[0] == "a moment", "message");
    return wrong;
}
