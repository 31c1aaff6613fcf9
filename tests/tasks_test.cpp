#include "tasks/tasks.h"

#include "support/abort.h"
#include "support/memory.h"
#include "support/task_state.h"
#include "tasks/fork_rows.h"
#include "testing/caught_messages.h"
#include "testing/host_of_tasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstring>
#include <thread>
#include <vector>

using namespace velloran;
using velloran_tests::HostOfTasks;
using velloran_tests::Messages;

namespace {

// What each task saw, by its index.
std::atomic<int> runs[max_processors];
int stripe_first[max_processors], stripe_n[max_processors];
bool was_main[max_processors];
std::atomic<int> total_runs;
int stripe_count = 0;
int seen_is_forked = 0, seen_mp_running = 0;
std::atomic<uint64_t> aborting_tasks;

void forget_runs() {
    for (auto& r : runs) r = 0;
    total_runs = 0;
}

void look_around() {
    int index = -1, n = -1;
    get_processor_info(&index, &n);
    runs[index]++;
    total_runs++;
    get_proc_stripe(stripe_count, &stripe_first[index], &stripe_n[index]);
    was_main[index] = mp_main_thread_p();
    if (index == 0) {
        seen_is_forked = is_forked;
        seen_mp_running = mp_running;
    }
}

void abort_some() {
    look_around();
    if (aborting_tasks >> get_processor_index() & 1) fatal_abort(7);
}

void fork_inside() { fork_processes(look_around); }

// Runs function under an armed entry point; the status of the abort that came back, 0 for none.
int with_entry_point(void (*function)()) {
    AbortTarget outer;
    arm_abort(outer);
    const int status = setjmp(_V_jmpbuf);
    if (status == 0) function();
    disarm_abort(outer);
    return status;
}

class Tasks : public testing::Test {
protected:
    void SetUp() override { forget_runs(); }
    void TearDown() override {
        mp_max_cpus = INT32_MAX;
        fork_enabled = 1;
        free_forked_buffers();
    }
};

}  // namespace

TEST_F(Tasks, StripesCoverEveryCountOnce) {
    const struct {
        int tasks, count;
        std::vector<int> expected;  // length of each task's stripe
    } rows[] = {
        {4, 10, {2, 2, 2, 4}},   {8, 3, {1, 1, 1, 0, 0, 0, 0, 0}},
        {5, 5, {1, 1, 1, 1, 1}}, {5, 0, {0, 0, 0, 0, 0}},
        {2, 1081, {540, 541}},   {1, 10, {10}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.count << " on " << row.tasks);
        const HostOfTasks host(row.tasks);
        forget_runs();
        stripe_count = row.count;
        fork_processes(look_around);
        int next = 0;
        for (int i = 0; i < row.tasks; ++i) {
            EXPECT_EQ(runs[i], 1);
            EXPECT_EQ(stripe_n[i], row.expected[static_cast<size_t>(i)]);
            EXPECT_EQ(stripe_first[i], stripe_n[i] ? next : 0);
            EXPECT_EQ(was_main[i], i == 0);
            next += stripe_n[i];
        }
        EXPECT_EQ(next, row.count);
        EXPECT_EQ(total_runs, row.tasks);
        int first = -1, n = -1;
        get_proc_stripe(row.count, &first, &n);
        EXPECT_EQ(first, 0);
        EXPECT_EQ(n, row.count) << "outside a fork all of it";
    }
}

TEST_F(Tasks, RowsReachTheBodyOnceEach) {
    for (const int tasks : {1, 2, 5, 64})
        for (const int rows : {0, 1, 2, 4, 5, 6, 63, 64, 65, 1081}) {
            SCOPED_TRACE(testing::Message() << rows << " rows on " << tasks);
            const HostOfTasks host(tasks);
            std::vector<int> owner(static_cast<size_t>(rows), -1), times(static_cast<size_t>(rows), 0);
            std::atomic<int> calls = 0;
            fork_rows(rows, [&](int first, int n) {
                calls++;
                EXPECT_GT(n, 0) << "a task without rows is not asked";
                for (int y = first; y < first + n; ++y) {
                    owner[static_cast<size_t>(y)] = get_processor_index();
                    times[static_cast<size_t>(y)]++;
                }
            });
            EXPECT_EQ(calls, std::min(tasks, rows));
            for (const int t : times) ASSERT_EQ(t, 1);
            EXPECT_TRUE(std::is_sorted(owner.begin(), owner.end()));
        }
}

