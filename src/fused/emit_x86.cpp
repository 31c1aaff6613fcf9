// Machine code through AsmJit, for AVX2 and AVX-512. One round of the loop works as many pixels as a vector has lanes
// of 16 bits: the samples are loaded and their channels separated, the values worked in the plan's order, the outputs
// joined with what the host's words keep and stored. Everything is loaded before anything is stored, since a pass may
// write the planes that it reads.
//
// Numbers in 32 bits take two vectors: of each 128-bit lane the lower four samples, and the upper four, as the
// instructions that unpack make them and the ones that pack take them.
#include "fused/emit_code.h"

#include <asmjit/x86.h>

#include <array>
#include <cstdlib>
#include <cstring>

// The library as it is packaged cannot go into a shared object for the sake of these three functions, which write to
// standard error; its own are not taken where they are here.
namespace asmjit {
inline namespace ASMJIT_ABI_NAMESPACE {
namespace DebugUtils {
const char* errorAsString(Error) noexcept { return ""; }
void debugOutput(const char*) noexcept {}
void assertionFailed(const char*, int, const char*) noexcept { std::abort(); }
}  // namespace DebugUtils
}  // namespace ASMJIT_ABI_NAMESPACE
}  // namespace asmjit

namespace velloran {

const bool code_can_be_emitted = true;

namespace {

using asmjit::x86::Gp;
namespace Inst = asmjit::x86::Inst;
using asmjit::x86::KReg;
using asmjit::x86::Mem;
using asmjit::x86::Vec;
using Operand = asmjit::Operand;
using InstId = asmjit::InstId;

// Of one value: the registers that hold it, in the lanes that were asked for so far.
struct Held {
    Vec narrow, wide[2];
    bool has_narrow = false, has_wide = false;
    KReg mask, wide_mask[2];  // AVX-512
    bool has_mask = false, has_wide_mask = false;
    std::array<Vec, 5> shifted;  // 16-bit lanes, shifted left
    std::array<bool, 5> has_shifted = {};
};

class Emitter {
public:
    Emitter(asmjit::CodeHolder* holder, const FusedPlan& plan, int vector_bytes, FusedCode* code)
        : cc_(holder), plan_(plan), big_(vector_bytes == 64), lanes_(vector_bytes / 2), code_(*code) {
        held_.resize(plan.values.size());
    }

    bool run() {
        find_rows();
        auto* const function = cc_.addFunc(asmjit::FuncSignatureT<void, const void*>(asmjit::CallConvId::kHost));
        function->frame().setAvxEnabled();
        if (big_) function->frame().setAvx512Enabled();
        function->frame().setAvxCleanup();
        call_ = cc_.newUIntPtr();
        function->setArg(0, call_);
        prepare();
        const asmjit::Label loop = cc_.newLabel();
        cc_.bind(loop);
        for (size_t i = 0; i < plan_.values.size(); ++i)
            if (plan_.values[i].op == ValueOp::sample) load_sample(static_cast<int>(i));
        for (size_t i = 0; i < plan_.values.size(); ++i) work(static_cast<int>(i));
        if (plan_.output_form == form_planes)
            store_planes();
        else
            store_host();
        for (int form = 0; form <= form_planes; ++form)
            if (form_used_[form]) cc_.add(offset_[form], lanes_ * pixel_bytes(form));
        cc_.dec(blocks_);
        cc_.jnz(loop);
        cc_.ret();
        cc_.endFunc();
        return cc_.finalize() == asmjit::kErrorOk;
    }

private:
    static int pixel_bytes(int form) { return form == form_planes ? 2 : host_form_pixel_bytes[form]; }

    // ---- Instructions

