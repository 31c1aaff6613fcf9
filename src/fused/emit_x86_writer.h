// Instructions and constants of a loop that is being written, for whoever writes a part of it.
#pragma once

#include "fused/emit_code.h"

#include <asmjit/x86.h>

#include <cstring>

namespace velloran {

namespace Inst = asmjit::x86::Inst;

class X86Writer {
protected:
    using Gp = asmjit::x86::Gp;
    using KReg = asmjit::x86::KReg;
    using Mem = asmjit::x86::Mem;
    using Vec = asmjit::x86::Vec;
    using Operand = asmjit::Operand;
    using InstId = asmjit::InstId;

    // vector_bytes: 32 or 64. The rows of constants gather in *code.
    X86Writer(asmjit::CodeHolder* holder, int vector_bytes, FusedCode* code)
        : cc_(holder), big_(vector_bytes == 64), lanes_(vector_bytes / 2), code_(*code) {}

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

    // ---- Constants: places in memory, each row once

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

    asmjit::x86::Compiler cc_;
    const bool big_;   // AVX-512
    const int lanes_;  // of 16 bits
    FusedCode& code_;
    Gp constants_;
};

}  // namespace velloran