TEST_F(Tasks, IndicesHoldForFramesOfAnySize) {
    // Shares that are cut short, frames with fewer pixels than tasks, the largest number of tasks.
    const struct {
        int tasks, width, height;
    } rows[] = {{7, 1, 1}, {7, 3, 2}, {3, 4, 4}, {64, 720, 486}, {64, 8, 8}, {5, 1921, 1081}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.tasks << " tasks, " << row.width << "x" << row.height);
        const HostOfTasks host(row.tasks, row.width, row.height);
        forget_runs();
        fork_processes(look_around);
        for (int i = 0; i < row.tasks; ++i) EXPECT_EQ(runs[i], 1) << "task " << i;
    }
}

TEST_F(Tasks, ForksOutsideACallStillShareTheWork) {
    const HostOfTasks host(4);
    spark_info_ptr = nullptr;
    for (int again = 0; again < 3; ++again) {
        forget_runs();
        fork_processes(look_around);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(runs[i], 1) << "task " << i;
    }
}

TEST_F(Tasks, LimitsOfProcessors) {
    const HostOfTasks host(4);
    const struct {
        const char* name;
        int enabled, max_cpus, tasks;  // tasks that run
    } rows[] = {{"all", 1, INT32_MAX, 4}, {"max_cpus 3", 1, 3, 3}, {"max_cpus 1", 1, 1, 1}, {"switched off", 0, 99, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        forget_runs();
        fork_enabled = row.enabled;
        mp_max_cpus = row.max_cpus;
        set_cpu_count(4, 1);
        stripe_count = 100;
        fork_processes(look_around);
        EXPECT_EQ(total_runs, row.tasks);
        EXPECT_EQ(stripe_n[0], 100 / row.tasks);
        EXPECT_EQ(seen_is_forked, 1);
        EXPECT_EQ(seen_mp_running, row.tasks > 1) << "one task alone must touch no mutex";
        EXPECT_EQ(is_forked, 0);
        EXPECT_EQ(mp_running, 0);
    }
    // Below two processors a host that may change its mind switches the forks off, and on again.
    fork_enabled = 1;
    set_cpu_count(1, 1);
    EXPECT_EQ(mp_allowed, 0);
    set_cpu_count(4, 0);
    EXPECT_EQ(mp_allowed, 0);
    mp_max_cpus = INT32_MAX;
    spark_info_ptr = nullptr;
    set_cpu_count(400, 1);
    EXPECT_EQ(get_n_procs(), max_processors);
}

// A host may change how many tasks it runs from call to call, and says so in each call's record.
TEST_F(Tasks, FollowTheCountOfEachCall) {
    HostOfTasks host(5);
    maybe_malloc_forked_buffers(100, 1);
    for (const int tasks : {5, 2, 7, 1, 64, 3}) {
        SCOPED_TRACE(tasks);
        host.host.processors = tasks;
        host.info = spark_host::current_info(host.host);
        maybe_malloc_forked_buffers(100, 1);
        std::atomic<int> rows = 0, calls = 0;
        fork_rows(1081, [&](int, int n) {
            std::memset(get_forked_buffer(0, 100), 1, 100);
            rows += n;
            calls++;
        });
        EXPECT_EQ(rows, 1081);
        EXPECT_EQ(calls, tasks);
        mp_max_cpus = 2;
        EXPECT_EQ(get_n_procs(), std::min(tasks, 2));
        mp_max_cpus = INT32_MAX;
    }
    // One that runs fewer tasks than it says has left a part of the rows out: no picture.
    host.host.processors = 2;
    host.info.Processors = 4;
    const Messages messages;
    EXPECT_EQ(with_entry_point([] { fork_rows(100, [](int, int) {}); }), 1);
    EXPECT_EQ(messages.count("8 Only 2 of 4 tasks ran"), 1);
}

TEST_F(Tasks, MisuseIsReported) {
    const HostOfTasks host(3);
    {
        const Messages messages;
        fork_processes(fork_inside);
        EXPECT_EQ(total_runs, 3);
        EXPECT_EQ(messages.count("8 Calling fork_processes() while forked"), 3);
        EXPECT_EQ(is_forked, 0);
    }
    {
        // Inside a fork rows are those of the task, and the outer body is not lost.
        const Messages messages;
        std::atomic<int> outer = 0, inner = 0;
        fork_rows(9, [&](int, int n) {
            fork_rows(8, [&](int, int m) { inner += m; });
            fork_rows_if_big_image(4, 4, [&](int, int m) { inner += m; });
            outer += n;
        });
        EXPECT_EQ(messages.count("8 Calling fork_processes() while forked"), 3);
        EXPECT_EQ(outer, 9);
        EXPECT_EQ(inner, 12);
        EXPECT_EQ(is_forked, 0);
    }
    {
        const Messages messages;
        mp_initialised = 0;
        forget_runs();
        fork_processes(look_around);
        init_mp();
        EXPECT_EQ(messages.count("8 Trying to fork, but not initialized yet!"), 1);
    }
    {
        const Messages messages;
        int index = 0;
        get_processor_info(&index, nullptr);
        get_processor_info(nullptr, &index);
        EXPECT_EQ(messages.count("8 Error: NULL n_procs ptr in get_processor_info"), 2);
    }
}

TEST_F(Tasks, SmallImagesDoNotFork) {
    const HostOfTasks host(2);
    const struct {
        const char* name;
        void (*fork)(ForkFunction, int, int);
        int width, height, tasks;
    } rows[] = {
        {"big, low", fork_if_big_image, 4096, 16, 1},
        {"big, few", fork_if_big_image, 30, 17, 1},
        {"big", fork_if_big_image, 31, 17, 2},
        {"big, beyond 32 bits", fork_if_big_image, 70000, 70000, 2},
        {"wide, narrow", fork_if_wide_image, 129, 100, 1},
        {"wide, low", fork_if_wide_image, 1000, 4, 1},
        {"wide", fork_if_wide_image, 130, 5, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        forget_runs();
        row.fork(look_around, row.width, row.height);
        EXPECT_EQ(total_runs, row.tasks);
        std::atomic<int> calls = 0, covered = 0;
        const auto body = [&](int, int n) {
            calls++;
            covered += n;
        };
        if (row.fork == fork_if_big_image)
            fork_rows_if_big_image(row.width, row.height, body);
        else
            fork_rows_if_wide_image(row.width, row.height, body);
        EXPECT_EQ(calls, row.tasks);
        EXPECT_EQ(covered, row.height);
    }
}

TEST_F(Tasks, CopiesAndFillsOfEverySize) {
    for (const int tasks : {1, 2, 5}) {
        const HostOfTasks host(tasks);
        for (const size_t bytes : {0, 1, 63, 10239, 10240, 10241, 16383, 16384, 99991}) {
            SCOPED_TRACE(testing::Message() << bytes << " bytes on " << tasks);
            std::vector<uint8_t> source(bytes + 1), copy(bytes + 64, 0xEE), filled(bytes + 64, 0xEE);
            for (size_t i = 0; i < bytes; ++i) source[i] = static_cast<uint8_t>(i * 7 + i / 251);
            mp_memcpy(copy.data() + 3, source.data(), bytes);
            mp_memset(filled.data() + 3, 0x5A, bytes);
            for (size_t i = 0; i < filled.size(); ++i) {
                const bool inside = i >= 3 && i < bytes + 3;
                ASSERT_EQ(filled[i], inside ? 0x5A : 0xEE) << i;
                ASSERT_EQ(copy[i], inside ? source[i - 3] : 0xEE) << i;
            }
        }
    }
    // Whether a fork happens: inside another it is reported.
    static char a[16384], b[16384];
    const struct {
        void (*call)();
        int forks;
    } rows[] = {
        {[] { mp_memcpy(a, b, 10239); }, 0},
        {[] { mp_memcpy(a, b, 10240); }, 1},
        {[] { mp_memset(a, 1, 16383); }, 0},
        {[] { mp_memset(a, 1, 16384); }, 1},
    };
    const HostOfTasks host(1);
    for (const auto& row : rows) {
        const Messages messages;
        fork_processes(row.call);
        EXPECT_EQ(messages.count("8 Calling fork_processes() while forked"), row.forks);
    }
}

TEST_F(Tasks, NullBlocksAbort) {
    const struct {
        void (*call)();
        const char* message;
    } rows[] = {
        {[] { mp_memcpy(nullptr, "a", 1); }, "9 mp_memcpy: internal error, NULL dest!"},
        {[] {
             char a;
             mp_memcpy(&a, nullptr, 1);
         },
         "9 mp_memcpy: internal error, NULL source!"},
        {[] { mp_memset(nullptr, 1, 1); }, "9 mp_memset: internal error, NULL dest!"},
    };
    for (const auto& row : rows) {
        const Messages messages;
        EXPECT_EQ(with_entry_point(row.call), 1);
        EXPECT_EQ(messages.count(row.message), 1);
    }
}

TEST_F(Tasks, SumsTotalWhatEachTaskStored) {
    const HostOfTasks host(5);
    clear_proc_temp_sums();
    clear_proc_temp_float_sums();
    const auto store = [] {
        set_proc_temp_sum(1 << get_processor_index());
        set_proc_temp_float_sum(0.5f * static_cast<float>(1 << get_processor_index()));
    };
    fork_processes(store);
    EXPECT_EQ(get_proc_total_sum(), 31);
    EXPECT_EQ(get_proc_total_float_sum(), 15.5f);
    clear_proc_temp_sums();
    clear_proc_temp_float_sums();
    EXPECT_EQ(get_proc_total_sum(), 0);
    EXPECT_EQ(get_proc_total_float_sum(), 0.0f);
}

TEST_F(Tasks, ForkedBuffersAreApartAndOnlyGrow) {
    static constexpr int slots = 3;
    static constexpr size_t size = 1001;
    const auto fill = [] {
        for (int s = 0; s < slots; ++s) std::memset(get_forked_buffer(s, size), 16 * get_processor_index() + s, size);
    };
    static std::atomic<int> wrong;
    const auto check = [] {
        for (int s = 0; s < slots; ++s) {
            const auto* bytes = static_cast<unsigned char*>(get_forked_buffer(s, size));
            if (reinterpret_cast<uintptr_t>(bytes) % 16) wrong++;
            for (size_t i = 0; i < size; ++i)
                if (bytes[i] != 16 * get_processor_index() + s) wrong++;
        }
    };
    const void* block;
    {
        const HostOfTasks host(3);
        maybe_malloc_forked_buffers(size, slots);
        block = get_forked_buffer(0, size);
        maybe_malloc_forked_buffers(10, 2);
        maybe_malloc_forked_buffers(0, 0);
        EXPECT_EQ(get_forked_buffer(0, size), block) << "smaller needs keep the buffers";
        fork_processes(fill);
        fork_processes(check);
        EXPECT_EQ(wrong, 0);
    }
    const HostOfTasks host(5);
    maybe_malloc_forked_buffers(10, 2);  // more tasks than the buffers were made for: each gets one as large as before
    fork_processes(fill);
    fork_processes(check);
    EXPECT_EQ(wrong, 0);
}

TEST_F(Tasks, AbortsOnAnyTaskComeBackBehindTheBarrier) {
    for (const int tasks : {1, 2, 5}) {
        const HostOfTasks host(tasks);
        const uint64_t all = (uint64_t{1} << tasks) - 1;
        for (const uint64_t mask : {uint64_t{1}, uint64_t{2}, uint64_t{16}, uint64_t{5}, all}) {
            if (!(mask & all)) continue;
            SCOPED_TRACE(testing::Message() << "tasks " << tasks << " mask " << mask);
            for (int again = 0; again < 1000; ++again) {
                forget_runs();
                aborting_tasks = mask;
                ASSERT_EQ(with_entry_point([] { fork_processes(abort_some); }), 7);
                ASSERT_EQ(total_runs, tasks) << "the others finish";
                ASSERT_EQ(is_forked, 0);
                ASSERT_EQ(mp_running, 0);
                aborting_tasks = 0;
                forget_runs();
                ASSERT_EQ(with_entry_point([] { fork_processes(abort_some); }), 0);
                ASSERT_EQ(total_runs, tasks);
            }
        }
    }
}

TEST_F(Tasks, AnAbortLeavesTheBodyOfRows) {
    const HostOfTasks host(5);
    static std::atomic<int> done;
    for (int row = 0; row < 20; ++row) {
        static int aborting_row;
        aborting_row = row;
        done = 0;
        const auto forking = [] {
            fork_rows(20, [](int first, int n) {
                for (int y = first; y < first + n; ++y)
                    if (y == aborting_row) fatal_abort(11);
                done += n;
            });
            ADD_FAILURE() << "the abort did not come back";
        };
        ASSERT_EQ(with_entry_point(forking), 11);
        ASSERT_EQ(done, 16) << "the other tasks finish";
        int rows = 0;
        fork_rows_if_big_image(1, 7, [&](int, int n) { rows += n; });
        ASSERT_EQ(rows, 7);
    }
}

TEST_F(Tasks, AbortInAnInnerCallLeavesTheOuterOneWhole) {
    const HostOfTasks host(1);
    static int inner_status;
    aborting_tasks = 1;
    const auto outer = [] {
        inner_status = with_entry_point([] { fork_processes(abort_some); });
        stripe_count = 9;
        aborting_tasks = 0;
        forget_runs();
        fork_processes(abort_some);
    };
    EXPECT_EQ(with_entry_point(outer), 0);
    EXPECT_EQ(inner_status, 7);
    EXPECT_EQ(total_runs, 1);
}

TEST_F(Tasks, MemoryOfAbortedTasksIsGivenBack) {
    const HostOfTasks host(2);
    static std::atomic<int> failing;
    const auto allocate_and_abort = [] {
        std::memset(frame_malloc(100000), 1, 100000);
        if (failing) fatal_abort(3);
    };
    for (int i = 0; i < 100; ++i) {
        failing = i & 1;
        static void (*function)();
        function = allocate_and_abort;
        EXPECT_EQ(with_entry_point([] { fork_processes(function); }), i & 1 ? 3 : 0);
        free_frame_memory();
    }
}
