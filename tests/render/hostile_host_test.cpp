// Hosts that misbehave. Whatever a host calls, in whatever order, with whatever it lies about, a call gives an answer:
// a frame in the destination, or none, and words. The library's inner parts are those of this program, so that its
// allocations can be made to fail; the modules are loaded as a host would.
#include "host/stub_services.h"
#include "support/memory.h"
#include "tests/render/text_plugin.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <optional>

// The library comes along with the modules, though this program stands before it: its globals exist twice on purpose.
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

// Pauses that let a user read a message would be all that this program does.
extern "C" int usleep(useconds_t) { return 0; }

using namespace test_render;

namespace {

// Brings every entry point into this program, where the modules find it before the library's own.
const void* const entry_points[] = {
    reinterpret_cast<const void*>(V4_SparkClips),    reinterpret_cast<const void*>(V4_SparkProcess),
    reinterpret_cast<const void*>(V4_SparkInteract), reinterpret_cast<const void*>(V4_init_globals),
    reinterpret_cast<const void*>(V4_split_effects),
};

// ---- Allocations that fail ----

std::atomic<long> allocations{0}, fail_from{-1}, fail_to{-1};

void* counting_block(size_t bytes, size_t alignment) {
    const long number = allocations.fetch_add(1);
    if (number >= fail_from.load() && number < fail_to.load()) return nullptr;
    return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}

// While it lives, allocations first to first + count - 1 give nothing.
class FailingAllocations {
public:
    FailingAllocations(long first, long count) : system_block_(velloran::allocate_block) {
        allocations = 0;
        fail_from = first;
        fail_to = first + count;
        velloran::allocate_block = counting_block;
    }
    ~FailingAllocations() { velloran::allocate_block = system_block_; }
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    // Allocations were asked for often enough that one failed.
    bool reached() const { return allocations > fail_from; }

private:
    void* (*system_block_)(size_t, size_t);
};

// ---- Memory whose end is watched ----

// A block that ends where the process may not write or read.
class GuardedBlock {
public:
    explicit GuardedBlock(size_t bytes) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_ = (bytes + page - 1) / page * page + page;
        map_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map_ == MAP_FAILED) throw std::bad_alloc();
        auto* const end = static_cast<char*>(map_) + size_ - page;
        mprotect(end, page, PROT_NONE);
        start = end - (bytes + 15) / 16 * 16;  // as any allocator aligns
    }
    ~GuardedBlock() { munmap(map_, size_); }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;
    char* start;

private:
    void* map_;
    size_t size_;
};

// ---- The host ----

