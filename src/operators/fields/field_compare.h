// How different two fields of a clip are: an oracle that reads each pair of frames once and remembers all that it says
// of their four fields. Nothing but pixels is looked at.
//
// Fields are named by their place in the frame (physical) or by their place in time (logical); the dominance relates
// the two. Questions that leave the clip's window, and those after a user's abort or a frame that did not come, have no
// answer: null. That is how a scan ends.
//
// The memory is that of the call in hand (frame_malloc). Host's thread, outside forks.
#pragma once

#include "records/fix_pixel.h"
#include "support/memory.h"

#include <map>
#include <utility>

namespace velloran {

// Lines are counted from the bottom.
enum physical_field : int { field_of_even_lines = 0, field_of_odd_lines = 1 };
enum logical_field : int { field_first_in_time = 0, field_second_in_time = 1 };
inline logical_field operator!(logical_field field) {
    return field == field_first_in_time ? field_second_in_time : field_first_in_time;
}

struct FieldDelta {
    float value = 0;      // difference of two fields, in percent
    float threshold = 0;  // below it the fields count as repeats of each other; Pattern sets it
};

// Containers of the call in hand. What a fatal abort passes needs no destructor: its memory is given back.
template <class T>
struct FrameAllocator {
    using value_type = T;
    FrameAllocator() = default;
    template <class U>
    FrameAllocator(const FrameAllocator<U>&) {}
    T* allocate(size_t n) { return frame_array<T>(n); }
    void deallocate(T* block, size_t) { frame_free(block); }
    friend bool operator==(const FrameAllocator&, const FrameAllocator&) { return true; }
};

class FieldCompare {
public:
    // a, b: channels planes each, of FrameWidth * FrameHeight samples, for two frames; channels is 3. The window is the
    // frames first_frame to first_frame + n_frames - 1, and ends before last_frame. A clip below 0 is reported, and
    // then nothing has an answer.
    FieldCompare(FixPixel* const* a, FixPixel* const* b, unsigned channels, int first_frame, int n_frames,
                 int last_frame, int clip);

    void set_n_frames(int n);
    int get_n_frames() const { return limit_ - first_frame_; }
    void set_dominance(physical_field first_in_time) { dominance_ = first_in_time; }
    physical_field get_physical_field(logical_field field) const {
        return field == field_first_in_time ? dominance_ : static_cast<physical_field>(1 - dominance_);
    }

    // The position that next_delta and look_behind speak of; frames are counted from the window's first.
    void seek(int frame_offset, logical_field field);
    void save_position() { saved_ = current_; }  // one deep
    void restore_position() { current_ = saved_; }

    // When a field is shown, in frames; the odd lines count half a frame later.
    static float field_to_float(int frame, physical_field field) {
        return static_cast<float>(frame) + 0.5f * static_cast<float>(field);
    }
    // The times of two fields, the smaller one first.
    std::pair<float, float> get_field_pair(int f1, logical_field l1, int f2, logical_field l2) const;

    // The answers stay where they are as long as this lives.
    FieldDelta* compare_fields(int f1, logical_field l1, int f2, logical_field l2);
    // The present field and the next one in time, to which it moves.
    FieldDelta* next_delta();
    // The field n fields back, held to the window's first, and the present one.
    FieldDelta* look_behind(int n);

    // Enters what two frames in memory say of their fields. False after a user's abort.
    bool store_frame_differences(int f1, int f2, const FixPixel* const* images1, const FixPixel* const* images2);

private:
    struct Position {
        int frame;
        logical_field field;
    };
    struct LoadedFrame {
        FixPixel* const* planes;
        int frame;  // -1: none
    };
    bool load(LoadedFrame& into, int frame);
    bool load_pair(int f1, int f2);

    LoadedFrame a_, b_;
    unsigned channels_;
    physical_field dominance_ = field_of_even_lines;
    int first_frame_, limit_, last_frame_, clip_;
    Position current_, saved_;
    using Times = std::pair<float, float>;
    std::map<Times, FieldDelta, std::less<Times>, FrameAllocator<std::pair<const Times, FieldDelta>>> deltas_;
};

}  // namespace velloran
