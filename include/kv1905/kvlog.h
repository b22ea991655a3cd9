/**
 * @file
 * kvlog.h - the device's logging library, as the plug-in calls it.
 *
 * A device brings its own implementation; libkvplatform.so is the development stand-in. The calls may come from
 * the host's thread alone, take printf-style formats, keep no argument beyond the call and never fail towards the
 * caller. Texts end with a newline of their own.
 */
#ifndef KV1905_KVLOG_H
#define KV1905_KVLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Facilities: 1 vendor messages, 2 AP configuration. Levels are syslog's. */
enum { KV_LOG_FACILITY_MSG = 1, KV_LOG_FACILITY_AP_CFG = 2 };
enum { KV_LOG_ERROR = 3, KV_LOG_WARNING = 4, KV_LOG_NOTICE = 5, KV_LOG_INFO = 6, KV_LOG_DEBUG = 7 };

/** Write one log line. facility: KV_LOG_FACILITY_*; level: 3 to 7. Returns 0, also for a line that was filtered out. */
int kvMAP_syslog(int facility, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

/**
 * Change the log settings at run time. In the development stand-in: first is a facility (0 for all), second is
 * 1 to send lines to syslog(3) and 0 to send them to stderr, third is the highest level that is still written.
 */
void kvMAP_log_setting(int first, int second, int third);

/** Write one log line that names its place in the source. level as above. */
void kvlog(int level, const char *file, int line, const char *function, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif

#endif