// Every module that is shipped, and the one that reads texts.
std::vector<std::string> families() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(PLUGIN_DIR))
        if (entry.path().extension() == ".so") names.push_back(entry.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

const char* const several =
    "(def_effect Soft (Source) ()\n  width = 0.05 (min 0 max 1)\n  amount = [1 1 1] (color)\n"
    "  dest = (* amount (blur Source width 2 1 1))\n)\n"
    "(def_effect Mix (Front Back) ()\n  mode = 0 (popup one two)\n  at = [0 0] (screen_center)\n"
    "  words = 0 (string)\n"
    "  dest = (+ (* Front 0.5) (get_curve_val (gamma (+ Back mode) 2) 0))\n)\n"
    "(def_effect Trails (Source) ()\n  dest = (+ (* Source 0.3) (* (get_prev_dest [0 0 0]) 0.7))\n)\n";

// A plug-in whose entry points are called without the care that the host layer takes.
class Hostile {
public:
    explicit Hostile(const std::string& family, unsigned seed, const char* text = several) : random(seed) {
        host.calling_env = pick(2) ? SPARK_ENV_BATCH : SPARK_ENV_DESKTOP;
        host.processors = pick(2) ? 1 : 3;
        host.total_frames = 5;
        host.explicit_buffers = pick(4) != 0;
        host.api_version = pick(4) ? 4.039f : 2.4f;
        host.format = {1 + pick(20), 1 + pick(20), any_depth()};
        host.read_pen = [this] { return Pen{float(pick(30)), float(pick(30)), pick(2) ? 1.0f : 0.0f}; };
        host.on_get_buffer = [this](int id, SparkMemBufStruct* buffer) { return hand_out(id, buffer); };
        previous_ = use_host(&host);
        velloran::explicit_spark_buffer_allocation_p = 0;  // as in a program that is one host all its life
        std::string error;
        const std::string path = std::string(PLUGIN_DIR) + "/" + family + ".so";
        plugin = load_plugin(host, path, config.path() + "/" + family, &error);
        if (!plugin) throw std::runtime_error(error);
        host.plugin = plugin.get();
        // What is told of a frame need not be what the host has; it writes no more than it told.
        const auto give = [this](int, const FrameFormat& format, void* dest) {
            if (pick(20) == 0) return false;
            std::memset(dest, pick(256),
                        static_cast<size_t>(std::min(format.bytes(), velloran::spark_info_ptr->FrameBytes)));
            return true;
        };
        plugin->inputs.assign(4, generated_clip(5, give));
        if (family == "text") define(text);
    }
    ~Hostile() {
        plugin->entry.uninitialise(info());
        plugin->started = false;
        plugin.reset();
        use_host(previous_);
    }
    Hostile(const Hostile&) = delete;
    Hostile& operator=(const Hostile&) = delete;

    void define(const char* text) {
        reinterpret_cast<SparkTextDefinitionsFn>(plugin_symbol(*plugin, "SparkTextDefinitions"))(text, "text", nullptr);
    }
    int pick(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }
    int any_depth() {
        const int depths[] = {SPARK_DEPTH_8, SPARK_DEPTH_10, SPARK_DEPTH_12};
        return depths[pick(3)];
    }

    // The start in the documented order. What initialise answered.
    int start() {
        plugin->format = host.format;
        const int inputs = std::clamp(plugin->entry.clips(), 0, 4);
        make_frame_buffers(host, plugin->buffers, inputs);
        if (registers_buffers_p(host)) register_buffers();
        const int answer = plugin->entry.initialise(info());
        list_controls();
        return answer;
    }
    void register_buffers() {
        plugin->buffers.registering = true;
        plugin->entry.memory_temp_buffers();
        plugin->buffers.registering = false;
    }
    void list_controls() {
        const SparkControl* list = nullptr;
        const int n = plugin->entry.controls(&list);
        if (list && n > 0) controls.assign(list, list + n);
        set_controls(plugin->panel, list, list ? n : 0);
    }
    // With the frame's size as it now is; a host that has changed it says so, and its blocks are as large as it says.
    SparkInfoStruct info() {
        SparkInfoStruct told = current_info(host);
        told.FrameNo = frame;
        if (told.FrameBuffers) {
            fill_addresses();
            told.FrameBuffers = addresses_.data();
            told.TotalBuffers = static_cast<int>(addresses_.size());
        }
        return told;
    }
    // The frame's bytes, none if there is no frame. A frame is in the destination and nowhere else.
    std::vector<unsigned char> render() { return taken(plugin->entry.process(info())); }
    std::vector<unsigned char> taken(const void* made) {
        if (!made) return {};
        ++frames_made;
        bool in_destination = made == destination;
        if (!addresses_.empty())
            in_destination |= std::find(addresses_.begin(), addresses_.end(), made) != addresses_.end();
        EXPECT_TRUE(in_destination) << "a frame that is not the host's";
        const auto* const bytes = static_cast<const unsigned char*>(made);
        return in_destination ? std::vector<unsigned char>(bytes, bytes + host.format.bytes())
                              : std::vector<unsigned char>();
    }
    bool said(const std::string& words) const {
        for (const auto* list : {&host.errors, &host.messages})
            for (const std::string& text : *list)
                if (text.find(words) != std::string::npos) return true;
        return false;
    }

    Host host;
    ConfigDir config;
    std::unique_ptr<Plugin> plugin;
    std::vector<SparkControl> controls;
    std::mt19937 random;
    unsigned frame = 0;
    int frames_made = 0;
    const void* destination = nullptr;  // as it was handed out last
    // Looks at what is handed out, after it was made; may change it. The result is the call's.
    std::function<int(int id, SparkMemBufStruct* buffer)> tamper;

private:
    GuardedBlock& block(int id, size_t bytes) {
        const auto found = blocks_.find({id, bytes});
        if (found != blocks_.end()) return *found->second;
        auto& made = blocks_[{id, bytes}];
        made = std::make_unique<GuardedBlock>(bytes);
        std::memset(made->start, 0x35, bytes);
        return *made;
    }
    // Frames are as large as the frame now is; what was registered stays as it was.
    int hand_out(int id, SparkMemBufStruct* buffer) {
        const int n_frames = plugin->buffers.n_inputs + 1;
        buffer->BufferSize = id <= n_frames ? host.format.bytes() : buffer->BufferSize;
        buffer->Buffer = block(id, static_cast<size_t>(std::max(1L, buffer->BufferSize))).start;
        const int answer = tamper ? tamper(id, buffer) : 1;
        if (id == dest_buffer_id) destination = buffer->Buffer;
        return answer;
    }
    void fill_addresses() {
        addresses_.clear();
        const size_t n = static_cast<size_t>(plugin->buffers.n_inputs + 1 + host.spare_buffers);
        for (size_t i = 0; i < n; ++i)
            addresses_.push_back(block(static_cast<int>(i) + 1, static_cast<size_t>(host.format.bytes())).start);
    }

    Host* previous_ = nullptr;
    std::map<std::pair<int, size_t>, std::unique_ptr<GuardedBlock>> blocks_;
    std::vector<void*> addresses_;
};

// ---- Random calls ----

float any_number(Hostile& h) {
    const float odd[] = {0, 1, -1, 0.5f, 1e9f, -1e9f, NAN, INFINITY, -INFINITY, 1e-30f};
    return h.pick(2) ? odd[h.pick(10)] : static_cast<float>(h.pick(2000)) / 10 - 100;
}

void set_any_value(Hostile& h, const SparkControl& control) {
    const int odd[] = {0, 1, -1, 7, 31, 32, 1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
    switch (control.Kind) {
        case SPARK_CONTROL_FLOAT:
            static_cast<SparkFloatStruct*>(control.Control)->Value = any_number(h);
            break;
        case SPARK_CONTROL_INT:
            static_cast<SparkIntStruct*>(control.Control)->Value = h.pick(2) ? odd[h.pick(9)] : h.pick(30);
            break;
        case SPARK_CONTROL_COLOUR:
            static_cast<SparkColourStruct*>(control.Control)->Value = static_cast<unsigned>(h.random());
            break;
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            static_cast<SparkBooleanStruct*>(control.Control)->Value =
                static_cast<unsigned char>(h.pick(4) ? h.pick(2) : 255);
            break;
        case SPARK_CONTROL_POPUP:
            static_cast<SparkPopupStruct*>(control.Control)->Value = h.pick(2) ? odd[h.pick(9)] : h.pick(4);
            break;
        case SPARK_CONTROL_STRING: {
            auto* const text = static_cast<SparkStringStruct*>(control.Control);
            std::memset(text->Value, 'a' + h.pick(26), sizeof(text->Value) - 1);
            text->Value[sizeof(text->Value) - 1] = 0;
            break;
        }
    }
}

SparkCallback callback_of(const SparkControl& control) {
    switch (control.Kind) {
        case SPARK_CONTROL_FLOAT:
            return static_cast<SparkFloatStruct*>(control.Control)->CallBack;
        case SPARK_CONTROL_INT:
            return static_cast<SparkIntStruct*>(control.Control)->CallBack;
        case SPARK_CONTROL_COLOUR:
            return static_cast<SparkColourStruct*>(control.Control)->CallBack;
        case SPARK_CONTROL_BOOLEAN:
        case SPARK_CONTROL_TOGGLE:
            return static_cast<SparkBooleanStruct*>(control.Control)->CallBack;
        case SPARK_CONTROL_POPUP:
            return static_cast<SparkPopupStruct*>(control.Control)->CallBack;
        case SPARK_CONTROL_STRING:
            return static_cast<SparkStringStruct*>(control.Control)->CallBack;
    }
    return nullptr;
}

void change_the_host(Hostile& h) {
    switch (h.pick(7)) {
        case 0:
            h.host.format.width = 1 + h.pick(40);
            h.host.format.height = 1 + h.pick(40);
            break;
        case 1:
            h.host.format.depth = h.any_depth();
            break;
        case 2:
            h.host.processors = 1 + h.pick(4);
            break;
        case 3: {
            const int lengths[] = {5, 0, -1, 1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
            h.host.total_frames = lengths[h.pick(6)];
            break;
        }
        case 4: {
            const unsigned frames[] = {0, 1, 2, 4, 5, 0x7fffffffu, 0x80000000u, 0xffffffffu};
            h.frame = frames[h.pick(8)];
            break;
        }
        case 5:
            h.host.quality = h.pick(4);
            break;
        case 6:
            lose_buffers(h.plugin->buffers);
            break;
    }
}

// One call of any kind.
void call_anything(Hostile& h) {
    const EntryPoints& entry = h.plugin->entry;
    switch (h.pick(24)) {
        case 0:
            entry.format_supported(h.pick(100));
            break;
        case 1:
            entry.clips();
            break;
        case 2:
            h.plugin->buffers.registering = h.pick(2) != 0;
            entry.memory_temp_buffers();
            h.plugin->buffers.registering = false;
            break;
        case 3:
            entry.initialise(h.info());
            break;
        case 4:
            h.list_controls();
            break;
        case 5:
            entry.process_start(h.info());
            break;
        case 6:
            if (h.pick(8) == 0) entry.uninitialise(h.info());
            break;
        case 7:
            if (h.pick(4) == 0) h.start();
            break;
        case 8:
        case 9:
        case 10:
            h.taken(entry.interact(h.info(), h.pick(5), h.pick(5), any_number(h), any_number(h), any_number(h),
                                   any_number(h)));
            break;
        case 11:
            entry.overlay(h.info(), any_number(h));
            break;
        case 12:
        case 13:
        case 14:
            change_the_host(h);
            break;
        case 15:
        case 16:
        case 17:
        case 18:
        case 19: {
            if (h.controls.empty()) break;
            const SparkControl& control = h.controls[static_cast<size_t>(h.pick(static_cast<int>(h.controls.size())))];
            set_any_value(h, control);
            if (const SparkCallback callback = callback_of(control)) h.taken(callback(h.pick(6) - 1, h.info()));
            break;
        }
        default:
            h.render();
    }
    note_call_ended(h.plugin->buffers);
}

class EveryFamily : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        for (const void* entry_point : entry_points) ASSERT_NE(entry_point, nullptr);
    }
};

TEST_P(EveryFamily, AnyCallsInAnyOrderGiveAnAnswer) {
    int frames = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Hostile h(GetParam(), seed);
        if (seed % 3) h.start();
        const int every = seed % 2 ? 0 : 1 + h.pick(20);
        for (int i = 0; i < 150; ++i) {
            if (every && i % every == 0) {
                const FailingAllocations fail(h.pick(60), 1 + h.pick(3));
                call_anything(h);
            } else {
                call_anything(h);
            }
        }
        frames += h.frames_made;
    }
    EXPECT_GT(frames, 300) << "calls that all fail at once would show little";
}

