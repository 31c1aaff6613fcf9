// The code that was made is kept by what it hangs on: as long as only constants move, a pass finds it again.
#include "fused/fused_code.h"

#include "fused/code_pages.h"
#include "fused/emit_code.h"
#include "rows/row_targets.h"
#include "support/errors.h"
#include "support/unload.h"

#include <algorithm>
#include <cstring>

namespace velloran {

int n_fused_compilations = 0;
bool executable_pages_forbidden = false;

namespace {

constexpr size_t most_kept = 64;

struct KeptCode {
    std::vector<uint8_t> key;
    FusedCode code;
    size_t bytes;
    uint64_t last_use;
};
std::vector<KeptCode> kept;
uint64_t uses = 0;
bool pages_refused = false;

// Bytes of a vector: 32 or 64; 0: there is no code for the target in force.
int vector_bytes_of_target() {
    if (!code_can_be_emitted) return 0;
    // The best target is the lowest bit.
    const int64_t targets = hwy::SupportedTargets() & HWY_TARGETS;
    switch (targets & -targets) {
        case HWY_AVX3:
            return 64;
        case HWY_AVX2:
            return 32;
        default:
            return 0;
    }
}

size_t aligned(size_t bytes) { return (bytes + 63) & ~size_t{63}; }

size_t table_bytes(uint8_t kind) {
    if (kind == table_of_bytes) return aligned(byte_table_length * sizeof(int16_t) + 4);
    return aligned(table_length * (kind == table_wide ? sizeof(int32_t) : sizeof(int16_t)) + 4);
}

}  // namespace

void forget_fused_code() {
    for (const KeptCode& k : kept)
        if (k.code.function) unmap_code(reinterpret_cast<const void*>(k.code.function), k.bytes);
    kept = {};
    pages_refused = false;
}

bool fused_code_possible() { return vector_bytes_of_target() && !pages_refused; }

const FusedCode* fused_code_for(const FusedPlan& plan) {
    const int vector_bytes = vector_bytes_of_target();
    if (!vector_bytes || pages_refused) return nullptr;
    std::vector<uint8_t> key;
    plan_key(plan, &key);
    key.push_back(static_cast<uint8_t>(vector_bytes));
    for (KeptCode& k : kept)
        if (k.key == key) {
            k.last_use = ++uses;
            return k.code.function ? &k.code : nullptr;
        }

    free_at_unload(forget_fused_code);
    kept.reserve(most_kept + 1);
    ++n_fused_compilations;
    KeptCode made = {std::move(key), {}, 0, ++uses};
    std::vector<uint8_t> bytes;
    if (emit_code(plan, vector_bytes, &made.code, &bytes)) {
        const void* const code = executable_pages_forbidden ? nullptr : map_code(bytes.data(), bytes.size());
        if (!code) {
            pages_refused = true;
            log_error("The system allows no executable pages: expressions are worked by the row kernels.");
            return nullptr;
        }
        made.code.function = reinterpret_cast<FusedFun>(reinterpret_cast<uintptr_t>(code));
        made.bytes = bytes.size();
    }
    if (kept.size() >= most_kept) {
        const auto oldest = std::min_element(
            kept.begin(), kept.end(), [](const KeptCode& a, const KeptCode& b) { return a.last_use < b.last_use; });
        if (oldest->code.function) unmap_code(reinterpret_cast<const void*>(oldest->code.function), oldest->bytes);
        kept.erase(oldest);
    }
    kept.push_back(std::move(made));
    return kept.back().code.function ? &kept.back().code : nullptr;
}

std::vector<int32_t> table_offsets(const FusedPlan& plan, size_t n_rows) {
    std::vector<int32_t> offsets;
    size_t at = n_rows * sizeof(ConstantRow::bytes);
    for (const uint8_t kind : plan.table_kinds) {
        offsets.push_back(static_cast<int32_t>(at));
        at += table_bytes(kind);
    }
    offsets.push_back(static_cast<int32_t>(at));
    return offsets;
}

void FusedConstants::fill(const FusedPlan& plan, const FusedCode& code) {
    const std::vector<int32_t> tables = table_offsets(plan, code.rows.size());
    memory_.resize(static_cast<size_t>(tables.back()) + 64);
    start_ = memory_.data() + (64 - reinterpret_cast<uintptr_t>(memory_.data()) % 64) % 64;
    uint8_t* at = start_;
    const auto number = [&](int value) { return plan.numbers[static_cast<size_t>(value)]; };
    for (const ConstantRow& row : code.rows) {
        switch (row.kind) {
            case ConstantRow::literal:
                std::memcpy(at, row.bytes, sizeof row.bytes);
                break;
            case ConstantRow::lanes_of_16: {
                // Beyond 16 bits only what is held to less is asked for in them.
                const int32_t held = std::clamp(number(row.a), -32768, 32767);
                const auto v = static_cast<uint16_t>(static_cast<uint32_t>(held) << row.shift);
                for (int i = 0; i < 64; i += 2) std::memcpy(at + i, &v, 2);
                break;
            }
            case ConstantRow::lanes_of_32: {
                const int32_t v = number(row.a);
                for (int i = 0; i < 64; i += 4) std::memcpy(at + i, &v, 4);
                break;
            }
            case ConstantRow::pairs: {
                const int16_t v[2] = {static_cast<int16_t>(number(row.a)), static_cast<int16_t>(number(row.b))};
                for (int i = 0; i < 64; i += 4) std::memcpy(at + i, v, 4);
                break;
            }
        }
        at += sizeof row.bytes;
    }
    for (size_t t = 0; t < plan.tables.size(); ++t) {
        const int32_t* const results = plan.tables[t].results;
        if (plan.table_kinds[t] == table_wide) {
            std::memcpy(start_ + tables[t], results, table_length * sizeof(int32_t));
            continue;
        }
        auto* const out = reinterpret_cast<int16_t*>(start_ + tables[t]);
        const bool bytes = plan.table_kinds[t] == table_of_bytes;
        const int n = bytes ? byte_table_length : table_length;
        for (int i = 0; i < n; ++i) out[i] = static_cast<int16_t>(results[bytes ? i << 4 | i >> 4 : i]);
        out[n] = out[n + 1] = 0;  // what a gather reads beside the last
    }
}

}  // namespace velloran
