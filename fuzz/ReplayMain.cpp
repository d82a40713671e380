#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

// Runs a fuzz target over every file of the directories given, where there is no libFuzzer. Options are
// ignored.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::size_t replay(const std::filesystem::path& directory) {
    std::size_t inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        // A copy of just the size, so that the address sanitizer sees every byte beyond it.
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++inputs;
    }
    return inputs;
}

} // namespace

int main(int argc, char** argv) {
    std::size_t inputs = 0;
    try {
        for (int i = 1; i < argc; ++i) {
            if (argv[i][0] != '-') {
                inputs += replay(argv[i]);
            }
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    std::printf("%zu inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
}
