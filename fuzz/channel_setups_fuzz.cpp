// The host's own setup text through the edits that it may need: doing one twice changes nothing more.
#include "fuzz/fuzz.h"

#include "params/setups.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

using namespace velloran;

namespace {

using Rewrite = std::function<int(const char* from, const char* to)>;

std::string rewritten(const std::string& text, const Rewrite& rewrite) {
    const FuzzFile from(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    const std::string to = "/tmp/velloran_channel_setups_fuzz." + std::to_string(getpid());
    FUZZ_CHECK(rewrite(from.path(), to.c_str()) == 1);
    std::ifstream file(to);
    std::stringstream all;
    all << file.rdbuf();
    std::remove(to.c_str());
    return all.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    if (size > 0 && std::memchr(data, 0, size)) return 0;  // a text has no zeros
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Rewrite frame_size = [](const char* from, const char* to) { return rewrite_frame_size(from, to, 1440, 972); };
    const Rewrite by_key = [](const char* from, const char* to) { return rewrite_curve_linear(from, to, 9, true); };
    for (const Rewrite& rewrite : {frame_size, by_key}) {
        const std::string once = rewritten(text, rewrite);
        FUZZ_CHECK(rewritten(once, rewrite) == once);
    }
    const std::string channel =
        rewritten(text, [](const char* from, const char* to) { return rewrite_curve_linear(from, to, 9, false); });
    FUZZ_CHECK(channel.size() >= text.size());
    return 0;
}
