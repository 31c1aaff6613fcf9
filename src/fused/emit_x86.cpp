// Machine code through AsmJit, for AVX2 and AVX-512. One round of the loop works as many pixels as a vector has lanes
// of 16 bits: the samples are loaded and their channels separated, the values worked in the plan's order, the outputs
// joined with what the host's words keep and stored. Everything is loaded before anything is stored, since a pass may
// write the planes that it reads.
//
// Numbers in 32 bits take two vectors: of each 128-bit lane the lower four samples, and the upper four, as the
// instructions that unpack make them and the ones that pack take them.
#include "fused/emit_x86_frames.h"

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

class Emitter : X86Frames {
public:
    Emitter(asmjit::CodeHolder* holder, const FusedPlan& plan, int vector_bytes, FusedCode* code)
        : X86Frames(holder, plan, vector_bytes, code) {
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
        open();
        const asmjit::Label loop = cc_.newLabel();
        cc_.bind(loop);
        for (size_t i = 0; i < plan_.values.size(); ++i)
            if (plan_.values[i].op == ValueOp::sample) set_narrow(static_cast<int>(i), load(plan_.values[i].number));
        for (size_t i = 0; i < plan_.values.size(); ++i) work(static_cast<int>(i));
        Vec results[max_fused_outputs];
        for (size_t o = 0; o < plan_.outputs.size(); ++o) results[o] = narrow(plan_.outputs[o].value);
        store(results);
        advance();
        cc_.dec(blocks_);
        cc_.jnz(loop);
        cc_.ret();
        cc_.endFunc();
        return cc_.finalize() == asmjit::kErrorOk;
    }

    // After run: rows up to the place of the first table, so that the constants have the layout that was addressed.
    bool pad_rows() {
        if (code_.rows.size() > most_rows_) return false;
        ConstantRow empty = {};
        empty.kind = ConstantRow::literal;
        if (!tables_.empty()) code_.rows.resize(most_rows_, empty);
        return true;
    }

private:
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
        Vec index = narrow(v.a);
        if (plan_.table_kinds[static_cast<size_t>(v.number)] == table_of_bytes) {
            index = made(Inst::kIdVpsrlw, index, 4);
            if (big_) return set_narrow(i, chosen_of_bytes(index, offset));
        }
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

    // Of 256 words in eight registers: four choices among 128 bytes each, by the lower six bits, and among those by the
    // upper two.
    Vec chosen_of_bytes(const Vec& index, int32_t offset) {
        const KReg bits[2] = {cc_.newKd(), cc_.newKd()};
        emit(Inst::kIdVptestmw, bits[0], index, literal_16(64));
        emit(Inst::kIdVptestmw, bits[1], index, literal_16(128));
        const auto part = [&](int k) { return asmjit::x86::ptr(constants_, offset + 64 * k); };
        Vec of_64[4];
        for (int k = 0; k < 4; ++k) {
            of_64[k] = made(move(), index);
            emit(Inst::kIdVpermi2w, of_64[k], made(move(), part(2 * k)), part(2 * k + 1));
        }
        const auto either = [&](const KReg& m, const Vec& no, const Vec& yes) {
            const Vec r = vec();
            cc_.k(m).emit(Inst::kIdVpblendmw, r, no, yes);
            return r;
        };
        return either(bits[1], either(bits[0], of_64[0], of_64[1]), either(bits[0], of_64[2], of_64[3]));
    }

    std::vector<Held> held_;
    std::vector<int32_t> tables_;
    size_t most_rows_ = 0;
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
