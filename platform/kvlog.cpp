#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <stdarg.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "log_line.h"
#include "platform_api.h"

using kvplatform::LogLine;

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
constexpr char kPrintName[] = "print";  // stands where a facility would, for lines of kos_pk

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
    LogLine print;  // the line that kos_pk has begun and not ended
};
constinit LogState gLog = {};

// A log call changes nothing for its caller, not even errno.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int saved_;
};

// A formatted text, as much of it as a line can take.
class Formatted {
  public:
    Formatted(const char *format, va_list arguments) : length_(vsnprintf(text_, sizeof text_, format, arguments)) {}

    int length() const { return length_; }  // of the whole text, negative when the format is at fault
    bool cut() const { return length_ >= static_cast<int>(sizeof text_); }
    std::string_view text() const {
        return {text_, std::min(static_cast<size_t>(std::max(length_, 0)), sizeof text_ - 1)};
    }

  private:
    char text_[kvplatform::kLogLineSize];
    int length_;
};

void addStamp(LogLine &line) {
    timespec now = {};
    tm local = {};
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    char text[64];
    const size_t length = strftime(text, sizeof text, "%F %T", &local);
    snprintf(&text[length], sizeof text - length, ".%03ld ", now.tv_nsec / 1'000'000);
    line.add(text);
    line.add(program_invocation_short_name);
    line.add(" ");
}

void writeLine(LogLine &line) {
    const std::string_view text = line.textWithNewline();
    ssize_t written = 0;
    do {
        written = write(STDERR_FILENO, text.data(), text.size());
    } while (written < 0 && errno == EINTR);
}

// syslog(3) adds time and program by itself.
void beginLine(LogLine &line, Target target) {
    if (target == kToStderr) addStamp(line);
}

void endLine(LogLine &line, Target target, int level) {
    if (target == kToStderr) {
        writeLine(line);
    } else {
        const std::string_view text = line.text();
        syslog(level, "%.*s", static_cast<int>(text.size()), text.data());
    }
    line.clear();
}

// An environment variable that is one of some texts. Returns its index, fallback when it is unset or wrong.
template <size_t N>
int choiceFromEnvironment(const char *name, const char *const (&choices)[N], int fallback) {
    const char *value = getenv(name);
    if (value == nullptr) return fallback;
    const auto found = std::find_if(std::begin(choices), std::end(choices),
                                    [value](const char *choice) { return strcmp(choice, value) == 0; });
    if (found != std::end(choices)) return static_cast<int>(found - choices);
    LogLine line;
    addStamp(line);
    for (const char *piece : {name, "=", value, " is not one of"})
        line.add(piece);
    for (const char *choice : choices) {
        line.add(" ");
        line.add(choice);
    }
    for (const char *piece : {"; using ", choices[fallback]})
        line.add(piece);
    writeLine(line);
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

void addFacility(LogLine &line, int facility) {
    for (const FacilityName &row : kFacilityNames) {
        if (row.facility == facility) return line.add(row.name);
    }
    char number[16];
    snprintf(number, sizeof number, "%d", facility);
    line.add(number);
}

std::string_view withoutNewlines(std::string_view text) {
    while (text.ends_with('\n'))
        text.remove_suffix(1);
    return text;
}

void endPrintedLine() {
    if (!gLog.print.empty()) endLine(gLog.print, outputOf(0).target, KV_LOG_DEBUG);
}

// Asked before a line is formatted: most lines are for debugging and never shown.
bool isShown(int facility, int level) {
    return level <= outputOf(facility).highestLevel;
}

// place: shown before the text, may be empty.
void writeLog(int facility, int level, std::string_view place, std::string_view text) {
    const Output &output = outputOf(facility);
    endPrintedLine();
    const int shown = std::clamp(level, 0, kLevels - 1);
    LogLine line;
    beginLine(line, output.target);
    addFacility(line, facility);
    for (const std::string_view piece : {std::string_view(" "), std::string_view(kLevelNames[shown]),
                                         std::string_view(": "), place, withoutNewlines(text)}) {
        line.add(piece);
    }
    endLine(line, output.target, shown);
}

// Debug prints build their lines in pieces, a hex dump byte by byte. A newline at either end of a piece ends the
// line; one inside may come from a neighbour's data and is escaped like any other control byte.
void addToPrintedLine(std::string_view text, bool ended) {
    if (text.starts_with('\n')) endPrintedLine();
    while (text.starts_with('\n'))
        text.remove_prefix(1);
    const std::string_view body = withoutNewlines(text);
    if (body.empty()) return;
    if (gLog.print.empty()) {
        beginLine(gLog.print, outputOf(0).target);
        gLog.print.add(kPrintName);
        gLog.print.add(": ");
    }
    gLog.print.add(body);
    if (ended || body.size() < text.size()) endPrintedLine();
}

__attribute__((destructor)) void finishPrintedLine() {
    endPrintedLine();
}

}  // namespace

KV_PLATFORM_API int kvMAP_syslog(int facility, int level, const char *format, ...) {
    const ErrnoKeeper keeper;
    if (!isShown(facility, level)) return 0;
    va_list arguments;
    va_start(arguments, format);
    const Formatted formatted(format, arguments);
    va_end(arguments);
    writeLog(facility, level, {}, formatted.text());
    return 0;
}

KV_PLATFORM_API void kvlog(int level, const char *file, int line, const char *function, const char *format, ...) {
    const ErrnoKeeper keeper;
    if (!isShown(0, level)) return;
    va_list arguments;
    va_start(arguments, format);
    const Formatted formatted(format, arguments);
    va_end(arguments);
    const char *slash = strrchr(file, '/');
    char place[256];
    snprintf(place, sizeof place, "%s:%d %s: ", slash != nullptr ? slash + 1 : file, line, function);
    writeLog(0, level, place, formatted.text());
}

KV_PLATFORM_API void kvMAP_log_setting(int first, int second, int third) {
    const ErrnoKeeper keeper;
    prepare();
    if (!hasOwnSettings(first) || second < 0 || second >= kTargets || third < 0 || third >= kLevels) {
        kvMAP_syslog(0, KV_LOG_WARNING,
                     "log setting %d %d %d ignored: want a facility from 0 to %d, a target 0 or 1 and a level from 0 "
                     "to %d\n",
                     first, second, third, kFacilities - 1, kLevels - 1);
        return;
    }
    endPrintedLine();
    const Output output = {third, static_cast<Target>(second)};
    if (first == 0) {
        std::fill(std::begin(gLog.outputs), std::end(gLog.outputs), output);
    } else {
        gLog.outputs[first] = output;
    }
}

KV_PLATFORM_API int kos_pk(const char *format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    const Formatted formatted(format, arguments);
    va_end(arguments);
    if (outputOf(0).highestLevel >= KV_LOG_DEBUG) addToPrintedLine(formatted.text(), formatted.cut());
    return formatted.length();
}