    Vec vec() {
        if (big_) return cc_.newZmm();
        return cc_.newYmm();
    }
    void emit(InstId id, const Operand& a, const Operand& b) { cc_.emit(id, a, b); }
    void emit(InstId id, const Operand& a, const Operand& b, const Operand& c) { cc_.emit(id, a, b, c); }
    void emit(InstId id, const Operand& a, const Operand& b, const Operand& c, const Operand& d) {
        cc_.emit(id, a, b, c, d);
    }
    Vec made(InstId id, const Operand& a) {
        const Vec r = vec();
        emit(id, r, a);
        return r;
    }
    Vec made(InstId id, const Operand& a, const Operand& b) {
        const Vec r = vec();
        emit(id, r, a, b);
        return r;
    }
    Vec made(InstId id, const Operand& a, int number) { return made(id, a, asmjit::Imm(number)); }
    InstId move() const { return big_ ? Inst::kIdVmovdqu64 : Inst::kIdVmovdqu; }
    InstId bit_and() const { return big_ ? Inst::kIdVpandd : Inst::kIdVpand; }
    InstId bit_or() const { return big_ ? Inst::kIdVpord : Inst::kIdVpor; }
    InstId bit_xor() const { return big_ ? Inst::kIdVpxord : Inst::kIdVpxor; }

    // ---- Constants

    Mem row(ConstantRow::Kind kind, int a, int b = -1, int shift = 0) {
        ConstantRow wanted = {};
        wanted.kind = kind;
        wanted.shift = static_cast<uint8_t>(shift);
        wanted.a = static_cast<int16_t>(a);
        wanted.b = static_cast<int16_t>(b);
        return row_of(wanted);
    }
    Mem literal(const uint8_t (&bytes)[64]) {
        ConstantRow wanted = {};
        wanted.kind = ConstantRow::literal;
        std::memcpy(wanted.bytes, bytes, sizeof wanted.bytes);
        return row_of(wanted);
    }
    Mem literal_32(uint32_t number) {
        uint8_t bytes[64];
        for (int i = 0; i < 64; i += 4) std::memcpy(bytes + i, &number, 4);
        return literal(bytes);
    }
    Mem literal_16(uint32_t number) { return literal_32(number | number << 16); }
    Mem row_of(const ConstantRow& wanted) {
        size_t i = 0;
        while (i < code_.rows.size() && std::memcmp(&code_.rows[i], &wanted, sizeof wanted) != 0) ++i;
        if (i == code_.rows.size()) code_.rows.push_back(wanted);
        return asmjit::x86::ptr(constants_, static_cast<int32_t>(i * sizeof wanted.bytes));
    }
    // Tables lie behind the rows, whose number must be known before the first of them is addressed: it is counted high.
    void find_rows() {
        size_t most = 48;
        for (const PlannedValue& v : plan_.values) most += v.op == ValueOp::constant ? 8 : 2;
        if (!plan_.tables.empty()) tables_ = table_offsets(plan_, most);
        most_rows_ = most;
    }

    bool is_constant(int i) const {
        const ValueOp op = plan_.values[static_cast<size_t>(i)].op;
        return op == ValueOp::constant || op == ValueOp::f_constant;
    }

    // ---- Forms of values

    Held& held(int i) { return held_[static_cast<size_t>(i)]; }

    // Of a constant the place in memory, else the register.
    Operand narrow_or_memory(int i) {
        if (is_constant(i)) return row(ConstantRow::lanes_of_16, i);
        return narrow(i);
    }
    Vec narrow(int i) {
        if (is_constant(i)) return made(move(), row(ConstantRow::lanes_of_16, i));
        Held& h = held(i);
        if (!h.has_narrow) {
            h.narrow = made(Inst::kIdVpackssdw, h.wide[0], h.wide[1]);
            h.has_narrow = true;
        }
        return h.narrow;
    }
    Operand wide_or_memory(int i, int half) {
        if (is_constant(i)) return row(ConstantRow::lanes_of_32, i);
        return wide(i, half);
    }
    Vec wide(int i, int half) {
        if (is_constant(i)) return made(move(), row(ConstantRow::lanes_of_32, i));
        Held& h = held(i);
        if (!h.has_wide) {
            for (int k = 0; k < 2; ++k) {
                const Vec twice = made(k ? Inst::kIdVpunpckhwd : Inst::kIdVpunpcklwd, h.narrow, h.narrow);
                h.wide[k] = made(Inst::kIdVpsrad, twice, 16);
            }
            h.has_wide = true;
        }
        return h.wide[half];
    }
    Operand shifted_or_memory(int i, int shift) {
        if (is_constant(i)) return row(ConstantRow::lanes_of_16, i, -1, shift);
        if (shift == 0) return narrow(i);
        Held& h = held(i);
        const auto s = static_cast<size_t>(shift);
        if (!h.has_shifted[s]) {
            h.shifted[s] = made(Inst::kIdVpsllw, narrow(i), shift);
            h.has_shifted[s] = true;
        }
        return h.shifted[s];
    }
    Vec in_register(const Operand& operand) { return operand.isMem() ? made(move(), operand) : operand.as<Vec>(); }

