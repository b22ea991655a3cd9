// Ownership of json-c values, and their files.
#pragma once

#include <json-c/json_object.h>

#include <cstddef>
#include <memory>
#include <string>

namespace support {

struct JsonRelease {
    void operator()(json_object *value) const { json_object_put(value); }
};
using JsonPtr = std::unique_ptr<json_object, JsonRelease>;

// Reads a file of at most `limit` bytes that holds a JSON object. Throws like readFile(), and std::runtime_error for
// other content.
JsonPtr readJsonObject(const std::string &path, size_t limit);

}  // namespace support