TEST_P(EveryFamily, AfterAFailedStartEveryCallGivesAnAnswer) {
    long in_a_start = 0;
    {
        Hostile h(GetParam(), 1);
        const FailingAllocations none(1 << 30, 1);
        h.start();
        in_a_start = allocations;
    }
    ASSERT_GT(in_a_start, 50);
    // Every allocation of a small family; of a large one the first, and then some of all.
    long first = 0;
    for (unsigned seed = 1; first < in_a_start; ++seed) {
        SCOPED_TRACE("allocation " + std::to_string(first));
        Hostile h(GetParam(), seed);
        {
            const FailingAllocations fail(first, seed % 3 ? 1 : 4);
            h.start();
        }
        for (int i = 0; i < 12; ++i) call_anything(h);
        first += first < 60 ? 1 : 1 + h.pick(std::max(1, static_cast<int>(in_a_start / 60)));
    }
}

INSTANTIATE_TEST_SUITE_P(Families, EveryFamily, testing::ValuesIn(families()),
                         [](const auto& family) { return family.param; });

// ---- Lies, one at a time ----

const char* const soft = "(def_effect Soft (Source) ()\n  dest = (blur (sin Source) 0.3 2 1 1)\n)\n";

// A plug-in of a text on a host that behaves, but for what the test does.
class HostileText : public testing::Test {
protected:
    void begin(const char* text, bool explicit_buffers = true) {
        h.emplace("text", 1, text);
        h->host.calling_env = SPARK_ENV_BATCH;
        h->host.explicit_buffers = explicit_buffers;
        h->host.api_version = 4.039f;
        h->host.format = {16, 12, SPARK_DEPTH_12};
        ASSERT_EQ(h->start(), 2);
        want = h->render();
        ASSERT_FALSE(want.empty());
        h->host.errors.clear();
        h->host.messages.clear();
    }
    std::optional<Hostile> h;
    std::vector<unsigned char> want;
};

