// The entry of every target.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    kvfuzz::runInput({data, data + size});
    return 0;
}
