// A text before the conditional filter. What is kept must be a subsequence of it that the map leads back to.
#include "fuzz/fuzz.h"

#include "texts/if_filter.h"

#include <cstring>
#include <vector>

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const std::string original(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    std::vector<char> with_map(original.c_str(), original.c_str() + original.size() + 1), without = with_map;
    char* const mapped = with_map.data();
    char* const plain = without.data();
    TextMap map;
    TextMap* const map_pointer = &map;
    const bool done_without = fuzz_call([=] { remove_comments_and_false_if_statements(plain, nullptr); });
    // Last: the map is good until the next call.
    const bool done = fuzz_call([=] { remove_comments_and_false_if_statements(mapped, "fuzz", map_pointer); });
    FUZZ_CHECK(done == done_without);
    if (!done) return 0;  // the abort has freed the map
    FUZZ_CHECK(std::strcmp(mapped, plain) == 0);
    FUZZ_CHECK(map.length == static_cast<int>(std::strlen(mapped)));
    long last = -1;
    for (int i = 0; i <= map.length; ++i) {
        const TextPlace place = map_text_place(map, i);
        FUZZ_CHECK(place.offset > last && place.offset <= static_cast<long>(original.size()));
        FUZZ_CHECK(i == map.length || original[static_cast<size_t>(place.offset)] == mapped[i]);
        FUZZ_CHECK(place.line >= 1 && place.column >= 1);
        last = place.offset;
    }
    free_text_map(map);
    return 0;
}