    void set_narrow(int i, const Vec& v) {
        held(i).narrow = v;
        held(i).has_narrow = true;
    }
    void set_wide(int i, const Vec& low, const Vec& high) {
        held(i).wide[0] = low;
        held(i).wide[1] = high;
        held(i).has_wide = true;
    }

    // Masks: registers of bits with AVX-512, vectors of all ones and zeros with AVX2.
    KReg mask(int i) {
        Held& h = held(i);
        if (!h.has_mask) {
            const Vec low = made(Inst::kIdVpmovm2d, h.wide_mask[0]), high = made(Inst::kIdVpmovm2d, h.wide_mask[1]);
            h.mask = cc_.newKd();
            emit(Inst::kIdVpmovw2m, h.mask, made(Inst::kIdVpackssdw, low, high));
            h.has_mask = true;
        }
        return h.mask;
    }
    KReg wide_mask(int i, int half) {
        Held& h = held(i);
        if (!h.has_wide_mask) {
            const Vec ones = made(Inst::kIdVpmovm2w, h.mask);
            for (int k = 0; k < 2; ++k) {
                h.wide_mask[k] = cc_.newKd();
                emit(Inst::kIdVpmovd2m, h.wide_mask[k],
                     made(k ? Inst::kIdVpunpckhwd : Inst::kIdVpunpcklwd, ones, ones));
            }
            h.has_wide_mask = true;
        }
        return h.wide_mask[half];
    }

    // ---- Operations

    void work(int i) {
        const PlannedValue& v = plan_.values[static_cast<size_t>(i)];
        switch (v.op) {
            case ValueOp::constant:
            case ValueOp::f_constant:
            case ValueOp::sample:
                return;
            case ValueOp::table:
                return look_up(i, v);
            case ValueOp::greater:
            case ValueOp::equal:
                return compare(i, v);
            case ValueOp::f_greater:
            case ValueOp::f_greater_equal:
            case ValueOp::f_equal:
                return compare_floats(i, v);
            case ValueOp::select:
            case ValueOp::f_select:
                return choose(i, v);
            case ValueOp::multiply:
            case ValueOp::multiply_samples:
                return multiply(i, v);
            case ValueOp::add:
                if (v.flags & plan_sum_of_products) return sum_products(i, v);
                break;
            case ValueOp::to_whole:
                return to_whole(i, v);
            case ValueOp::f_floor:
            case ValueOp::f_round: {
                const int mode = v.op == ValueOp::f_floor ? 9 : 8;
                const InstId id = big_ ? Inst::kIdVrndscaleps : Inst::kIdVroundps;
                const Vec low = made(id, wide(v.a, 0), mode);
                return set_wide(i, low, made(id, wide(v.a, 1), mode));
            }
            case ValueOp::to_float:
            case ValueOp::f_square_root: {
                const InstId id = v.op == ValueOp::to_float ? Inst::kIdVcvtdq2ps : Inst::kIdVsqrtps;
                const Vec low = made(id, wide(v.a, 0));
                return set_wide(i, low, made(id, wide(v.a, 1)));
            }
            case ValueOp::float_of_bits:
            case ValueOp::bits_of_float:
                return set_wide(i, wide(v.a, 0), wide(v.a, 1));
            case ValueOp::f_negate:
                return with_bits(i, v, bit_xor(), 0x80000000u);
            case ValueOp::f_magnitude:
                return with_bits(i, v, bit_and(), 0x7fffffffu);
            case ValueOp::f_with_sign: {
                Vec r[2];
                for (int k = 0; k < 2; ++k) {
                    const Vec sign = made(bit_and(), wide(v.b, k), literal_32(0x80000000u));
                    r[k] = made(bit_or(), sign, wide_or_memory(v.a, k));
                }
                return set_wide(i, r[0], r[1]);
            }
            case ValueOp::shift_left:
            case ValueOp::shift_right:
            case ValueOp::magnitude:
                return unary(i, v);
            default:
                break;
        }
        binary(i, v);
    }

