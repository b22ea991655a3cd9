#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <limits.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform_api.h"
#include "support/line_output.h"
#include "support/terminal_text.h"

namespace {

struct FacilityName {
    int facility;
    const char *name;
};
constexpr FacilityName kFacilityNames[] = {
    {0, "host"},
    {KV_LOG_FACILITY_MSG, "msg"},
    {KV_LOG_FACILITY_AP_CFG, "apcfg"},
};
constexpr char kPrintName[] = "print: ";  // in place of facility and level, for lines of kos_pk

// Indexed by level; the contract starts at error.
constexpr const char *kLevelNames[] = {"emergency", "alert", "critical", "error", "warning", "notice", "info", "debug"};
constexpr int kLevels = static_cast<int>(std::size(kLevelNames));
static_assert(kLevels == KV_LOG_DEBUG + 1);

constexpr int kFacilities = 16;  // with settings of their own; all others follow the host's, number 0
constexpr int kDefaultLevel = KV_LOG_INFO;

enum Target { kToStderr, kToSyslog, kTargets };
constexpr const char *kTargetNames[kTargets] = {"stderr", "syslog"};

struct Output {
    int highestLevel;
    Target target;
};

struct LogState {
    bool ready;
    Output outputs[kFacilities];
};
constinit LogState gLog = {};
constinit support::LineOutput gStderr{STDERR_FILENO};

// Longest line with its newline.
constexpr size_t kLineSize = PIPE_BUF;

// Runs a log call. It changes nothing for its caller, not even errno; without memory the line is lost.
template <typename Call>
void runQuietly(const Call &call) noexcept {
    const int saved = errno;
    try {
        call();
    } catch (const std::exception &) {
    }
    errno = saved;
}

// A formatted text, cut to the length of a line.
struct Formatted {
    Formatted(const char *format, va_list arguments) {
        char buffer[kLineSize];
        length = vsnprintf(buffer, sizeof buffer, format, arguments);
        text.assign(buffer, std::min(static_cast<size_t>(std::max(length, 0)), sizeof buffer - 1));
    }

    std::string text;
    int length;  // of the whole text, negative for an invalid format
};

std::string_view withoutNewlines(std::string_view text) {
    while (text.ends_with('\n'))
        text.remove_suffix(1);
    return text;
}

// Ends a line that is too long in "...", without cutting an escape \xNN.
std::string shortened(std::string line) {
    constexpr std::string_view kEllipsis = "...";
    constexpr size_t kEscapeSize = 4;
    if (line.size() < kLineSize) return line;
    size_t end = kLineSize - 1 - kEllipsis.size();
    const size_t escape = line.rfind('\\', end - 1);
    if (escape != std::string::npos && escape + kEscapeSize > end) end = escape;
    return line.substr(0, end).append(kEllipsis);
}

// Returns the local time in a format of strftime().
std::string timeText(time_t seconds, const char *format) {
    tm local = {};
    localtime_r(&seconds, &local);
    char text[32];
    return {text, strftime(text, sizeof text, format, &local)};
}

std::string stamp() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    char milliseconds[16];
    snprintf(milliseconds, sizeof milliseconds, ".%03d ", static_cast<int>(now.tv_nsec / 1'000'000));
    return timeText(now.tv_sec, "%F %T") + milliseconds + program_invocation_short_name + ' ';
}

// Writes to the log daemon. syslog() would wait for one that has stopped.
void writeToSystemLog(int level, const std::string &line) {
    static const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    static support::LineOutput output(log);
    constexpr sockaddr_un kAddress = {AF_UNIX, _PATH_LOG};
    connect(log, reinterpret_cast<const sockaddr *>(&kAddress), sizeof kAddress);  // it may be a new one
    output.write(shortened('<' + std::to_string(LOG_USER | level) + '>' + timeText(time(nullptr), "%b %e %T ") +
                           program_invocation_short_name + ": " + line));
}

void writeLine(Target target, int level, const std::string &line) {
    if (target == kToSyslog) return writeToSystemLog(level, line);
    gStderr.write(shortened(stamp() + line));
}

// Reads an environment variable with fixed values. Returns its index, or `fallback` if it is unset or invalid.
int choiceFromEnvironment(const char *name, std::span<const char *const> choices, int fallback) {
    const char *value = getenv(name);
    if (value == nullptr) return fallback;
    const auto found = std::find(choices.begin(), choices.end(), std::string_view(value));
    if (found != choices.end()) return static_cast<int>(found - choices.begin());
    std::string line = name + ('=' + support::escaped(value)) + " is not one of";
    for (const char *choice : choices)
        line.append(" ").append(choice);
    writeLine(kToStderr, KV_LOG_WARNING, line + "; using " + choices[static_cast<size_t>(fallback)]);
    return fallback;
}

