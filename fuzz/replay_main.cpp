// Runs a fuzz target over files and over the files of directories, by default its corpus: the ordinary build's stand-in
// for a fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    // A copy of exactly this size, so that a read past the end is seen.
    const std::vector<uint8_t> data(content.begin(), content.end());
    std::printf("%s: %zu bytes\n", path.c_str(), data.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(data.data(), data.size());
}

}  // namespace

int main(int argc, char* argv[]) {
    std::vector<std::filesystem::path> paths(argv + 1, argv + argc);
    if (paths.empty()) paths.emplace_back(FUZZ_CORPUS);
    int replayed = 0;
    for (const auto& path : paths) {
        if (!std::filesystem::is_directory(path)) {
            replay(path);
            ++replayed;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (entry.is_regular_file()) {
                replay(entry.path());
                ++replayed;
            }
    }
    if (replayed == 0) std::fprintf(stderr, "nothing to replay\n");
    return replayed == 0;
}
