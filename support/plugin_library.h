// The plug-in's shared library, for daemon and tool.
#pragma once

#include <bit>
#include <string>

namespace support {

/*
 * A name without a slash is looked up like a library of the program's own. The library stays loaded until the process
 * ends: it has no call that releases what it holds. Both throw std::runtime_error that names the library and
 * what is missing.
 */
class PluginLibrary {
  public:
    explicit PluginLibrary(const std::string &path);

    // Never returns null.
    void *address(const char *name) const;
    template <typename Pointer>
    Pointer symbol(const char *name) const {
        // POSIX makes dlsym's result convertible to a function pointer, C++ does not; so its bits are copied.
        return std::bit_cast<Pointer>(address(name));
    }

  private:
    std::string path_;
    void *library_;
};

}  // namespace support
