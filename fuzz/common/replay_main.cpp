// Runs a fuzz target once on every file named or found in a directory named.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        return false;
    }
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);  // the last line names the input that ends the process
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replayed += replay(argv[i]) ? 1 : 0;
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            replayed += replay(entry.path()) ? 1 : 0;
        }
    }
    std::printf("%zu inputs replayed\n", replayed);
    return replayed == 0 ? 1 : 0;
}
