/**
 * @file
 * nvram.h - the device's non-volatile settings, as the plug-in reads them.
 *
 * A device brings its own implementation; libkvplatform.so is the development stand-in.
 */
#ifndef KV1905_NVRAM_H
#define KV1905_NVRAM_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads a setting.
 * @param name  the setting's name
 * @return its value, owned by the library and valid until the next nvram_get; null when there is none
 */
char *nvram_get(const char *name);

#ifdef __cplusplus
}
#endif

#endif