TEST_F(HostileText, ABufferThatIsTooSmallIsAMessageAndNoFrame) {
    begin(soft);
    const int first_temporary = 3;
    for (const int lie : {dest_buffer_id, first_temporary}) {
        for (const long part : {2, 100}) {
            h->tamper = [&](int id, SparkMemBufStruct* buffer) {
                if (id == lie) buffer->BufferSize /= part;
                return 1;
            };
            EXPECT_TRUE(h->render().empty()) << "buffer " << lie;
            EXPECT_TRUE(h->said("is too small")) << "buffer " << lie;
            h->tamper = nullptr;
            EXPECT_EQ(h->render(), want);
            h->host.messages.clear();
        }
    }
}

TEST_F(HostileText, AFrameThatOutgrowsItsTemporariesIsNone) {
    begin(soft);
    const FrameFormat before = h->host.format;
    for (const auto& [width, height] : {std::pair{40, 12}, std::pair{16, 13}, std::pair{200, 100}}) {
        h->host.format.width = width;
        h->host.format.height = height;
        EXPECT_TRUE(h->render().empty()) << width << "x" << height;
        EXPECT_TRUE(h->said("is too small"));
        h->host.format = before;
        EXPECT_EQ(h->render(), want);
    }
    h->host.format = {9, 9, before.depth};
    EXPECT_FALSE(h->render().empty()) << "a smaller frame fits";
}

