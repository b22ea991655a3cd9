// Mutations that keep a story readable: libFuzzer's own go into one body, others rearrange whole steps.
#include <random>

#include "common/story.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

namespace kvfuzz {

namespace {

constexpr size_t kMaxBody = 2048;

using Random = std::minstd_rand;
using Mutation = void (*)(Steps &steps, Steps::iterator at, Random &random);

// The end when there are none.
Steps::iterator pick(Steps &steps, Random &random) {
    return steps.begin() + static_cast<ptrdiff_t>(random() % std::max<size_t>(steps.size(), 1));
}

void changeBody(Steps &, Steps::iterator at, Random &) {
    const size_t size = std::min(at->body.size(), kMaxBody);
    at->body.resize(kMaxBody);
    at->body.resize(LLVMFuzzerMutate(at->body.data(), size, kMaxBody));
}

void changeHead(Steps &, Steps::iterator at, Random &random) {
    uint8_t &byte = random() % 2 == 0 ? at->kind : at->argument;
    byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : byte + random() % 5 - 2);
}

constexpr Mutation kRearrangements[] = {
    changeHead, [](Steps &steps, Steps::iterator at, Random &random) { steps.insert(pick(steps, random), Step(*at)); },
    [](Steps &steps, Steps::iterator at, Random &) { steps.erase(at); }};

size_t write(const Steps &steps, uint8_t *out, size_t maxSize) {
    Bytes bytes;
    for (const auto &[kind, argument, body] : steps) {
        const size_t length = std::min<size_t>(body.size(), UINT16_MAX);
        bytes.insert(bytes.end(), {kind, argument, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        bytes.insert(bytes.end(), body.begin(), body.begin() + static_cast<ptrdiff_t>(length));
    }
    const size_t size = std::min(bytes.size(), maxSize);
    std::copy_n(bytes.begin(), size, out);
    return size;
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed) {
    Random random(seed);
    if (random() % 20 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);  // now and then without respect for any structure
    }
    Steps steps = readSteps(Input({data, size}));
    for (size_t rounds = 1 + random() % 3; rounds > 0; --rounds) {
        if (steps.empty()) steps.emplace_back();
        // Bodies most often: that is where the decoders are.
        const size_t choice = random() % 8;
        const Mutation mutate = choice < std::size(kRearrangements) ? kRearrangements[choice] : changeBody;
        mutate(steps, pick(steps, random), random);
    }
    return write(steps, data, maxSize);
}

// The beginning of one story and the end of another.
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2,
                                            uint8_t *out, size_t maxSize, unsigned seed) {
    Random random(seed);
    Steps first = readSteps(Input({data1, size1}));
    Steps second = readSteps(Input({data2, size2}));
    first.erase(pick(first, random), first.end());
    first.insert(first.end(), pick(second, random), second.end());
    return write(first, out, maxSize);
}

}  // namespace kvfuzz
