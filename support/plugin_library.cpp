#include "support/plugin_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace support {

PluginLibrary::PluginLibrary(const std::string &path)
    : path_(path), library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) throw std::runtime_error(std::string("plug-in: ") + dlerror());
}

void *PluginLibrary::address(const char *name) const {
    void *found = dlsym(library_, name);
    if (found == nullptr) throw std::runtime_error("plug-in " + path_ + " lacks " + name);
    return found;
}

}  // namespace support