    InstId binary_instruction(ValueOp op, bool in_32) const {
        switch (op) {
            case ValueOp::add:
                return in_32 ? Inst::kIdVpaddd : Inst::kIdVpaddw;
            case ValueOp::subtract:
                return in_32 ? Inst::kIdVpsubd : Inst::kIdVpsubw;
            case ValueOp::smaller:
                return in_32 ? Inst::kIdVpminsd : Inst::kIdVpminsw;
            case ValueOp::larger:
                return in_32 ? Inst::kIdVpmaxsd : Inst::kIdVpmaxsw;
            case ValueOp::bit_and:
                return bit_and();
            case ValueOp::bit_or:
                return bit_or();
            case ValueOp::bit_xor:
                return bit_xor();
            case ValueOp::f_add:
                return Inst::kIdVaddps;
            case ValueOp::f_subtract:
                return Inst::kIdVsubps;
            case ValueOp::f_multiply:
                return Inst::kIdVmulps;
            case ValueOp::f_divide:
                return Inst::kIdVdivps;
            case ValueOp::f_smaller:
                return Inst::kIdVminps;
            default:
                return Inst::kIdVmaxps;
        }
    }
    void binary(int i, const PlannedValue& v) {
        const InstId id = binary_instruction(v.op, v.wide);
        if (!v.wide) return set_narrow(i, made(id, narrow(v.a), narrow_or_memory(v.b)));
        const Vec low = made(id, wide(v.a, 0), wide_or_memory(v.b, 0));
        set_wide(i, low, made(id, wide(v.a, 1), wide_or_memory(v.b, 1)));
    }
    void with_bits(int i, const PlannedValue& v, InstId id, uint32_t bits) {
        const Vec low = made(id, wide(v.a, 0), literal_32(bits));
        set_wide(i, low, made(id, wide(v.a, 1), literal_32(bits)));
    }
    void unary(int i, const PlannedValue& v) {
        const auto one = [&](const Vec& x, bool in_32) {
            if (v.op == ValueOp::magnitude) return made(in_32 ? Inst::kIdVpabsd : Inst::kIdVpabsw, x);
            if (v.op == ValueOp::shift_left) return made(in_32 ? Inst::kIdVpslld : Inst::kIdVpsllw, x, v.number);
            return made(in_32 ? Inst::kIdVpsrad : Inst::kIdVpsraw, x, v.number);
        };
        if (!v.wide) return set_narrow(i, one(narrow(v.a), false));
        const Vec low = one(wide(v.a, 0), true);
        set_wide(i, low, one(wide(v.a, 1), true));
    }

    void multiply(int i, const PlannedValue& v) {
        const bool samples = v.op == ValueOp::multiply_samples;
        if (!v.wide && samples) {
            const InstId id = v.flags & plan_unsigned ? Inst::kIdVpmulhuw : Inst::kIdVpmulhw;
            const Vec a = in_register(shifted_or_memory(v.a, v.shift_a));
            return set_narrow(i, made(id, a, shifted_or_memory(v.b, v.shift_b)));
        }
        if (!v.wide) return set_narrow(i, made(Inst::kIdVpmullw, narrow(v.a), narrow_or_memory(v.b)));
        Vec r[2];
        if (v.flags & plan_narrow_factors) {
            const Vec a = narrow(v.a);
            const Operand b = narrow_or_memory(v.b);
            const Vec low = made(Inst::kIdVpmullw, a, b), high = made(Inst::kIdVpmulhw, a, b);
            r[0] = made(Inst::kIdVpunpcklwd, low, high);
            r[1] = made(Inst::kIdVpunpckhwd, low, high);
        } else {
            for (int k = 0; k < 2; ++k) r[k] = made(Inst::kIdVpmulld, wide(v.a, k), wide_or_memory(v.b, k));
        }
        if (samples)
            for (Vec& half : r) half = made(Inst::kIdVpsrad, half, 12);
        set_wide(i, r[0], r[1]);
    }

