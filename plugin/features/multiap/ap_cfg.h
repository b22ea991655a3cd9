// The AP-configuration extension of Multi-AP onboarding.
#pragma once

namespace kv {

// The setter that the host finds in slot 6 of the callback table. Returns 0.
int setApConfiguration(void *argument);

}  // namespace kv
