#include "hosts/pictures/pnm_file.h"

namespace spark_host {
namespace {

bool blank_p(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

struct Words {
    const unsigned char* file;
    size_t size, at;

    // The next number, past blanks and comments; -1 if there is none or it is beyond most.
    int number(int most) {
        while (at < size && (blank_p(file[at]) || file[at] == '#'))
            if (file[at++] == '#')
                while (at < size && file[at] != '\n' && file[at] != '\r') at++;
        int value = -1;
        for (; at < size && file[at] >= '0' && file[at] <= '9'; at++) {
            value = (value < 0 ? 0 : value) * 10 + (file[at] - '0');
            if (value > most) return -1;
        }
        return at == size || blank_p(file[at]) || file[at] == '#' ? value : -1;
    }
};

template <class Sample, class Next>
bool fill(Bytes& pixels, int white, Next next) {
    constexpr int most = static_cast<Sample>(~Sample{0});
    auto* const out = reinterpret_cast<Sample*>(pixels.data());
    for (size_t i = 0; i < pixels.size() / sizeof(Sample); i++) {
        const int value = next(i);
        if (value < 0 || value > white) return false;
        out[i] = static_cast<Sample>((static_cast<int64_t>(value) * most + white / 2) / white);
    }
    return true;
}

}  // namespace

bool read_pnm_header(const unsigned char* file, size_t size, PnmHeader& header) {
    if (size < 3 || file[0] != 'P' || !blank_p(file[2])) return false;
    const int kind = file[1] - '0';
    if (kind != 2 && kind != 3 && kind != 5 && kind != 6) return false;
    Words words = {file, size, 2};
    header.words = kind < 4;
    header.channels = kind % 3 == 0 ? 3 : 1;
    header.width = words.number(1 << 20);
    header.height = words.number(1 << 20);
    header.white = words.number(65535);
    // One blank ends the header: what follows may be samples that look like blanks.
    if (header.width < 1 || header.height < 1 || header.white < 1 || words.at >= size || !blank_p(file[words.at]))
        return false;
    header.data = words.at + 1;
    return true;
}

bool decode_pnm(const unsigned char* file, size_t size, const PnmHeader& header, Bytes& pixels) {
    const size_t samples = static_cast<size_t>(header.width) * static_cast<size_t>(header.height) *
                           static_cast<size_t>(header.channels),
                 bytes = static_cast<size_t>(header.bytes());
    // A word and its blank are two characters at least, but for the last one.
    if ((size - header.data + 1) / (header.words ? 2 : bytes) < samples) return false;
    pixels.resize(samples * bytes);
    Words words = {file, size, header.data};
    const unsigned char* const data = file + header.data;
    const auto word = [&](size_t) { return words.number(header.white); };
    const auto one = [&](size_t i) { return int{data[i]}; };
    const auto two = [&](size_t i) { return data[2 * i] << 8 | data[2 * i + 1]; };
    if (!header.words && size - header.data < samples * bytes) return false;
    if (header.words)
        return bytes == 1 ? fill<uint8_t>(pixels, header.white, word) : fill<uint16_t>(pixels, header.white, word);
    return bytes == 1 ? fill<uint8_t>(pixels, header.white, one) : fill<uint16_t>(pixels, header.white, two);
}

}  // namespace spark_host