    void sum_products(int i, const PlannedValue& v) {
        const Vec a = narrow(v.a), c = narrow(v.c);
        Vec r[2];
        for (int k = 0; k < 2; ++k) {
            const InstId unpack = k ? Inst::kIdVpunpckhwd : Inst::kIdVpunpcklwd;
            const Vec left = made(unpack, a, c);
            if (is_constant(v.b) && is_constant(v.d))
                r[k] = made(Inst::kIdVpmaddwd, left, row(ConstantRow::pairs, v.b, v.d));
            else
                r[k] = made(Inst::kIdVpmaddwd, left, made(unpack, narrow(v.b), narrow(v.d)));
        }
        set_wide(i, r[0], r[1]);
    }

    void compare(int i, const PlannedValue& v) {
        const bool greater = v.op == ValueOp::greater;
        const InstId narrow_id = greater ? Inst::kIdVpcmpgtw : Inst::kIdVpcmpeqw;
        const InstId wide_id = greater ? Inst::kIdVpcmpgtd : Inst::kIdVpcmpeqd;
        Held& h = held(i);
        if (!v.wide) {
            const Vec a = narrow(v.a);
            const Operand b = narrow_or_memory(v.b);
            if (!big_) return set_narrow(i, made(narrow_id, a, b));
            h.mask = cc_.newKd();
            emit(narrow_id, h.mask, a, b);
            h.has_mask = true;
            return;
        }
        for (int k = 0; k < 2; ++k) {
            const Vec a = wide(v.a, k);
            const Operand b = wide_or_memory(v.b, k);
            if (!big_) {
                h.wide[k] = made(wide_id, a, b);
            } else {
                h.wide_mask[k] = cc_.newKd();
                emit(wide_id, h.wide_mask[k], a, b);
            }
        }
        (big_ ? h.has_wide_mask : h.has_wide) = true;
    }
    void compare_floats(int i, const PlannedValue& v) {
        // As less than and at most, with the sides changed; false where there is no number.
        const bool equal = v.op == ValueOp::f_equal;
        const int predicate = equal ? 0 : v.op == ValueOp::f_greater ? 0x11 : 0x12;
        Held& h = held(i);
        for (int k = 0; k < 2; ++k) {
            const Vec left = wide(equal ? v.a : v.b, k);
            const Operand right = wide_or_memory(equal ? v.b : v.a, k);
            if (!big_) {
                h.wide[k] = vec();
                emit(Inst::kIdVcmpps, h.wide[k], left, right, asmjit::Imm(predicate));
            } else {
                h.wide_mask[k] = cc_.newKd();
                emit(Inst::kIdVcmpps, h.wide_mask[k], left, right, asmjit::Imm(predicate));
            }
        }
        (big_ ? h.has_wide_mask : h.has_wide) = true;
    }
    void choose(int i, const PlannedValue& v) {
        const auto one = [&](const Vec& no, const Operand& yes, int half) {
            const Vec r = vec();
            if (!big_) {
                const Vec m = half < 0 ? narrow(v.a) : wide(v.a, half);
                emit(Inst::kIdVpblendvb, r, no, yes, m);
            } else {
                const KReg m = half < 0 ? mask(v.a) : wide_mask(v.a, half);
                cc_.k(m).emit(half < 0 ? Inst::kIdVpblendmw : Inst::kIdVpblendmd, r, no, yes);
            }
            return r;
        };
        if (!v.wide) return set_narrow(i, one(narrow(v.c), narrow_or_memory(v.b), -1));
        const Vec low = one(wide(v.c, 0), wide_or_memory(v.b, 0), 0);
        set_wide(i, low, one(wide(v.c, 1), wide_or_memory(v.b, 1), 1));
    }

