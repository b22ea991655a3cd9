/*
 * The smallest platform library: logs to stderr, has no nvram and no configuration service. A start for your own
 * libkvplatform.so.
 *
 *     cc -shared -fPIC minimal_platform.c $(pkg-config --cflags kv1905) -o libkvplatform.so
 */
#include <stdarg.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "kv1905/kcfg.h"
#include "kv1905/kos.h"
#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"

enum { FAILED = -1 };

/* Runs `call` with the function's variable arguments, and returns its result. */
#define FORWARD(call)            \
    va_list arguments;           \
    va_start(arguments, format); \
    const int result = call;     \
    va_end(arguments);           \
    return result

int kos_pk(const char *format, ...) {
    FORWARD(vfprintf(stderr, format, arguments));
}

int kos_fpk(FILE *file, const char *format, ...) {
    FORWARD(vfprintf(file, format, arguments));
}

int kos_snprintf(char *text, size_t size, const char *format, ...) {
    FORWARD(vsnprintf(text, size, format, arguments));
}

int kos_formsys(int mode, const char *command) {
    char line[1024];
    const int length = snprintf(line, sizeof line, "%s%s", mode == 0 ? "" : "exec >/dev/null 2>&1\n", command);
    if (length < 0 || (size_t)length >= sizeof line) return FAILED;
    const int status = system(line);
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : FAILED;
}

/* A device escapes control characters: some texts come from the network. */
int kvMAP_syslog(int facility, int level, const char *format, ...) {
    (void)facility;
    if (level > KV_LOG_NOTICE) return 0;
    FORWARD((vfprintf(stderr, format, arguments), 0));
}

void kvMAP_log_setting(int first, int second, int third) {
    (void)first, (void)second, (void)third;
}

void kvlog(int level, const char *file, int line, const char *function, const char *format, ...) {
    if (level > KV_LOG_NOTICE) return;
    fprintf(stderr, "%s:%d %s: ", file, line, function);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
}

char *nvram_get(const char *name) {
    return (void)name, NULL;
}

int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    return (void)object, (void)index, (void)copy, FAILED;
}

int kcfgFeObjStructGetNextWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    return (void)object, (void)index, (void)copy, FAILED;
}

int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return (void)object, (void)index, (void)value, (void)options, FAILED;
}

int kcfgFeObjStructSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return (void)object, (void)index, (void)value, (void)options, FAILED;
}

int kcfgFeObjJsonGet(uint32_t object, KcfgInstanceIndex *index, struct json_object **copy) {
    return (void)object, (void)index, (void)copy, FAILED;
}

int kcfgFeObjJsonSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, struct json_object *value,
                                 const char *options) {
    return (void)object, (void)index, (void)value, (void)options, FAILED;
}

int kcfgFeReqSend(uint32_t request, const void *payload, uint32_t length) {
    return (void)request, (void)payload, (void)length, FAILED;
}