TEST_F(HostileText, MemoryThatRanOutIsTold) {
    begin(soft);
    int failed = 0;
    for (long allocation = 0;; ++allocation) {
        h->frame = 1;  // so that what is kept between frames is made anew
        ASSERT_FALSE(h->render().empty());
        h->frame = 0;
        h->host.messages.clear();
        h->host.memory_ran_out = false;
        std::vector<unsigned char> made;
        bool reached = false;
        {
            const FailingAllocations fail(allocation, 1);
            made = h->render();
            reached = fail.reached();
        }
        if (!reached) break;
        EXPECT_EQ(made.empty(), h->host.memory_ran_out) << "allocation " << allocation;
        failed += made.empty();
        EXPECT_LE(h->host.messages.size(), 1u);
    }
    EXPECT_GT(failed, 3);
}

TEST_F(HostileText, WhatIsToldOfTheFrameMustFitTogether) {
    for (const bool explicit_buffers : {true, false}) {
        begin("(def_effect Through (Source) ()\n  dest = (* Source 0.5)\n)\n", explicit_buffers);
        const std::function<void(SparkInfoStruct&)> lies[] = {
            [](SparkInfoStruct& info) { info.FrameBytes /= 2; },
            [](SparkInfoStruct& info) { info.FrameBytes = 0; },
            [](SparkInfoStruct& info) { info.FrameWidth = 0; },
            [](SparkInfoStruct& info) { info.FrameHeight = -3; },
            [](SparkInfoStruct& info) { info.FrameWidth = info.FrameHeight = std::numeric_limits<int>::max(); },
            [](SparkInfoStruct& info) { info.FrameWidth = 40000; },
        };
        for (const auto& lie : lies) {
            SparkInfoStruct info = h->info();
            lie(info);
            EXPECT_EQ(h->plugin->entry.process(info), nullptr);
            EXPECT_TRUE(h->said("Bad frame size") || h->said(" needs "));
            h->host.messages.clear();
        }
        EXPECT_EQ(h->render(), want);
        h.reset();
    }
}

