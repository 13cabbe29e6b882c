// Runs a fuzz target once over each file of the directories named.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    // A heap block of the exact size, so that the address sanitizer sees a read beyond its end.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::cerr << entry.path() << '\n';
            replay(entry.path());
            ++count;
        }
    }
    std::cerr << count << " inputs replayed\n";
    return count > 0 ? 0 : 1;
}