void prepare() {
    if (gLog.ready) return;
    gLog.ready = true;
    constexpr const char *kLevelTexts[kLevels] = {"0", "1", "2", "3", "4", "5", "6", "7"};
    const int level = choiceFromEnvironment("KV_LOG_LEVEL", kLevelTexts, kDefaultLevel);
    const auto target = static_cast<Target>(choiceFromEnvironment("KV_LOG_TARGET", kTargetNames, kToStderr));
    std::fill(std::begin(gLog.outputs), std::end(gLog.outputs), Output{level, target});
}

bool hasOwnSettings(int facility) {
    return facility >= 0 && facility < kFacilities;
}

const Output &outputOf(int facility) {
    prepare();
    return gLog.outputs[hasOwnSettings(facility) ? facility : 0];
}

// The line that kos_pk has begun and not ended. Debug prints build their lines in pieces, a hex dump byte by byte.
class PrintedLine {
  public:
    ~PrintedLine() {
        runQuietly([this] { end(); });
    }

    // A newline at either end of a piece ends the line; one inside may come from a neighbour's data and is escaped like
    // any other control byte.
    void add(std::string_view piece) {
        if (piece.starts_with('\n')) end();
        const size_t begin = std::min(piece.find_first_not_of('\n'), piece.size());
        const std::string_view body = withoutNewlines(piece.substr(begin));
        if (body.empty()) return;
        text_ += (text_.empty() ? kPrintName : "") + support::escaped(body);
        if (piece.ends_with('\n') || text_.size() >= kLineSize) end();
    }

    void end() {
        if (!text_.empty()) writeLine(outputOf(0).target, KV_LOG_DEBUG, std::exchange(text_, {}));
    }

  private:
    std::string text_;
};
PrintedLine gPrint;

std::string facilityName(int facility) {
    const auto named = std::find_if(std::begin(kFacilityNames), std::end(kFacilityNames),
                                    [facility](const FacilityName &row) { return row.facility == facility; });
    return named != std::end(kFacilityNames) ? named->name : std::to_string(facility);
}

// Formats and writes a line that was not filtered out; most debug lines are. `place` is its prefix.
void writeLog(int facility, int level, const std::string &place, const char *format, va_list arguments) {
    const Formatted formatted(format, arguments);
    gPrint.end();
    const int shown = std::clamp(level, 0, kLevels - 1);
    writeLine(outputOf(facility).target, shown,
              facilityName(facility) + ' ' + kLevelNames[shown] + ": " +
                  support::escaped(place + std::string(withoutNewlines(formatted.text))));
}

bool isShown(int facility, int level) {
    return level <= outputOf(facility).highestLevel;
}

}  // namespace

KV_PLATFORM_API int kvMAP_syslog(int facility, int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    runQuietly([&] {
        if (isShown(facility, level)) writeLog(facility, level, "", format, arguments);
    });
    va_end(arguments);
    return 0;
}

KV_PLATFORM_API void kvlog(int level, const char *file, int line, const char *function, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    runQuietly([&] {
        if (!isShown(0, level)) return;
        const char *slash = strrchr(file, '/');
        const std::string place = slash != nullptr ? slash + 1 : file;
        writeLog(0, level, place + ':' + std::to_string(line) + ' ' + function + ": ", format, arguments);
    });
    va_end(arguments);
}

KV_PLATFORM_API void kvMAP_log_setting(int first, int second, int third) {
    runQuietly([=] {
        prepare();
        if (!hasOwnSettings(first) || second < 0 || second >= kTargets || third < 0 || third >= kLevels) {
            kvMAP_syslog(
                0, KV_LOG_WARNING,
                "log setting %d %d %d ignored: expected a facility from 0 to %d, a target 0 or 1 and a level from "
                "0 to %d\n",
                first, second, third, kFacilities - 1, kLevels - 1);
            return;
        }
        gPrint.end();
        const Output output = {third, static_cast<Target>(second)};
        gLog.outputs[first] = output;
        if (first == 0) std::fill(std::begin(gLog.outputs), std::end(gLog.outputs), output);
    });
}

KV_PLATFORM_API int kos_pk(const char *format, ...) {
    int length = -1;
    va_list arguments;
    va_start(arguments, format);
    runQuietly([&] {
        const Formatted formatted(format, arguments);
        length = formatted.length;
        if (isShown(0, KV_LOG_DEBUG)) gPrint.add(formatted.text);
    });
    va_end(arguments);
    return length;
}
