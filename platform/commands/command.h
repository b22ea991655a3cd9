// Exit statuses of the commands, and the mapping from exceptions.
#pragma once

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kvplatform {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// Runs the command's body, which returns an exit status. std::invalid_argument is a bad command line, everything else a
// failure. `hint` follows the error of a file.
template <typename Body>
int runCommand(const char *program, const char *hint, const Body &body) {
    try {
        const int status = body();
        if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
        throw std::runtime_error("standard output: " + std::generic_category().message(errno));
    } catch (const std::invalid_argument &error) {
        fprintf(stderr, "%s: %s; see %s --help\n", program, error.what(), program);
        return kExitUsage;
    } catch (const std::system_error &error) {
        fprintf(stderr, "%s: %s; %s\n", program, error.what(), hint);
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", program, error.what());
    }
    return kExitFailed;
}

}  // namespace kvplatform