    void to_whole(int i, const PlannedValue& v) {
        Vec r[2];
        for (int k = 0; k < 2; ++k) {
            Vec x = wide(v.a, k);
            if (v.flags & plan_safe) {
                r[k] = made(Inst::kIdVcvttps2dq, x);
                continue;
            }
            // What is no number becomes 0; too large numbers give the lowest integer, which all its bits turned round
            // make the highest.
            const Mem limit = literal_32(0x4f000000u);  // 2 to the power 31
            if (!big_) {
                const Vec number = vec(), large = vec();
                emit(Inst::kIdVcmpps, number, x, x, asmjit::Imm(0));
                x = made(Inst::kIdVpand, x, number);
                emit(Inst::kIdVcmpps, large, x, limit, asmjit::Imm(0x1d));  // at least
                r[k] = made(Inst::kIdVpxor, made(Inst::kIdVcvttps2dq, x), large);
            } else {
                const KReg number = cc_.newKd(), large = cc_.newKd();
                emit(Inst::kIdVcmpps, number, x, x, asmjit::Imm(0));
                x = made(Inst::kIdVpandd, x, made(Inst::kIdVpmovm2d, number));
                emit(Inst::kIdVcmpps, large, x, limit, asmjit::Imm(0x1d));
                r[k] = made(Inst::kIdVpxord, made(Inst::kIdVcvttps2dq, x), made(Inst::kIdVpmovm2d, large));
            }
        }
        set_wide(i, r[0], r[1]);
    }

    // Gathers of 512 bits are slower than two of 256 on some processors, and faster on none that were seen.
    Vec gathered(const Vec& index, int scale_bits, int32_t offset) {
        if (!big_) return gathered_half(index, scale_bits, offset);
        const Vec upper = cc_.newYmm();
        emit(Inst::kIdVextracti64x4, upper, index, asmjit::Imm(1));
        const Vec low = gathered_half(index.ymm(), scale_bits, offset);
        const Vec high = gathered_half(upper, scale_bits, offset), r = vec();
        emit(Inst::kIdVinserti64x4, r, low.zmm(), high, asmjit::Imm(1));
        return r;
    }
    Vec gathered_half(const Vec& index, int scale_bits, int32_t offset) {
        const Vec r = cc_.newYmm();
        const Mem from = asmjit::x86::ptr(constants_, index, static_cast<uint32_t>(scale_bits), offset);
        if (big_) {
            const KReg all = cc_.newKd();
            emit(Inst::kIdKxnord, all, all, all);
            emit(Inst::kIdVpxor, r, r, r);
            cc_.k(all).emit(Inst::kIdVpgatherdd, r, from);
        } else {
            const Vec all = cc_.newYmm();
            emit(Inst::kIdVpcmpeqd, all, all, all);
            emit(Inst::kIdVpxor, r, r, r);
            emit(Inst::kIdVpgatherdd, r, from, all);
        }
        return r;
    }
    // Entries of 16 bits are read as the lower half of 32: those of the even samples and those of the odd ones.
    void look_up(int i, const PlannedValue& v) {
        const int32_t offset = tables_[static_cast<size_t>(v.number)];
        if (v.wide) {
            const Vec low = gathered(wide(v.a, 0), 2, offset);
            return set_wide(i, low, gathered(wide(v.a, 1), 2, offset));
        }
        const Vec index = narrow(v.a);
        const Vec even = gathered(made(bit_and(), index, literal_32(0xffff)), 1, offset);
        const Vec odd = gathered(made(Inst::kIdVpsrld, index, 16), 1, offset);
        const Vec upper = made(Inst::kIdVpslld, odd, 16);
        if (big_) {
            const Vec lower = made(Inst::kIdVpandd, even, literal_32(0xffff));
            return set_narrow(i, made(Inst::kIdVpord, lower, upper));
        }
        const Vec r = vec();
        emit(Inst::kIdVpblendw, r, even, upper, asmjit::Imm(0xaa));
        set_narrow(i, r);
    }

    // ---- Samples in

