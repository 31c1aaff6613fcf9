// Memory for samples and files. A sequence takes and gives back blocks of the same few sizes all the time: they are
// kept for the next frame, for the system takes longer to hand a page out than most steps of a frame need for it.
#pragma once

#include <cstddef>
#include <span>

namespace spark_host {

// Bytes of a picture or a file. What resize adds holds anything. Throws std::bad_alloc where it grows.
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(size_t size) { resize(size); }
    Bytes(size_t size, unsigned char value);
    Bytes(const Bytes& other) { assign(other); }
    Bytes(Bytes&& other) noexcept { swap(other); }
    Bytes& operator=(Bytes other) noexcept {
        swap(other);
        return *this;
    }
    ~Bytes();

    unsigned char* data() { return block_; }
    const unsigned char* data() const { return block_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    unsigned char& operator[](size_t i) { return block_[i]; }
    unsigned char operator[](size_t i) const { return block_[i]; }
    operator std::span<const unsigned char>() const { return {block_, size_}; }

    void clear() { size_ = 0; }
    void reserve(size_t room);
    void resize(size_t size);
    void assign(std::span<const unsigned char> from);
    void append(std::span<const unsigned char> more);

private:
    void swap(Bytes& other) noexcept;

    unsigned char* block_ = nullptr;
    size_t size_ = 0, room_ = 0;
};

}  // namespace spark_host
