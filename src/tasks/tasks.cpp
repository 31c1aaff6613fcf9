// A fork is a barrier at both ends: everything that the host's thread wrote before it is seen by the tasks, everything
// that the tasks wrote is seen after it. So the state here is plain globals, but for the one word through which tasks
// that ended by a fatal abort say so.
#include "tasks/tasks.h"

#include "records/run_state.h"
#include "spark/spark.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/optional_host.h"
#include "support/task_state.h"
#include "tasks/fork_rows.h"
#include "texts/config.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstring>

namespace velloran {

int mp_initialised = 0;
int fork_enabled = 1;
int mp_allowed = 1;
int mp_max_cpus = INT_MAX;
int mp_cpu_count = 1;

namespace {

constexpr int big_image_height = 16;
constexpr int big_image_pixels = 512;
constexpr int wide_image_columns = 64;
constexpr int wide_image_height = 4;
constexpr size_t memcpy_fork_bytes = 10240;
constexpr size_t memset_fork_bytes = 16384;
constexpr size_t buffer_alignment = 16;

pthread_t main_thread;

// What the fork under way runs. One is enough, as forks do not nest.
struct {
    void (*run)(void* argument);
    void* argument;
} forked;
std::atomic<int> fork_abort_status{0};
std::atomic<uint64_t> fork_tasks_seen{0};  // a bit for each index that came
// Outside a call the frame that shares are counted in is not known; tasks then take their indices in order of arrival.
std::atomic<int> fork_arrivals{0};
thread_local int arrival_index = 0;

int32_t proc_temp_sums[max_processors];
float proc_temp_float_sums[max_processors];

void* forked_buffers[max_processors];
size_t forked_buffer_size = 0;
int forked_buffer_count = 0;  // processors that have one

void run_forked() {
    const int status = run_abortable(forked.run, forked.argument);
    int none = 0;
    if (status) fork_abort_status.compare_exchange_strong(none, status);
}

// What sparkMpFork receives. The host may run more tasks than this library is to use.
void spark_fork_wrapper() {
    if (!spark_info_ptr) arrival_index = fork_arrivals.fetch_add(1);
    const int index = get_processor_index();
    if (index >= get_n_procs()) return;
    fork_tasks_seen.fetch_or(uint64_t{1} << index, std::memory_order_relaxed);
    run_forked();
}

void fork_call(void (*run)(void*), void* argument) {
    if (!mp_initialised) {
        V_error(level_error, "Trying to fork, but not initialized yet!");
        run(argument);
        return;
    }
    if (is_forked) {
        V_error(level_error, "Calling fork_processes() while forked");
        run(argument);
        return;
    }
    is_forked = 1;
    forked = {run, argument};
    fork_abort_status.store(0, std::memory_order_relaxed);
    const int n_procs = get_n_procs();
    int missing = 0;
    if (n_procs >= 2) {
        fork_tasks_seen.store(0, std::memory_order_relaxed);
        fork_arrivals.store(0, std::memory_order_relaxed);
        mp_running = 1;
        sparkMpFork(spark_fork_wrapper, 0);
        mp_running = 0;
        missing = n_procs - std::popcount(fork_tasks_seen.load(std::memory_order_relaxed));
    } else {
        run_forked();
    }
    is_forked = 0;
    if (missing) {
        // Their shares of the picture are not there.
        V_error(level_error, "Only %d of %d tasks ran", n_procs - missing, n_procs);
        fatal_abort(1);
    }
    if (const int status = fork_abort_status.load(std::memory_order_relaxed)) fatal_abort(status);
}

// Divides a block of memory in whole cache lines, so that no line has two writers: body(first byte, bytes).
template <class Body>
void fork_bytes(size_t bytes, const Body& body) {
    constexpr size_t line = 64, largest_count = INT_MAX;
    size_t unit = line;
    while (bytes / unit > largest_count) unit *= 2;
    const int units = static_cast<int>(bytes / unit);
    fork_rows(units, [&](int first, int n) {
        const size_t begin = static_cast<size_t>(first) * unit;
        body(begin, first + n == units ? bytes - begin : static_cast<size_t>(n) * unit);
    });
}

int held_cpu_count(int n) { return std::clamp(std::min(n, mp_max_cpus), 1, max_processors); }

bool null_pointer_p(const void* pointer, const char* text) {
    if (pointer) return false;
    V_error(level_fatal, "%s", text);
    fatal_abort(1);
    return true;
}

size_t slot_bytes(size_t size) { return (size + buffer_alignment - 1) & ~(buffer_alignment - 1); }

}  // namespace

void init_mp() {
    if (mp_initialised) return;
    main_thread = pthread_self();
    load_optional_host_api();
    read_config_once();
    mp_initialised = 1;
}

void set_cpu_count(int n, int update_allowed) {
    init_mp();
    if (update_allowed) mp_allowed = n >= 2;
    mp_cpu_count = held_cpu_count(n);
}

int get_n_procs() {
    init_mp();
    if (!fork_enabled || !mp_allowed) return 1;
    // A host may run fewer tasks today than it had when the plug-in was set up, or more.
    return spark_info_ptr ? held_cpu_count(spark_info_ptr->Processors) : mp_cpu_count;
}

void get_processor_info(int* index, int* n_procs) {
    if (!index || !n_procs) {
        V_error(level_error, "Error: NULL n_procs ptr in get_processor_info");
        return;
    }
    *n_procs = get_n_procs();
    *index = get_processor_index();
}

int get_processor_index() {
    if (!fork_enabled || !mp_allowed || !is_forked || get_n_procs() < 2) return 0;
    return get_spark_processor_index();
}

int get_spark_processor_index() {
    if (!spark_info_ptr) return arrival_index;
    int offset = 0, size = 0;
    sparkMpInfo(&offset, &size);
    const long share = spark_info_ptr->FramePixels / std::max<long>(1, spark_info_ptr->Processors);
    return static_cast<int>(offset / std::max(1L, share));
}

void fork_processes(ForkFunction function) {
    fork_call([](void* f) { (*static_cast<ForkFunction*>(f))(); }, &function);
}

bool big_image_p(int width, int height) {
    return height > big_image_height && static_cast<int64_t>(width) * height > big_image_pixels;
}

bool wide_image_p(int width, int height) {
    return width / get_n_procs() > wide_image_columns && height > wide_image_height;
}

void fork_if_big_image(ForkFunction function, int width, int height) {
    if (big_image_p(width, height))
        fork_processes(function);
    else
        function();
}

void fork_if_wide_image(ForkFunction function, int width, int height) {
    if (wide_image_p(width, height))
        fork_processes(function);
    else
        function();
}

void run_stripe(int count, StripeBody body) {
    int first, n;
    get_proc_stripe(count, &first, &n);
    if (n > 0) body.run(body.body, first, n);
}

void fork_stripes(int count, StripeBody body) {
    struct Stripes {
        int count;
        StripeBody body;
    } stripes = {count, body};
    fork_call(
        [](void* argument) {
            const auto* s = static_cast<const Stripes*>(argument);
            run_stripe(s->count, s->body);
        },
        &stripes);
}

void get_proc_stripe(int count, int* first, int* n) {
    *first = 0;
    *n = count;
    if (!is_forked) return;
    int index = 0, n_procs = 1;
    get_processor_info(&index, &n_procs);
    if (count >= n_procs) {
        *n = count / n_procs;
        *first = index * *n;
        if (index == n_procs - 1) *n = count - *first;
    } else {
        *n = index < count ? 1 : 0;
        *first = index < count ? index : 0;
    }
}

void mp_memcpy(void* dest, const void* source, size_t bytes) {
    if (null_pointer_p(dest, "mp_memcpy: internal error, NULL dest!")) return;
    if (null_pointer_p(source, "mp_memcpy: internal error, NULL source!")) return;
    if (bytes < memcpy_fork_bytes) {
        std::memcpy(dest, source, bytes);
        return;
    }
    auto* const to = static_cast<unsigned char*>(dest);
    const auto* const from = static_cast<const unsigned char*>(source);
    fork_bytes(bytes, [&](size_t first, size_t n) { std::memcpy(to + first, from + first, n); });
}

void mp_memset(void* dest, int value, size_t bytes) {
    if (null_pointer_p(dest, "mp_memset: internal error, NULL dest!")) return;
    if (bytes < memset_fork_bytes) {
        std::memset(dest, value, bytes);
        return;
    }
    auto* const to = static_cast<unsigned char*>(dest);
    fork_bytes(bytes, [&](size_t first, size_t n) { std::memset(to + first, value, n); });
}

bool mp_main_thread_p() {
    if (!is_forked) return true;
    if (has_sparkMpIsMainTask_p()) return v_sparkMpIsMainTask() != 0;
    return get_processor_index() == 0;
}

void clear_proc_temp_sums() { std::fill(std::begin(proc_temp_sums), std::end(proc_temp_sums), 0); }

void set_proc_temp_sum(int32_t value) { proc_temp_sums[get_processor_index()] = value; }

int32_t get_proc_total_sum() {
    int32_t total = 0;
    for (const int32_t part : proc_temp_sums) total += part;
    return total;
}

void clear_proc_temp_float_sums() { std::fill(std::begin(proc_temp_float_sums), std::end(proc_temp_float_sums), 0.0f); }

void set_proc_temp_float_sum(float value) { proc_temp_float_sums[get_processor_index()] = value; }

float get_proc_total_float_sum() {
    float total = 0;
    for (const float part : proc_temp_float_sums) total += part;
    return total;
}

void maybe_malloc_forked_buffers(size_t size, int count) {
    const size_t region = slot_bytes(size) * static_cast<size_t>(std::max(count, 0));
    const int n_procs = get_n_procs();
    if (region <= forked_buffer_size && n_procs <= forked_buffer_count) return;
    const size_t new_region = std::max(region, forked_buffer_size);
    if (new_region == 0) return;
    auto* block = static_cast<unsigned char*>(safe_malloc_aligned(new_region * static_cast<size_t>(n_procs)));
    free_forked_buffers();
    for (int i = 0; i < n_procs; ++i) forked_buffers[i] = block + static_cast<size_t>(i) * new_region;
    forked_buffer_size = new_region;
    forked_buffer_count = n_procs;
}

void* get_forked_buffer(int slot, size_t size) {
    return static_cast<unsigned char*>(forked_buffers[get_processor_index()]) +
           slot_bytes(size) * static_cast<size_t>(slot);
}

void free_forked_buffers() {
    safe_free(forked_buffers[0]);
    std::fill(std::begin(forked_buffers), std::end(forked_buffers), nullptr);
    forked_buffer_size = 0;
    forked_buffer_count = 0;
}

}  // namespace velloran
