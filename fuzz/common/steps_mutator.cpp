// Mutations that keep a story readable: libFuzzer's own go into one body, others rearrange whole steps.
#include <cstring>
#include <random>

#include "common/steps.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed);
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2,
                                            uint8_t *out, size_t maxSize, unsigned seed);

namespace kvfuzz {

namespace {

constexpr size_t kMaxBody = 2048;

using Random = std::minstd_rand;
using Steps = std::vector<Step>;

void mutateBody(Steps &steps, size_t at, Random &) {
    Bytes &body = steps[at].body;
    const size_t size = std::min(body.size(), kMaxBody);
    body.resize(kMaxBody);
    body.resize(LLVMFuzzerMutate(body.data(), size, kMaxBody));
}

void mutateHead(Steps &steps, size_t at, Random &random) {
    uint8_t head[2] = {steps[at].kind, steps[at].argument};
    const size_t which = random() % 2;
    head[which] = static_cast<uint8_t>(random() % 3 == 0 ? random() % 256 : head[which] + random() % 5 - 2);
    steps[at].kind = head[0];
    steps[at].argument = head[1];
}

void copyStep(Steps &steps, size_t at, Random &random) {
    const Step copy = steps[at];
    steps.insert(steps.begin() + static_cast<ptrdiff_t>(random() % (steps.size() + 1)), copy);
}

void insertStep(Steps &steps, size_t at, Random &random) {
    const Step fresh = {static_cast<uint8_t>(random() % 16), static_cast<uint8_t>(random() % 64), {}};
    steps.insert(steps.begin() + static_cast<ptrdiff_t>(at), fresh);
}

void removeStep(Steps &steps, size_t at, Random &) {
    steps.erase(steps.begin() + static_cast<ptrdiff_t>(at));
}

void swapSteps(Steps &steps, size_t at, Random &random) {
    std::swap(steps[at], steps[random() % steps.size()]);
}

using Mutation = void (*)(Steps &steps, size_t at, Random &random);

// Bodies most often: that is where the decoders are.
constexpr Mutation kMutations[] = {mutateBody, mutateBody, mutateBody, mutateBody, mutateBody,
                                   mutateHead, copyStep,   insertStep, removeStep, swapSteps};

size_t emit(const Steps &steps, uint8_t *out, size_t maxSize) {
    const Bytes bytes = writeSteps(steps);
    const size_t size = std::min(bytes.size(), maxSize);
    std::copy_n(bytes.begin(), size, out);
    return size;
}

}  // namespace

}  // namespace kvfuzz

size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed) {
    using namespace kvfuzz;
    Random random(seed);
    if (random() % 20 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);  // now and then without respect for any structure
    }
    Steps steps = readSteps(data, size);
    if (steps.empty()) {
        steps.emplace_back();
    }
    const size_t rounds = 1 + random() % 3;
    for (size_t i = 0; i < rounds && !steps.empty(); ++i) {
        kMutations[random() % std::size(kMutations)](steps, random() % steps.size(), random);
    }
    return emit(steps, data, maxSize);
}

// The beginning of one story and the end of another.
size_t LLVMFuzzerCustomCrossOver(const uint8_t *data1, size_t size1, const uint8_t *data2, size_t size2, uint8_t *out,
                                 size_t maxSize, unsigned seed) {
    using namespace kvfuzz;
    Random random(seed);
    Steps first = readSteps(data1, size1);
    const Steps second = readSteps(data2, size2);
    first.resize(first.empty() ? 0 : random() % (first.size() + 1));
    const size_t skipped = second.empty() ? 0 : random() % second.size();
    first.insert(first.end(), second.begin() + static_cast<ptrdiff_t>(skipped), second.end());
    return emit(first, out, maxSize);
}
