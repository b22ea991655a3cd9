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

/**
 * Prints a debug line that has no level.
 * @param format  printf-style, followed by its arguments
 * @return characters printed, negative on failure
 */
int kos_pk(const char *format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Prints to an open file.
 * @param file    open for writing
 * @param format  printf-style, followed by its arguments
 * @return characters printed, negative on failure
 */
int kos_fpk(FILE *file, const char *format, ...) __attribute__((format(printf, 2, 3)));

/**
 * Prints to a buffer, as snprintf does.
 * @param text    receives the text, NUL-terminated unless size is 0
 * @param size    bytes at text
 * @param format  printf-style, followed by its arguments
 * @return length of the whole text, which may exceed size - 1
 */
int kos_snprintf(char *text, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

/**
 * Runs a shell command and waits for it.
 * @param mode     0: the command writes to the caller's stdout, any other value: its output is discarded
 * @param command  text for "sh -c"
 * @return its exit status, -1 when it could not run
 */
int kos_formsys(int mode, const char *command);

#ifdef __cplusplus
}
#endif

#endif
