#include "hosts/common/host.h"
#include "hosts/common/task_pool.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

using namespace spark_host;

namespace {

std::atomic<int> visits[max_tasks];
std::atomic<int> calls;
int offsets[max_tasks], sizes[max_tasks];
std::thread::id threads[max_tasks];

void visit() {
    const int index = pool_task_index();
    visits[index]++;
    calls++;
    threads[index] = std::this_thread::get_id();
    sparkMpInfo(&offsets[index], &sizes[index]);
}

void fork_inside() {
    if (pool_task_index() == 1) pool_run(visit, 3);
}

class TaskPool : public testing::Test {
protected:
    void SetUp() override {
        use_host(&mine);
        for (auto& v : visits) v = 0;
        calls = 0;
    }
    void TearDown() override { use_host(nullptr); }
    Host mine;
};

}  // namespace

TEST_F(TaskPool, EveryTaskRunsOnceAndSharesCoverTheFrame) {
    const struct {
        int processors, width, height;
    } rows[] = {{1, 7, 5}, {2, 7, 5}, {5, 1920, 1080}, {3, 1, 1}, {8, 2, 2}, {64, 720, 486}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.processors);
        for (auto& v : visits) v = 0;
        mine.processors = row.processors;
        mine.format.width = row.width;
        mine.format.height = row.height;
        EXPECT_EQ(sparkMpFork(visit, 0), 1);
        const int share = std::max(1, row.width * row.height / row.processors);
        int covered = 0;
        for (int i = 0; i < max_tasks; i++) EXPECT_EQ(visits[i], i < row.processors);
        for (int i = 0; i < row.processors; i++) {
            EXPECT_EQ(offsets[i], i * share);
            covered += sizes[i];
        }
        if (row.processors <= row.width * row.height) {
            EXPECT_EQ(covered, row.width * row.height);
        }
        EXPECT_EQ(threads[0], std::this_thread::get_id());
    }
}

TEST_F(TaskPool, ThreadsPersistFromForkToFork) {
    mine.processors = 4;
    sparkMpFork(visit, 0);
    const std::vector<std::thread::id> before(threads, threads + 4);
    for (int i = 0; i < 2000; i++) sparkMpFork(visit, 0);
    EXPECT_EQ(calls, 4 * 2001);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), threads));
    pool_stop();
    sparkMpFork(visit, 0);
    EXPECT_EQ(calls, 4 * 2002);
}

TEST_F(TaskPool, ForkInsideATaskRunsInThatTask) {
    pool_run(fork_inside, 4);
    EXPECT_EQ(visits[1], 3);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(pool_task_count(), 1);
}

TEST(HostFunctions, AreFoundByNameInTheRunningProgram) {
    for (const char* name : {"sparkMpFork", "sparkFrameRate", "sparkMessageDelay", "sparkGraphSetup"})
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
}
