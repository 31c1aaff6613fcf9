// The numbering of the host's buffers and the slots of the long image and the mipmap, against hosts of several kinds.
#include "frame/host_buffers.h"
#include "frame/mipmap_size.h"
#include "host/entry_points.h"
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "records/frame.h"
#include "support/errors.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace velloran;

namespace {

// A record and a host of registered buffers, both without a plug-in: buffers are answered by the test itself.
class HostBuffers : public testing::Test {
protected:
    void SetUp() override {
        record = V4_init_globals(nullptr);
        record->n_inputs = 2;
        record->number_of_input_images = 2;
        for (auto& block : memory) block.resize(1 << 16);
        previous = spark_host::use_host(&host);
        host.plugin = &plugin;
        plugin.buffers.list.resize(16);
        for (spark_host::HostBuffer& buffer : plugin.buffers.list) buffer.size = 64;
        set_error_printer(spark_error_printer);
        host.on_get_buffer = [this](int id, SparkMemBufStruct* buffer) {
            asked.push_back(id);
            if (id <= 0 || id >= 16) return 0;
            buffer->BufferId = id;
            buffer->BufferState = state;
            buffer->BufferSize = static_cast<long>(memory[id].size());
            buffer->Buffer = memory[id].data();
            return 1;
        };
        info.FrameWidth = 32;
        info.FrameHeight = 16;
        info.FramePixels = 512;
        info.FrameDepth = SPARK_DEPTH_12;
        info.FrameBytes = 512 * 6;
        info.Processors = 1;
        spark_info_ptr = &info;
        explicit_spark_buffer_allocation_p = 1;
        for (int i = 0; i < 10; ++i) record->buffer_ids[i] = i + 1;
    }
    void TearDown() override {
        spark_free_mipmap();
        spark_free_long_image();
        spark_info_ptr = nullptr;
        explicit_spark_buffer_allocation_p = 0;
        set_error_printer(nullptr);
        host.plugin = nullptr;
        spark_host::use_host(previous);
        V4_free_globals(record);
    }
    void implicit_host(int total) {
        explicit_spark_buffer_allocation_p = 0;
        frames.resize(static_cast<size_t>(total));
        for (int i = 0; i < total; ++i) frames[static_cast<size_t>(i)] = memory[i].data();
        info.FrameBuffers = frames.data();
        info.TotalBuffers = total;
    }

