// The way of a loop's samples from the caller's frames and planes into registers, and of its results back.
#pragma once

#include "fused/emit_x86_writer.h"

#include <array>

namespace velloran {

class X86Frames : protected X86Writer {
protected:
    X86Frames(asmjit::CodeHolder* holder, const FusedPlan& plan, int vector_bytes, FusedCode* code)
        : X86Writer(holder, vector_bytes, code), plan_(plan) {}

    // Before the loop: all pointers of the call. call_ is set.
    void open();
    // One of the plan's samples, of a round's pixels. Everything is loaded before anything is stored.
    Vec load(int number);
    // One register of 16-bit lanes an output.
    void store(const Vec* results);
    // On to the next round's pixels.
    void advance();

    const FusedPlan& plan_;
    Gp call_, blocks_;

private:
    static int pixel_bytes(int form) { return form == form_planes ? 2 : host_form_pixel_bytes[form]; }
    void use_form(int form);
    Gp pointer(size_t offset);
    void load_elements(const Gp& base, int form, Vec* out);
    Vec separated(const Vec* in, int channel);
    Mem words(const uint16_t (&w)[32]);
    Vec clipped(size_t o, Vec v, int low, int high);
    void store_planes(const Vec* results);
    void store_host(const Vec* results);
    void join(const Vec* channel, Vec* out);
    void store_elements(const Gp& base, const Gp& at, int k, const Vec& v, uint32_t kept_bits);
    void store_bytes(const Gp& base, const Gp& at, int k, const Vec& v);

    Gp outputs_[max_fused_outputs], sources_[max_fused_sources];
    Gp offset_[form_planes + 1];
    bool form_used_[form_planes + 1] = {};
    std::array<std::array<Vec, 3>, max_fused_sources> elements_;
    bool elements_loaded_[max_fused_sources] = {};
};

}  // namespace velloran
