/**
 * @file
 * kos.h - the device's OS helper library, as the plug-in calls it.
 *
 * A device brings its own implementation; libkvplatform.so is the development stand-in.
 */
#ifndef KV1905_KOS_H
#define KV1905_KOS_H

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Print a debug line that has no level. Returns the characters printed, negative on failure. */
int kos_pk(const char *format, ...) __attribute__((format(printf, 1, 2)));

/** Print to an open file. Returns the characters printed, negative on failure. */
int kos_fpk(FILE *file, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** snprintf: text always ends with NUL when size is not 0. Returns the length the whole text would have had. */
int kos_snprintf(char *text, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

/** Run a shell command and wait for it. mode 0 lets it write to the caller's stdout, any other mode silences it.
 * Returns its exit status, -1 when it could not run. */
int kos_formsys(int mode, const char *command);

#ifdef __cplusplus
}
#endif

#endif
