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
 * Value of a setting. Returns null when there is none; the text belongs to the library, is not freed by the
 * caller and stays valid until the next nvram_get.
 */
char *nvram_get(const char *name);

#ifdef __cplusplus
}
#endif

#endif
