#include "hosts/pictures/bytes.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <utility>

namespace spark_host {
namespace {

constexpr size_t least_kept = size_t{256} << 10, most_kept = size_t{512} << 20;

struct Kept {
    std::mutex mutex;
    std::multimap<size_t, void*> blocks;  // by size
    size_t bytes = 0;
};

// Lives as long as the program: threads may give blocks back until its very end.
Kept& kept() {
    static auto* const all = new Kept;
    return *all;
}

void free_kept() {
    Kept& all = kept();
    const std::lock_guard lock(all.mutex);
    for (const auto& [size, block] : all.blocks) ::operator delete(block);
    all.blocks.clear();
    all.bytes = 0;
}

// Sizes in steps of an eighth, so that files of nearly the same size take each other's places.
size_t rounded(size_t size) {
    const size_t step = std::bit_floor(size) / 8;
    return (size + step - 1) / step * step;
}

// At least size bytes, which hold anything. Throws std::bad_alloc.
void* take_block(size_t size) {
    if (size < least_kept) return ::operator new(size);
    const size_t whole = rounded(size);
    {
        Kept& all = kept();
        const std::lock_guard lock(all.mutex);
        const auto found = all.blocks.find(whole);
        if (found != all.blocks.end()) {
            void* const block = found->second;
            all.bytes -= whole;
            all.blocks.erase(found);
            return block;
        }
    }
    if (void* const block = ::operator new(whole, std::nothrow)) return block;
    free_kept();
    return ::operator new(whole);
}

// size as it was asked for.
void give_block(void* block, size_t size) {
    if (size >= least_kept) {
        const size_t whole = rounded(size);
        Kept& all = kept();
        const std::lock_guard lock(all.mutex);
        if (all.bytes + whole <= most_kept) {
            try {
                all.blocks.emplace(whole, block);
                all.bytes += whole;
                return;
            } catch (const std::bad_alloc&) {
            }
        }
    }
    ::operator delete(block);
}

}  // namespace

Bytes::Bytes(size_t size, unsigned char value) {
    resize(size);
    std::fill_n(block_, size, value);
}

Bytes::~Bytes() {
    if (block_) give_block(block_, room_);
}

void Bytes::swap(Bytes& other) noexcept {
    std::swap(block_, other.block_);
    std::swap(size_, other.size_);
    std::swap(room_, other.room_);
}

void Bytes::reserve(size_t room) {
    if (room <= room_) return;
    auto* const block = static_cast<unsigned char*>(take_block(room));
    if (size_ > 0) std::memcpy(block, block_, size_);
    if (block_) give_block(block_, room_);
    block_ = block;
    room_ = room;
}

void Bytes::resize(size_t size) {
    if (size > room_) reserve(room_ == 0 ? size : std::max(size, room_ + room_ / 2));
    size_ = size;
}

void Bytes::assign(std::span<const unsigned char> from) {
    clear();
    append(from);
}

void Bytes::append(std::span<const unsigned char> more) {
    const size_t at = size_;
    resize(at + more.size());
    if (!more.empty()) std::memcpy(block_ + at, more.data(), more.size());
}

}  // namespace spark_host
