// A plug-in of the simplest kind, written against the host interface alone: adds its gain to every byte of its first
// input, on all tasks, and keeps a diary.
#include "spark/spark.h"

#include <cstring>
#include <string>

#define SPARK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

std::string diary;
int wanted_buffers = 2;
int buffer_ids[32];
bool explicit_buffers = false;

void* on_gain(int action, SparkInfoStruct info);

SparkFloatStruct gain = {1, 0, 100, 1, "Gain", on_gain};
SparkColourStruct tint = {0, "Tint", nullptr};
SparkBooleanStruct on = {1, "On", nullptr};
SparkPopupStruct mode = {1, 2, {"Add", "Copy"}, "Mode", nullptr};
SparkStringStruct label = {"", "Label", nullptr};
SparkIntStruct edge = {0, -100, 100, 1, "Edge", nullptr};
const SparkControl controls[] = {
    {6, SPARK_CONTROL_FLOAT, &gain},  {13, SPARK_CONTROL_COLOUR, &tint},  {14, SPARK_CONTROL_BOOLEAN, &on},
    {35, SPARK_CONTROL_POPUP, &mode}, {36, SPARK_CONTROL_STRING, &label}, {64, SPARK_CONTROL_INT, &edge},
};

const unsigned char* source;
unsigned char* dest;
long samples_per_pixel;
long frame_pixels;
int processors;

void add_stripe() {
    int offset = 0, size = 0;
    sparkMpInfo(&offset, &size);
    const long first = offset * samples_per_pixel, last = (offset + size) * samples_per_pixel;
    for (long i = first; i < last; i++) dest[i] = static_cast<unsigned char>(source[i] + static_cast<int>(gain.Value));
}

void* buffer(const SparkInfoStruct& info, int id) {
    if (!explicit_buffers) return info.FrameBuffers[id == 1 ? 1 : 0];
    SparkMemBufStruct answer = {};
    if (!sparkMemGetBuffer(id, &answer) || !(answer.BufferState & SPARK_BUF_ALLOCATED)) return nullptr;
    diary += answer.BufferState & SPARK_BUF_CLEAN ? "c" : "d";
    return answer.Buffer;
}

void* on_gain(int action, SparkInfoStruct info) {
    diary += "callback" + std::to_string(action) + " ";
    return buffer(info, 1);
}

}  // namespace

SPARK_EXPORT const char* test_diary() { return diary.c_str(); }
SPARK_EXPORT void test_clear_diary() { diary.clear(); }
SPARK_EXPORT void test_want_buffers(int n) { wanted_buffers = n; }

SPARK_EXPORT int SparkIsInputFormatSupported(int depth) { return depth == SPARK_DEPTH_8 || depth == SPARK_DEPTH_12; }

SPARK_EXPORT int SparkClips(void) {
    diary += "clips ";
    SparkInfoStruct info;
    if (sparkGetInfo(&info)) diary += std::string(info.Name) + " ";
    explicit_buffers = false;
    buffer_ids[0] = -1;
    sparkSetControlName(1, 6, "Gain: ");
    return 1;
}

SPARK_EXPORT void SparkMemoryTempBuffers(void) {
    diary += "buffers ";
    explicit_buffers = true;
    SparkInfoStruct info;
    sparkGetInfo(&info);
    for (int i = 0; i < wanted_buffers; i++) buffer_ids[i] = sparkMemRegisterBufferSize(info.FrameBytes);
}

SPARK_EXPORT int SparkInitialise(SparkInfoStruct) {
    diary += "initialise ";
    for (int i = 0; explicit_buffers && i < wanted_buffers; i++)
        if (buffer_ids[i] == 0) return 0;
    if (sparkMemRegisterBufferSize(1) != 0) diary += "LATE REGISTRATION ";
    return 2;
}

SPARK_EXPORT int SparkControls(const SparkControl** list) {
    diary += "controls ";
    *list = controls;
    return 6;
}

SPARK_EXPORT int SparkProcessStart(SparkInfoStruct info) {
    diary += "start ";
    return info.TotalFrameNo - static_cast<int>(info.FrameNo);
}

SPARK_EXPORT void* SparkProcess(SparkInfoStruct info) {
    diary += "process" + std::to_string(info.FrameNo) + ":";
    dest = static_cast<unsigned char*>(buffer(info, 1));
    source = static_cast<unsigned char*>(buffer(info, 2));
    for (int i = 0; explicit_buffers && i < wanted_buffers; i++) buffer(info, buffer_ids[i]);
    diary += " ";
    if (!dest || !source) return nullptr;
    samples_per_pixel = info.FrameBytes / info.FramePixels;
    frame_pixels = info.FramePixels;
    processors = info.Processors;
    if (mode.Value == 1)
        sparkMpFork(add_stripe, 0);
    else
        std::memcpy(dest, source, static_cast<size_t>(info.FrameBytes));
    return dest;
}

SPARK_EXPORT void* SparkInteract(SparkInfoStruct, int, int, float pressure, float, float, float) {
    diary += pressure > 0 ? "down " : "up ";
    return nullptr;
}

SPARK_EXPORT void SparkOverlay(SparkInfoStruct, float) { diary += "overlay "; }
SPARK_EXPORT void SparkUnInitialise(SparkInfoStruct) { diary += "uninitialise "; }
