/**
 * @file
 * kvlog.h - the device's logging library, as the plug-in calls it.
 *
 * A device brings its own implementation; libkvplatform.so is the development stand-in. All calls come from the
 * host's thread. They hold no argument after they return and report no failure. Texts end with their own newline.
 */
#ifndef KV1905_KVLOG_H
#define KV1905_KVLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Facilities: 1 vendor messages, 2 AP configuration. Levels are syslog's. */
enum { KV_LOG_FACILITY_MSG = 1, KV_LOG_FACILITY_AP_CFG = 2 };
enum { KV_LOG_ERROR = 3, KV_LOG_WARNING = 4, KV_LOG_NOTICE = 5, KV_LOG_INFO = 6, KV_LOG_DEBUG = 7 };

/**
 * Writes one log line.
 * @param facility  KV_LOG_FACILITY_*
 * @param level     3 to 7
 * @param format    printf-style, followed by its arguments
 * @return 0, also for a line that was filtered out
 */
int kvMAP_syslog(int facility, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

/**
 * Changes the log settings at run time. The meaning of the numbers is the device's; below is the stand-in's.
 * @param first   facility, 0 for all
 * @param second  1 sends lines to syslog(3), 0 to stderr
 * @param third   the highest level that is still written
 */
void kvMAP_log_setting(int first, int second, int third);

/**
 * Writes one log line that names its place in the source.
 * @param level     3 to 7
 * @param file      source file
 * @param line      source line
 * @param function  function name
 * @param format    printf-style, followed by its arguments
 */
void kvlog(int level, const char *file, int line, const char *function, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif

#endif