    void use_form(int form) {
        if (form_used_[form]) return;
        form_used_[form] = true;
        offset_[form] = cc_.newUIntPtr();
        cc_.xor_(offset_[form], offset_[form]);
    }
    Gp pointer(size_t offset) {
        const Gp p = cc_.newUIntPtr();
        cc_.mov(p, asmjit::x86::ptr(call_, static_cast<int32_t>(offset)));
        return p;
    }
    void prepare() {
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
    void load_elements(const Gp& base, int form, Vec* out) {
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
    Vec separated(const Vec* in, int channel) {
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
    Mem words(const uint16_t (&w)[32]) {
        uint8_t bytes[64];
        std::memcpy(bytes, w, sizeof bytes);
        return literal(bytes);
    }

    void load_sample(int i) {
        const PlannedValue& v = plan_.values[static_cast<size_t>(i)];
        const ValueSample& sample = plan_.samples[static_cast<size_t>(v.number)];
        const auto source = static_cast<size_t>(sample.source);
        const int form = plan_.source_forms[source];
        if (form == form_planes) return set_narrow(i, made(move(), asmjit::x86::ptr(sources_[source], offset_[form])));
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
        set_narrow(i, element);
    }

    // ---- Results out

    Vec clipped(const PlannedOutput& output, int low, int high) {
        Vec v = narrow(output.value);
        if (output.flags & plan_clip_low) v = made(Inst::kIdVpmaxsw, v, literal_16(low & 0xffff));
        if (output.flags & plan_clip_high) v = made(Inst::kIdVpminsw, v, literal_16(high & 0xffff));
        return v;
    }
    void store_planes() {
        for (size_t o = 0; o < plan_.outputs.size(); ++o)
            emit(move(), asmjit::x86::ptr(outputs_[o], offset_[form_planes]),
                 clipped(plan_.outputs[o], -fix_image_limit, fix_image_limit));
    }
    void store_host() {
        const int form = plan_.output_form;
        Vec channel[3];
        for (size_t c = 0; c < 3; ++c) {
            if (c && plan_.outputs.size() == 1) {
                channel[c] = channel[0];
                continue;
            }
            const Vec v = clipped(plan_.outputs[c], 0, fix_max);
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
    void join(const Vec* channel, Vec* out) {
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
    void store_elements(const Gp& base, const Gp& at, int k, const Vec& v, uint32_t kept_bits) {
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
    void store_bytes(const Gp& base, const Gp& at, int k, const Vec& v) {
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

public:
    // After run: rows up to the place of the first table, so that the constants have the layout that was addressed.
    bool pad_rows() {
        if (code_.rows.size() > most_rows_) return false;
        ConstantRow empty = {};
        empty.kind = ConstantRow::literal;
        if (!tables_.empty()) code_.rows.resize(most_rows_, empty);
        return true;
    }

private:
    asmjit::x86::Compiler cc_;
    const FusedPlan& plan_;
    const bool big_;
    const int lanes_;
    FusedCode& code_;
    std::vector<Held> held_;
    std::vector<int32_t> tables_;
    size_t most_rows_ = 0;
    Gp call_, blocks_, constants_;
    Gp outputs_[max_fused_outputs], sources_[max_fused_sources];
    Gp offset_[form_planes + 1];
    bool form_used_[form_planes + 1] = {};
    std::array<std::array<Vec, 3>, max_fused_sources> elements_;
    bool elements_loaded_[max_fused_sources] = {};
};

}  // namespace

bool emit_code(const FusedPlan& plan, int vector_bytes, FusedCode* code, std::vector<uint8_t>* bytes) {
    asmjit::CodeHolder holder;
    if (holder.init(asmjit::Environment::host()) != asmjit::kErrorOk) return false;
    *code = {};
    code->lanes = vector_bytes / 2;
    Emitter emitter(&holder, plan, vector_bytes, code);
    if (!emitter.run() || !emitter.pad_rows()) return false;
    // Nothing refers to an address, so the code is good wherever it comes to lie.
    if (holder.flatten() != asmjit::kErrorOk || holder.resolveUnresolvedLinks() != asmjit::kErrorOk ||
        holder.hasUnresolvedLinks() || !holder.relocEntries().empty())
        return false;
    bytes->resize(holder.codeSize());
    return holder.copyFlattenedData(bytes->data(), bytes->size()) == asmjit::kErrorOk;
}

}  // namespace velloran
