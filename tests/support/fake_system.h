// The clock, sleeping and the heap under a test's control. Both stand in for the C library's own calls.
#pragma once

#include <cstddef>
#include <ctime>

namespace kvtest {

// What time() returns from now on; 0 gives the real clock back.
void setClock(std::time_t now);

// Seconds that the code under test asked to sleep since the last call; no time passes.
unsigned takeSleptSeconds();

// Makes the nth calloc from now on (1 is the next) fail, once.
class FailingAllocation {
  public:
    explicit FailingAllocation(size_t nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation &) = delete;
    FailingAllocation &operator=(const FailingAllocation &) = delete;

    // A failure that was injected and never happened proves nothing.
    bool happened() const;
};

// Successful allocations of the plug-in since the last call.
size_t takeAllocationCount();

}  // namespace kvtest
