// Values that daemon, command tool and web view share.
#pragma once

namespace kv1905d {

inline constexpr const char *kDefaultPlugin = "libkvMAP1905.so";
inline constexpr const char *kDefaultDataModel = "/tmp/kv1905_datamodel.json";
inline constexpr int kDataModelInterval = 5;  // seconds, the longest between two writes

}  // namespace kv1905d
