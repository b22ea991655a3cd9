// The entry of every target: libFuzzer's, or a replay of the named files.
#include <fstream>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    kvfuzz::playInput({data, data + size});
    return 0;
}

#ifdef KV_FUZZ_REPLAY
int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        kvfuzz::require(file.is_open(), argv[i]);
        std::fprintf(stderr, "%s\n", argv[i]);  // the last line names the input that ends the process
        kvfuzz::playInput({std::istreambuf_iterator<char>(file), {}});
    }
    return argc > 1 ? 0 : 1;
}
#endif
