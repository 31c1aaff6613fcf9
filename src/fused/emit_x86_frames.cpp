#include "fused/emit_x86_frames.h"

namespace velloran {

// ---- Samples in

void X86Frames::use_form(int form) {
    if (form_used_[form]) return;
    form_used_[form] = true;
    offset_[form] = cc_.newUIntPtr();
    cc_.xor_(offset_[form], offset_[form]);
}

X86Frames::Gp X86Frames::pointer(size_t offset) {
    const Gp p = cc_.newUIntPtr();
    cc_.mov(p, asmjit::x86::ptr(call_, static_cast<int32_t>(offset)));
    return p;
}

void X86Frames::open() {
    blocks_ = pointer(offsetof(FusedCall, blocks));
    constants_ = pointer(offsetof(FusedCall, constants));
    const size_t n_out = plan_.output_form == form_planes ? plan_.outputs.size() : 1;
    for (size_t o = 0; o < n_out; ++o) outputs_[o] = pointer(offsetof(FusedCall, outputs) + o * sizeof(void*));
    use_form(plan_.output_form);
    for (size_t s = 0; s < plan_.source_forms.size(); ++s) {
        sources_[s] = pointer(offsetof(FusedCall, sources) + s * sizeof(void*));
        use_form(plan_.source_forms[s]);
    }
}

// Three vectors of interleaved elements as 16-bit words. AVX2: those of the first eight pixels in the lower lanes.
void X86Frames::load_elements(const Gp& base, int form, Vec* out) {
    const Gp& at = offset_[form];
    for (int k = 0; k < 3; ++k) {
        if (big_) {
            out[k] = form == form_rgb8 ? made(Inst::kIdVpmovzxbw, asmjit::x86::ptr(base, at, 0, 32 * k))
                                       : made(move(), asmjit::x86::ptr(base, at, 0, 64 * k));
            continue;
        }
        out[k] = vec();
        if (form == form_rgb8) {
            const Vec upper = cc_.newXmm();
            emit(Inst::kIdVpmovzxbw, out[k].xmm(), asmjit::x86::ptr(base, at, 0, 8 * k));
            emit(Inst::kIdVpmovzxbw, upper, asmjit::x86::ptr(base, at, 0, 8 * k + 24));
            emit(Inst::kIdVinserti128, out[k], out[k], upper, asmjit::Imm(1));
        } else {
            emit(Inst::kIdVmovdqu, out[k].xmm(), asmjit::x86::ptr(base, at, 0, 16 * k));
            emit(Inst::kIdVinserti128, out[k], out[k], asmjit::x86::ptr(base, at, 0, 16 * k + 48), asmjit::Imm(1));
        }
    }
}

// Where channel c stands among three groups of n words: word j of it is word (3 j + c) of all.
X86Frames::Vec X86Frames::separated(const Vec* in, int channel) {
    if (big_) {
        uint16_t first[32], second[32];
        for (int j = 0; j < 32; ++j) {
            const int word = 3 * j + channel;
            first[j] = static_cast<uint16_t>(word < 64 ? word : 0);
            second[j] = static_cast<uint16_t>(word < 64 ? j : 32 + word - 64);
        }
        const Vec r = made(move(), words(first));
        emit(Inst::kIdVpermi2w, r, in[0], in[1]);
        emit(Inst::kIdVpermt2w, r, made(move(), words(second)), in[2]);
        return r;
    }
    int from[3] = {};
    uint8_t order[64];
    for (int p = 0; p < 8; ++p)
        for (int k = 0; k < 3; ++k)
            if ((8 * k + p) % 3 == channel) from[k] |= 1 << p;
    for (int i = 0; i < 64; ++i) order[i] = static_cast<uint8_t>((3 * (i / 2 % 8) + channel) % 8 * 2 + i % 2);
    const Vec mixed = vec(), all = vec();
    emit(Inst::kIdVpblendw, mixed, in[0], in[1], asmjit::Imm(from[1]));
    emit(Inst::kIdVpblendw, all, mixed, in[2], asmjit::Imm(from[2]));
    return made(Inst::kIdVpshufb, all, literal(order));
}

X86Frames::Mem X86Frames::words(const uint16_t (&w)[32]) {
    uint8_t bytes[64];
    std::memcpy(bytes, w, sizeof bytes);
    return literal(bytes);
}

X86Frames::Vec X86Frames::load(int number) {
    const ValueSample& sample = plan_.samples[static_cast<size_t>(number)];
    const auto source = static_cast<size_t>(sample.source);
    const int form = plan_.source_forms[source];
    if (form == form_planes) return made(move(), asmjit::x86::ptr(sources_[source], offset_[form]));
    if (!elements_loaded_[source]) {
        load_elements(sources_[source], form, elements_[source].data());
        elements_loaded_[source] = true;
    }
    Vec element = separated(elements_[source].data(), sample.channel);
    if (form == form_rgb8) {
        element = made(bit_or(), made(Inst::kIdVpsllw, element, 4), made(Inst::kIdVpsrlw, element, 4));
    } else if (form == form_rgb10) {
        element = made(bit_and(), element, literal_16(0xffc0));
        element = made(bit_or(), made(Inst::kIdVpsrlw, element, 4), made(Inst::kIdVpsrlw, element, 14));
    } else {
        element = made(Inst::kIdVpsrlw, element, 4);
    }
    return element;
}

// ---- Results out

X86Frames::Vec X86Frames::clipped(size_t o, Vec v, int low, int high) {
    const PlannedOutput& output = plan_.outputs[o];
    if (output.flags & plan_clip_low) v = made(Inst::kIdVpmaxsw, v, literal_16(low & 0xffff));
    if (output.flags & plan_clip_high) v = made(Inst::kIdVpminsw, v, literal_16(high & 0xffff));
    return v;
}

void X86Frames::store_planes(const Vec* results) {
    for (size_t o = 0; o < plan_.outputs.size(); ++o)
        emit(move(), asmjit::x86::ptr(outputs_[o], offset_[form_planes]),
             clipped(o, results[o], -fix_image_limit, fix_image_limit));
}

void X86Frames::store_host(const Vec* results) {
    const int form = plan_.output_form;
    Vec channel[3];
    for (size_t c = 0; c < 3; ++c) {
        if (c && plan_.outputs.size() == 1) {
            channel[c] = channel[0];
            continue;
        }
        const Vec v = clipped(c, results[c], 0, fix_max);
        channel[c] = form == form_rgb8 ? made(Inst::kIdVpsrlw, v, 4) : made(Inst::kIdVpsllw, v, 4);
        if (form == form_rgb10) channel[c] = made(bit_and(), channel[c], literal_16(0xffc0));
    }
    Vec out[3];
    join(channel, out);
    const Gp &base = outputs_[0], &at = offset_[form];
    for (int k = 0; k < 3; ++k) {
        if (form == form_rgb8)
            store_bytes(base, at, k, out[k]);
        else
            store_elements(base, at, k, out[k], form == form_rgb10 ? 63 : 15);
    }
}

// Channels to interleaved words.
void X86Frames::join(const Vec* channel, Vec* out) {
    if (big_) {
        for (int k = 0; k < 3; ++k) {
            uint16_t first[32], second[32];
            for (int p = 0; p < 32; ++p) {
                const int word = 32 * k + p, c = word % 3, j = word / 3;
                first[p] = static_cast<uint16_t>(c == 2 ? 0 : 32 * c + j);
                second[p] = static_cast<uint16_t>(c == 2 ? 32 + j : p);
            }
            out[k] = made(move(), words(first));
            emit(Inst::kIdVpermi2w, out[k], channel[0], channel[1]);
            emit(Inst::kIdVpermt2w, out[k], made(move(), words(second)), channel[2]);
        }
        return;
    }
    Vec placed[3];
    for (int c = 0; c < 3; ++c) {
        uint8_t order[64];
        for (int i = 0; i < 64; ++i) {
            int j = 0;
            while ((3 * j + c) % 8 != i / 2 % 8) ++j;
            order[i] = static_cast<uint8_t>(2 * j + i % 2);
        }
        placed[c] = made(Inst::kIdVpshufb, channel[c], literal(order));
    }
    for (int k = 0; k < 3; ++k) {
        int from[3] = {};
        for (int p = 0; p < 8; ++p) from[(8 * k + p) % 3] |= 1 << p;
        const Vec mixed = vec();
        out[k] = vec();
        emit(Inst::kIdVpblendw, mixed, placed[0], placed[1], asmjit::Imm(from[1]));
        emit(Inst::kIdVpblendw, out[k], mixed, placed[2], asmjit::Imm(from[2]));
    }
}

// The host's words keep their low bits.
void X86Frames::store_elements(const Gp& base, const Gp& at, int k, const Vec& v, uint32_t kept_bits) {
    if (big_) {
        const Mem to = asmjit::x86::ptr(base, at, 0, 64 * k);
        const Vec kept = made(Inst::kIdVpandd, made(move(), literal_16(kept_bits)), to);
        emit(move(), to, made(Inst::kIdVpord, kept, v));
        return;
    }
    const Mem low = asmjit::x86::ptr(base, at, 0, 16 * k), high = asmjit::x86::ptr(base, at, 0, 16 * k + 48);
    const Vec old = vec();
    emit(Inst::kIdVmovdqu, old.xmm(), low);
    emit(Inst::kIdVinserti128, old, old, high, asmjit::Imm(1));
    const Vec r = made(Inst::kIdVpor, v, made(Inst::kIdVpand, old, literal_16(kept_bits)));
    emit(Inst::kIdVmovdqu, low, r.xmm());
    emit(Inst::kIdVextracti128, high, r, asmjit::Imm(1));
}

void X86Frames::store_bytes(const Gp& base, const Gp& at, int k, const Vec& v) {
    if (big_) {
        emit(Inst::kIdVpmovwb, asmjit::x86::ptr(base, at, 0, 32 * k), v);
        return;
    }
    const Vec bytes = made(Inst::kIdVpackuswb, v, v);
    const Vec upper = cc_.newXmm();
    emit(Inst::kIdVextracti128, upper, bytes, asmjit::Imm(1));
    emit(Inst::kIdVmovq, asmjit::x86::ptr(base, at, 0, 8 * k), bytes.xmm());
    emit(Inst::kIdVmovq, asmjit::x86::ptr(base, at, 0, 8 * k + 24), upper);
}

void X86Frames::store(const Vec* results) {
    if (plan_.output_form == form_planes)
        store_planes(results);
    else
        store_host(results);
}

void X86Frames::advance() {
    for (int form = 0; form <= form_planes; ++form)
        if (form_used_[form]) cc_.add(offset_[form], lanes_ * pixel_bytes(form));
}

}  // namespace velloran
