#include "hosts/common/curve.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace spark_host {
namespace {

constexpr const char* words[] = {"constant", "linear", "hermite"};

bool before(const Key& key, float frame) { return key.frame < frame; }

float slope(const std::vector<Key>& keys, size_t i) {
    if (i == 0 || i + 1 == keys.size()) return 0;
    return (keys[i + 1].value - keys[i - 1].value) / (keys[i + 1].frame - keys[i - 1].frame);
}

Key& find_or_add(Curve& curve, float frame) {
    auto at = std::lower_bound(curve.keys.begin(), curve.keys.end(), frame, before);
    if (at == curve.keys.end() || at->frame != frame) at = curve.keys.insert(at, Key{frame, 0});
    return *at;
}

}  // namespace

void set_key(Curve& curve, float frame, float value) { find_or_add(curve, frame).value = value; }

void set_key(Curve& curve, float frame, float value, Interpolation interpolation) {
    Key& key = find_or_add(curve, frame);
    key.value = value;
    key.interpolation = interpolation;
}

float curve_value(const Curve& curve, float frame, float fallback) {
    const std::vector<Key>& keys = curve.keys;
    if (keys.empty()) return fallback;
    const auto next = std::lower_bound(keys.begin(), keys.end(), frame, before);
    if (next == keys.end()) return keys.back().value;
    if (next->frame == frame || next == keys.begin()) return next->value;
    const Key& a = *std::prev(next);
    const Key& b = *next;
    const float length = b.frame - a.frame;
    const float t = (frame - a.frame) / length;
    switch (a.interpolation) {
        case Interpolation::constant:
            return a.value;
        case Interpolation::linear:
            return a.value + (b.value - a.value) * t;
        case Interpolation::hermite:
            break;
    }
    const size_t i = static_cast<size_t>(std::distance(keys.begin(), next));
    const float u = 1 - t;
    return a.value * (1 + 2 * t) * u * u + b.value * (1 + 2 * u) * t * t +
           length * (slope(keys, i - 1) * t * u * u - slope(keys, i) * t * t * u);
}

const char* interpolation_word(Interpolation interpolation) { return words[static_cast<int>(interpolation)]; }

bool read_interpolation(const char* word, Interpolation& interpolation) {
    for (int i = 0; i < static_cast<int>(std::size(words)); i++) {
        if (std::strcmp(word, words[i]) != 0) continue;
        interpolation = static_cast<Interpolation>(i);
        return true;
    }
    return false;
}

}  // namespace spark_host
