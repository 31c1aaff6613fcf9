// Film stocks from a text, by way of a file. For tests and benches of film.
#pragma once

#include "operators/film/film_tone.h"
#include "operators/film/film_types.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace velloran_tests {

// The stocks of a text in tables of their own.
class FilmTexts {
public:
    explicit FilmTexts(const std::string& text) {
        fd_ = memfd_create("film", 0);
        if (fd_ < 0 || write(fd_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
        path_ = "/proc/self/fd/" + std::to_string(fd_);
        velloran::start_film_table(&negatives, false);
        velloran::start_film_table(&prints, true);
        velloran::read_film_types(path_.c_str(), &negatives, &prints);
    }
    ~FilmTexts() {
        velloran::free_film_table(&negatives);
        velloran::free_film_table(&prints);
        close(fd_);
    }
    FilmTexts(const FilmTexts&) = delete;
    FilmTexts& operator=(const FilmTexts&) = delete;

    const std::string& path() const { return path_; }
    velloran::FilmTable negatives = {}, prints = {};

private:
    int fd_;
    std::string path_;
};

// Puts a text into the tables that functions draw from while it lives: negatives and prints by their numbers.
class FilmTextsInUse : public FilmTexts {
public:
    explicit FilmTextsInUse(const std::string& text) : FilmTexts(text) {
        velloran::load_film_types();
        swap();
    }
    ~FilmTextsInUse() { swap(); }

private:
    void swap() {
        std::swap(negatives, velloran::neg_film_types());
        std::swap(prints, velloran::print_film_types());
        velloran::forget_film_tables();
    }
};

}  // namespace velloran_tests