    spark_host::Host host;
    spark_host::Plugin plugin;
    spark_host::Host* previous = nullptr;
    GlobalsV4Record* record = nullptr;
    SparkInfoStruct info = {};
    std::vector<char> memory[16];
    std::vector<void*> frames;
    std::vector<int> asked;
    int state = SPARK_BUF_ALLOCATED | SPARK_BUF_CLEAN;
};

TEST_F(HostBuffers, ImplicitOrderIsInputsThenDestination) {
    implicit_host(6);
    EXPECT_EQ(get_spark_buffer(1), frames[0]);
    EXPECT_EQ(get_spark_buffer(2), frames[1]);
    EXPECT_EQ(get_spark_buffer(0), frames[2]);
    EXPECT_EQ(get_spark_buffer(3), frames[3]);
    EXPECT_EQ(get_spark_buffer(6), nullptr) << "past the host's array";
}

TEST_F(HostBuffers, WideImplicitBuffersHoldSeveralPlanes) {
    int buffer, planes;
    long offset;
    implicit_host(6);
    get_buffer_index_from_spark_info(5, &buffer, &planes, &offset);
    EXPECT_EQ(planes, 3);
    EXPECT_EQ(buffer, 2 + 1 + 1) << "third buffer after the inputs, the first of which is the destination";
    EXPECT_EQ(offset, 2 * 512 * 2) << "plane 2";
    info.FrameDepth = SPARK_DEPTH_8;
    get_buffer_index_from_spark_info(5, &buffer, &planes, &offset);
    EXPECT_EQ(planes, 1);
    EXPECT_EQ(buffer, 2 + 5 + 1);
    EXPECT_EQ(offset, 0);
}

TEST_F(HostBuffers, TooManyTemporariesTellTheHost) {
    implicit_host(4);
    info.FrameDepth = SPARK_DEPTH_8;
    EXPECT_NE(get_temp_short_buffer_from_spark_info(0), nullptr);
    EXPECT_EQ(get_temp_short_buffer_from_spark_info(1), nullptr);
    ASSERT_FALSE(host.errors.empty());
    EXPECT_EQ(host.errors.back(), "This effect needs too many temp images, up image buffer number.");
}

TEST_F(HostBuffers, RegisteredTemporariesStandBehindThePluginsInputs) {
    for (const int of_effect : {0, 1, 2, 4}) {
        record->number_of_input_images = of_effect;
        get_temp_short_buffer_from_spark_info(0);
        EXPECT_EQ(asked.back(), 4) << "the id behind the destination and both inputs";
        image_buffer_changed_p(1);
        EXPECT_EQ(asked.back(), 5);
    }
}

TEST_F(HostBuffers, IdsOfTheHostAreTakenAsTheyAre) {
    plugin.buffers.list.resize(100000);
    record->buffer_ids[3] = 74565;
    get_temp_short_buffer_from_spark_info(0);
    ASSERT_FALSE(asked.empty());
    EXPECT_EQ(asked.back(), 74565);
}

TEST_F(HostBuffers, MissingOrUnallocatedBuffersGiveNull) {
    record->buffer_ids[1] = 99;
    EXPECT_EQ(get_spark_buffer(1), nullptr);
    ASSERT_FALSE(host.errors.empty());
    EXPECT_EQ(host.errors.back(), "Fatal Error: sparkMemGetBuffer(99) returned error, can't process.");
    record->buffer_ids[1] = 2;
    state = SPARK_BUF_REGISTERED;
    EXPECT_EQ(get_spark_buffer(1), nullptr);
    ASSERT_FALSE(host.messages.empty());
    EXPECT_EQ(host.messages.back(), "Error: Bad state 0x1 for Spark buf 1, ID 2.");
}

TEST_F(HostBuffers, LongImageBorrowsTheDestinationWhereItFits) {
    EXPECT_EQ(reinterpret_cast<char*>(spark_set_long_image(32, 16)), memory[1].data());
    EXPECT_EQ(the_frame->long_image_source, long_image_borrowed);
    the_frame->render_field = 1;
    spark_set_long_image(32, 16);
    EXPECT_EQ(the_frame->long_image_source, long_image_heap) << "the other field's rows are in the destination already";
    the_frame->render_field = 0;
    info.FrameDepth = SPARK_DEPTH_8;
    spark_set_long_image(32, 16);
    EXPECT_EQ(the_frame->long_image_source, long_image_heap) << "8-bit frames are too small";
}

TEST_F(HostBuffers, LongImageTakesItsRegisteredBufferElseTheHeap) {
    info.FrameDepth = SPARK_DEPTH_8;
    record->render_flags = render_needs_long_image;
    record->long_buffer_id = 9;
    EXPECT_EQ(reinterpret_cast<char*>(spark_set_long_image(32, 16)), memory[9].data());
    EXPECT_EQ(the_frame->long_image_source, long_image_registered);
    state = 0;
    EXPECT_NE(spark_set_long_image(32, 16), nullptr);
    EXPECT_EQ(the_frame->long_image_source, long_image_heap) << "not allocated by the host";
    record->long_buffer_id = 77;
    EXPECT_NE(spark_set_long_image(32, 16), nullptr);
    EXPECT_EQ(the_frame->long_image_source, long_image_heap) << "no such buffer";
}

TEST_F(HostBuffers, HeapBlockIsSharedAndOutlivesTheLongImage) {
    implicit_host(3);
    int32_t* const image = spark_set_long_image(32, 16);
    void* const shared = spark_set_mipmap(100);
    EXPECT_EQ(shared, image);
    EXPECT_EQ(the_frame->mipmap_source, mipmap_shares_long_image);
    void* const grown = spark_set_mipmap(1 << 20);
    std::memset(grown, 1, 1 << 20);
    EXPECT_EQ(spark_set_long_image(32, 16), grown) << "one block serves both";
    spark_free_long_image();
    EXPECT_EQ(the_frame->long_image_source, long_image_none);
    EXPECT_EQ(the_frame->mipmap_source, mipmap_heap);
    std::memset(grown, 2, 1 << 20);
    EXPECT_EQ(spark_set_mipmap(1 << 20), grown) << "the mipmap is the block's sole owner now";
    EXPECT_EQ(spark_set_long_image(32, 16), grown) << "and shares it again";
    EXPECT_EQ(the_frame->mipmap_source, mipmap_shares_long_image);
}

TEST_F(HostBuffers, GrowingEitherSlotKeepsTheOtherUsable) {
    implicit_host(3);
    spark_set_mipmap(64);
    int32_t* const image = spark_set_long_image(300, 300);
    std::memset(image, 3, 300 * 300 * 4);
    void* const mipmap = spark_set_mipmap(300 * 300 * 4);
    std::memset(mipmap, 4, 300 * 300 * 4);
    spark_free_mipmap();
    std::memset(spark_set_long_image(300, 300), 5, 300 * 300 * 4);
}

TEST_F(HostBuffers, DirtyBuffersAreNotTrusted) {
    state = SPARK_BUF_ALLOCATED | SPARK_BUF_DIRTY;
    EXPECT_EQ(image_buffer_changed_p(0), 1);
    state = SPARK_BUF_ALLOCATED | SPARK_BUF_CLEAN;
    EXPECT_EQ(image_buffer_changed_p(0), 0);
    implicit_host(4);
    EXPECT_EQ(image_buffer_changed_p(0), 1) << "such hosts promise nothing";
}

TEST(MipmapSize, CountsLevelsWithBorders) {
    // Level 0 alone: (5 + 2) * (3 + 2) samples of four elements of two bytes; eight bytes a pixel are fewer.
    EXPECT_EQ(mipmap_bytes(5, 3, false), 7u * 5 * 8);
    // Widths 5, 3, 2, 1 and heights 3, 2, 1, each with two border samples.
    EXPECT_EQ(mipmap_bytes(5, 3, true), (11u + 8) * (6 + 6) * 8);
    EXPECT_EQ(mipmap_bytes(1, 1, true), (2u + 4) * (2 + 4) * 8) << "two levels at the least";
}

TEST(Record, ACopyOwnsNothingOfItsParent) {
    GlobalsV4Record* const parent = V4_init_globals(nullptr);
    parent->effect_strings[0] = strdup("(def_effect A () () dest = 1)");
    parent->owned_strings = 1;
    parent->run_records[0].last_frame = 7;
    GlobalsV4Record* const copy = V4_init_globals(parent);
    EXPECT_EQ(Globals_V4, copy);
    EXPECT_EQ(copy->run_record, &copy->run_records[0]);
    EXPECT_EQ(copy->run_record->last_frame, 7);
    V4_free_globals(copy);
    EXPECT_STREQ(parent->effect_strings[0], "(def_effect A () () dest = 1)");
    V4_free_globals(parent);
}

}  // namespace
