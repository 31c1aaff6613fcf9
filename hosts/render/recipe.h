// What a frame was made from, as a short mark that is kept with it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace render {

// A running mark of everything that goes into a frame (FNV-1a, 64 bits, Fowler, Noll and Vo).
struct Recipe {
    uint64_t mark = 14695981039346656037u;

    void add(const std::string& text);
    void add(double number);
    // Name, size and time of a file; a missing one counts as such.
    void add_file(const std::string& path);
    // All files directly in a directory.
    void add_directory(const std::string& path);
    std::string text() const;
};

uint64_t hash_bytes(const void* bytes, size_t size);

// For formats that hold no text: the mark in a file beside the picture, bound to the picture's content.
std::string recipe_path(const std::string& picture);
std::string recipe_beside(const std::string& picture);  // empty if there is none that fits
std::vector<unsigned char> recipe_file(const std::string& recipe, std::span<const unsigned char> picture);

}  // namespace render
