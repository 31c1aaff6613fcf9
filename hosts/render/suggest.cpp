#include "hosts/render/suggest.h"

#include <algorithm>
#include <cctype>

namespace render {
namespace {

std::string plain(std::string name) {
    for (char& c : name) c = c == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

// Edit distance with swaps of neighbours (Damerau; optimal string alignment).
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++) last[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

}  // namespace

bool same_name_p(const std::string& a, const std::string& b) { return plain(a) == plain(b); }

std::string nearest_name(const std::string& wrong, const std::vector<std::string>& names) {
    const std::string word = plain(wrong);
    size_t least = std::max<size_t>(word.size() / 3, word.size() >= 4 ? 2 : 1) + 1;
    std::string nearest;
    for (const std::string& name : names) {
        const size_t far = distance(word, plain(name));
        if (far >= least || far >= std::max(word.size(), name.size())) continue;
        least = far;
        nearest = name;
    }
    if (!nearest.empty() || word.size() < 3) return nearest;
    // An unfinished word.
    for (const std::string& name : names)
        if (plain(name).rfind(word, 0) == 0) return name;
    return "";
}

std::string did_you_mean(const std::string& wrong, const std::vector<std::string>& names) {
    const std::string nearest = nearest_name(wrong, names);
    return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

}  // namespace render
