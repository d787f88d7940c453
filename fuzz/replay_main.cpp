// Replays a fuzz target's seed files (each argument a file or a folder of files) in the
// ordinary build, so that every target stays compiled and its seeds stay harmless.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replayFile(const std::filesystem::path& path, int& count) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++count;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    // The empty input is always worth one run.
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    replayFile(entry.path(), count);
                }
            }
        } else if (std::filesystem::is_regular_file(path)) {
            replayFile(path, count);
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
