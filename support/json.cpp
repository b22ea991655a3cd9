#include "support/json.h"

#include <json-c/json_tokener.h>

#include <stdexcept>

#include "support/files.h"

namespace support {

JsonPtr readJsonObject(const std::string &path, size_t limit) {
    JsonPtr value(json_tokener_parse(readFile(path, limit).c_str()));
    if (!json_object_is_type(value.get(), json_type_object)) throw std::runtime_error(path + ": no JSON object");
    return value;
}

}  // namespace support
