#include "support/fake_system.h"

#include <sys/time.h>

#include "support/captured_log.h"

namespace {
std::time_t clockNow = 0;
kvtest::Call failing = kvtest::Call::Allocation;
size_t failIn = 0;  // calls of that kind until the one that fails; 0: none is to fail
bool failed = false;
size_t allocations = 0;
}  // namespace

// In a program's own symbol table before the C library's, for plug-in and test alike.
extern "C" std::time_t time(std::time_t *out) noexcept {
    std::time_t now = clockNow;
    if (now == 0) {
        timeval real = {};
        gettimeofday(&real, nullptr);
        now = real.tv_sec;
    }
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

extern "C" unsigned sleep(unsigned seconds) {
    kvtest::note("sleeps " + std::to_string(seconds));
    return 0;
}

// The linker's --wrap=calloc leads the plug-in's calls here.
extern "C" void *__real_calloc(size_t count, size_t size);
extern "C" void *__wrap_calloc(size_t count, size_t size) {
    if (kvtest::callFails(kvtest::Call::Allocation)) {
        return nullptr;
    }
    ++allocations;
    return __real_calloc(count, size);
}

namespace kvtest {

void setClock(std::time_t now) {
    clockNow = now;
}

FailingCall::FailingCall(Call call, size_t nth) {
    failing = call;
    failIn = nth;
    failed = false;
}

FailingCall::~FailingCall() {
    failIn = 0;
}

bool FailingCall::happened() const {
    return failed;
}

bool callFails(Call call) {
    if (call != failing || failIn == 0 || --failIn > 0) {
        return false;
    }
    failed = true;
    return true;
}

size_t takeAllocationCount() {
    const size_t count = allocations;
    allocations = 0;
    return count;
}

}  // namespace kvtest
