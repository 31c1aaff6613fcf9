// The fatal abort and the memory of a call.
#include "hosts/common/host.h"
#include "support/abort.h"
#include "support/memory.h"
#include "support/task_state.h"
#include "testing/support_messages.h"

#include <malloc.h>

#include <climits>
#include <cstring>
#include <thread>

using namespace velloran;

namespace {

int cleanups_run[4];

void count_cleanup(void* slot) { ++*static_cast<int*>(slot); }
void abort_in_cleanup(void* slot) {
    ++*static_cast<int*>(slot);
    frame_malloc(100);
    fatal_abort(9);
    *static_cast<int*>(slot) = -1000;
}

void descend(int depth) {
    volatile char stack[64];
    stack[0] = static_cast<char>(depth);
    frame_malloc(1000);
    if (depth > 0) descend(depth - 1);
    fatal_abort(depth + 5);
    ADD_FAILURE() << "the abort returned " << stack[0];
}

class Abort : public SupportTest {
protected:
    spark_host::Host host;
    spark_host::Host* host_before = nullptr;

    void SetUp() override {
        SupportTest::SetUp();
        host_before = spark_host::use_host(&host);
        std::memset(cleanups_run, 0, sizeof(cleanups_run));
    }
    void TearDown() override {
        spark_host::use_host(host_before);
        SupportTest::TearDown();
    }
};

TEST_F(Abort, TenThousandFromAnyDepthLeaveNothing) {
    const auto round = [](int i) {
        EXPECT_EQ(abort_status([] {
                      push_abort_cleanup(count_cleanup, &cleanups_run[0]);
                      push_abort_cleanup(abort_in_cleanup, &cleanups_run[1]);
                      push_abort_cleanup(count_cleanup, &cleanups_run[2]);
                      descend(20);
                  }),
                  5);
        EXPECT_EQ(cleanups_run[0], i);
        EXPECT_EQ(cleanups_run[1], i);
        EXPECT_EQ(cleanups_run[2], i);
        EXPECT_EQ(_V_jmp_set, 0);
    };
    for (int i = 1; i <= 100; ++i) round(i);
    const size_t before = mallinfo2().uordblks;
    for (int i = 101; i <= 10000; ++i) round(i);
    EXPECT_LE(mallinfo2().uordblks, before + 4096);
}

// A render inside a callback: its abort must leave the callback as it was.
TEST_F(Abort, NestedCallsKeepTheirOwn) {
    static char* outer_block;
    const int status = abort_status([] {
        evaluating_frame_p = 0;
        outer_block = frame_array<char>(8);
        std::strcpy(outer_block, "outer");
        push_abort_cleanup(count_cleanup, &cleanups_run[0]);
        const int inner = abort_status([] {
            evaluating_frame_p = 1;
            frame_malloc(8);
            push_abort_cleanup(count_cleanup, &cleanups_run[1]);
            fatal_abort(7);
        });
        EXPECT_EQ(inner, 7);
        EXPECT_EQ(evaluating_frame_p, 0);
        EXPECT_EQ(cleanups_run[1], 1);
        EXPECT_EQ(cleanups_run[0], 0);
        EXPECT_STREQ(outer_block, "outer");
        EXPECT_EQ(_V_jmp_set, 1);
        pop_abort_cleanup();
        fatal_abort(8);
    });
    EXPECT_EQ(status, 8);
    EXPECT_EQ(cleanups_run[0], 0);  // it had been taken off
    EXPECT_EQ(cleanups_run[1], 1);
    EXPECT_EQ(messages(), "");
}

TEST_F(Abort, EndsATaskAlone) {
    static int status;
    status = 0;
    const int host_status = abort_status([] {
        std::thread([] { status = run_abortable([](void*) { descend(3); }, nullptr); }).join();
        EXPECT_EQ(run_abortable([](void*) { fatal_abort(0); }, nullptr), 1);  // never 0: that means no abort
    });
    EXPECT_EQ(host_status, 0);
    EXPECT_EQ(status, 5);
}

TEST_F(Abort, WithoutAnEntryPointOnlyTells) {
    fatal_abort(4);
    EXPECT_EQ(host.errors, std::vector<std::string>{"Velloran uncaught fatal abort"});
    EXPECT_EQ(messages(), "9 Velloran uncaught fatal abort, status 4\n");
    EXPECT_EQ(abort_status([] { fatal_message(""); }), 1);
    EXPECT_EQ(abort_status([] { fatal_message("bad news"); }), 1);
    EXPECT_EQ(host.errors.size(), 2u);
    EXPECT_EQ(host.errors.back(), "bad news");
}

TEST_F(Abort, TooManyCleanups) {
    EXPECT_EQ(abort_status([] {
                  for (int i = 0; i < 65; ++i) push_abort_cleanup(count_cleanup, &cleanups_run[0]);
              }),
              1);
    EXPECT_EQ(cleanups_run[0], 64);
}

int allocations_left;
void* (*usual_allocate)(size_t, size_t);
void* limited_allocate(size_t bytes, size_t alignment) {
    return allocations_left-- > 0 ? usual_allocate(bytes, alignment) : nullptr;
}

TEST_F(Abort, ExhaustedMemory) {
    EXPECT_EQ(safe_malloc(0), nullptr);
    EXPECT_EQ(frame_malloc(0), nullptr);
    EXPECT_EQ(safe_strdup(nullptr), nullptr);
    safe_free(nullptr);
    frame_free(nullptr);
    EXPECT_EQ(messages(), "");
    for (void* (*const allocate)(size_t) : {safe_malloc, safe_malloc_aligned, safe_calloc, frame_malloc}) {
        EXPECT_EQ(abort_status([=] { allocate(static_cast<size_t>(LONG_MAX)); }), -100);
        EXPECT_EQ(messages(), "8 Velloran ran out of memory trying to allocate " + std::to_string(LONG_MAX) +
                                  " bytes.Not enough memory.\n");
        EXPECT_EQ(abort_status([=] { allocate(SIZE_MAX); }), -100);  // no sum of it may wrap
        messages();
    }
    // Also when each allocation in turn fails, what was had before stays whole or goes back.
    usual_allocate = allocate_block;
    allocate_block = limited_allocate;
    for (int n = 0; n < 4; ++n) {
        allocations_left = n;
        EXPECT_EQ(abort_status([] {
                      frame_malloc(10);
                      static char* block;
                      block = static_cast<char*>(safe_malloc(6));
                      push_abort_cleanup([](void*) { safe_free(block); }, nullptr);
                      std::strcpy(block, "abcde");
                      block = static_cast<char*>(safe_realloc(block, 100));
                      EXPECT_STREQ(block, "abcde");
                      pop_abort_cleanup();
                      safe_free(block);
                  }),
                  n < 3 ? -100 : 0);
    }
    allocate_block = usual_allocate;
}

TEST_F(Abort, FilesTellWhyTheyFailed) {
    const std::string missing = dir + "/no/such";
    EXPECT_EQ(safe_fopen(missing.c_str(), "r", 0), nullptr);
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(safe_fopen(missing.c_str(), "r", file_report_failure), nullptr);
    EXPECT_EQ(safe_fopen(missing.c_str(), "w", file_report_failure), nullptr);
    const char* const path = missing.c_str();
    EXPECT_EQ(abort_status([path] { safe_fopen(path, "r", file_abort_on_failure); }), 1);
    EXPECT_EQ(messages(), "8 Open of " + missing + " failed: No such file or directory\n8 Write of " + missing +
                              " failed at open: No such file or directory\n8 Open of " + missing +
                              " failed: No such file or directory\n");
    FILE* const file = safe_fopen((dir + "/new").c_str(), "w", 0);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(dir + "/new").permissions()) & 0777, 0666u);
    EXPECT_EQ(safe_fclose(file), 0);
    EXPECT_EQ(safe_fclose(nullptr), 0);
    if (FILE* const full = safe_fopen("/dev/full", "r+", 0)) {
        std::fputs("x", full);
        EXPECT_NE(safe_fclose(full), 0);
        EXPECT_EQ(messages(), "8 Close file failed.\n");
    }
    spark_set_config_dir(std::string(400, 'd').c_str());
    EXPECT_EQ(std::strlen(get_config_dir()), 298u);
    spark_set_config_dir("/a/b//");
    EXPECT_STREQ(get_config_dir(), "/a/b");
}

}  // namespace