TEST_F(HostileText, IdsOfAnySizeAreTheBuffersTheyName) {
    begin(soft);
    h->plugin->entry.uninitialise(h->info());
    h->define(soft);
    ASSERT_EQ(h->plugin->entry.clips(), 1);
    make_frame_buffers(h->host, h->plugin->buffers, 1);
    h->plugin->buffers.list.resize(70000);
    h->register_buffers();
    ASSERT_EQ(h->plugin->entry.initialise(h->info()), 2);
    EXPECT_EQ(h->render(), want);
}

TEST_F(HostileText, FrameNumbersAreNotNegative) {
    begin("(def_effect Through (Source) ()\n  dest = Source\n)\n");
    ASSERT_EQ(h->plugin->entry.clips(), 1) << "no frame was seen since";
    h->frame = 0x80000000u;
    EXPECT_TRUE(h->render().empty());
    EXPECT_TRUE(h->said("FrameNo out of bounds: 2147483649 of 5, PLEASE ADJUST!  (API bug)"));
}

TEST_F(HostileText, ALengthThatNoClipHasIsComeToTheEndOf) {
    for (const int length : {2, 5, 3000000, std::numeric_limits<int>::max()}) {
        begin("(def_effect Wipe (Source) ()\n  at = 0 (min 0 max 1 autotrans)\n  dest = (* Source at)\n)\n");
        h->host.total_frames = length;
        EXPECT_EQ(h->plugin->entry.process_start(h->info()), 1);
        EXPECT_FALSE(h->render().empty());
        h.reset();
    }
}

TEST(HostileTexts, TextsThatCannotBeReadLeaveTheHostAlive) {
    std::string nested;
    for (int i = 0; i < 12; ++i) nested += "#if (1)\n";
    nested += soft;
    for (int i = 0; i < 12; ++i) nested += "#endif\n";
    const std::string good = soft, bad = "(def_effect Bad (Source) ()\n  dest = (no_such Source)\n)\n";
    for (const std::string& text : {nested, bad, good + bad, bad + good, good + bad + good, bad + bad, std::string(),
                                    std::string("(def_effect"), std::string("#if")}) {
        Hostile h("text", 5, text.c_str());
        h.start();
        for (int i = 0; i < 40; ++i) call_anything(h);
    }
}

// ---- Records and stubs of other makes ----

// A stub that has no control at all, not even for the choice of the effect.
TEST(Stubs, OneWithoutControlsRendersItsFirstEffect) {
    Hostile h("text", 3);  // gives the host; its own plug-in is left alone
    h.host.calling_env = SPARK_ENV_BATCH;
    h.host.explicit_buffers = false;
    h.host.api_version = 4.039f;
    h.host.format = {16, 12, SPARK_DEPTH_12};
    make_frame_buffers(h.host, h.plugin->buffers, 1);
    velloran::GlobalsV4Record* const record = V4_init_globals(nullptr);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(V4_split_effects("(def_effect A (Source) ()\n  k = 0.5 (min 0 max 1)\n  dest = (* Source k)\n)\n"
                               "(def_effect B (Source) ()\n  dest = (* Source 0)\n)\n",
                               "two", nullptr, record),
              2);
    EXPECT_EQ(V4_SparkClips(VELLORAN_VERSION), 1);
    EXPECT_EQ(V4_SparkInitialise(h.info()), 2);
    const auto frame = h.taken(V4_SparkProcess(h.info()));
    ASSERT_FALSE(frame.empty());
    EXPECT_TRUE(std::any_of(frame.begin(), frame.end(), [](unsigned char byte) { return byte != 0; }));
    V4_SparkUnInitialise(h.info());
    V4_free_globals(record);
}

