// The clock, sleeping and the heap under a test's control. Both stand in for the C library's own calls.
#pragma once

#include <cstddef>
#include <ctime>

namespace kvtest {

// What time() returns from now on; 0 gives the real clock back.
void setClock(std::time_t now);

// What can fail on the far side of the plug-in.
enum class Call { Allocation, OpenFile, OpenPipe, RunCommand, Send, Query, JsonWrite, Config, Post };

// Makes the nth call of a kind from now on (1 is the next) fail, once.
class FailingCall {
  public:
    FailingCall(Call call, size_t nth);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    // A failure that was injected and never happened proves nothing.
    bool happened() const;
};

// The nth calloc.
struct FailingAllocation : FailingCall {
    explicit FailingAllocation(size_t nth) : FailingCall(Call::Allocation, nth) {}
};

// Whether this call is the one that is to fail; asked by whatever stands in for the far side.
bool callFails(Call call);

// Successful allocations of the plug-in since the last call.
size_t takeAllocationCount();

}  // namespace kvtest
