// Marks the exported calls of libkvplatform.so; everything else in it is hidden.
#ifndef KV1905_PLATFORM_PLATFORM_API_H
#define KV1905_PLATFORM_PLATFORM_API_H

#define KV_PLATFORM_API __attribute__((visibility("default")))

#endif