TEST(Stubs, CallsWithoutARecordAnswerNothing) {
    Hostile h("text", 3);
    velloran::GlobalsV4Record* const caller = Globals_V4;
    Globals_V4 = nullptr;
    EXPECT_EQ(V4_SparkClips(VELLORAN_VERSION), 0);
    V4_SparkMemoryTempBuffers(h.info());
    EXPECT_EQ(V4_SparkInitialise(h.info()), 0);
    EXPECT_EQ(V4_SparkProcessStart(h.info()), 0);
    EXPECT_EQ(V4_SparkProcess(h.info()), nullptr);
    EXPECT_EQ(V4_SparkInteract(h.info(), 0, 0, 1, 1, 1, 1), nullptr);
    EXPECT_EQ(V4_cbkfun7(0, h.info()), nullptr);
    EXPECT_EQ(V4_crop_callback(0, h.info(), 1), nullptr);
    V4_SparkOverlay(h.info(), 1);
    V4_SparkUnInitialise(h.info());
    V4_free_globals(nullptr);
    EXPECT_EQ(V4_split_effects(soft, "soft", nullptr, nullptr), 0);
    EXPECT_EQ(V4_global_param_sync_from_button(3, 0), 0);
    // The stub's own fatal message, with no plug-in there that could hand it to the host.
    V4_V_error(9, "no plug-in is there");
    Globals_V4 = caller;
}

// Copies of a record, and copies of those, are used and freed in any order; the strings go with the last of them.
TEST(Stubs, CopiesOfARecordAreUsedAndFreedInAnyOrder) {
    const int before = velloran::n_plugins_loaded;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Hostile h("text", seed);
        h.host.calling_env = SPARK_ENV_BATCH;
        h.host.explicit_buffers = false;
        h.host.api_version = 4.039f;
        h.host.format = {8, 6, SPARK_DEPTH_12};
        make_frame_buffers(h.host, h.plugin->buffers, 1);
        std::vector<velloran::GlobalsV4Record*> records = {V4_init_globals(nullptr)};
        V4_split_effects(soft, "soft", nullptr, records[0]);
        if (h.pick(4)) {
            V4_SparkClips(VELLORAN_VERSION);
            V4_SparkInitialise(h.info());
        }
        std::vector<unsigned char> frame;
        for (int i = 0; i < 25 && !records.empty(); ++i) {
            const size_t n = static_cast<size_t>(h.pick(static_cast<int>(records.size())));
            Globals_V4 = records[n];
            const bool ready = (records[n]->setup_flags & velloran::setup_ready) != 0;
            switch (h.pick(6)) {
                case 0:
                case 1:
                    if (records.size() < 5) records.push_back(V4_init_globals(records[n]));
                    break;
                case 2:
                    V4_SparkInitialise(h.info());
                    break;
                case 3:
                    if (h.pick(2)) V4_SparkUnInitialise(h.info());
                    break;
                case 4:
                    if (h.pick(2)) break;
                    V4_free_globals(records[n]);
                    records.erase(records.begin() + static_cast<long>(n));
                    break;
                default: {
                    const auto made = h.taken(V4_SparkProcess(h.info()));
                    EXPECT_EQ(made.empty(), !ready);
                    if (frame.empty()) frame = made;
                    if (!made.empty()) {
                        EXPECT_EQ(made, frame);
                    }
                }
            }
        }
        while (!records.empty()) {
            const size_t n = static_cast<size_t>(h.pick(static_cast<int>(records.size())));
            V4_free_globals(records[n]);
            records.erase(records.begin() + static_cast<long>(n));
        }
        EXPECT_EQ(velloran::n_plugins_loaded, before);
    }
}

}  // namespace
