// Log lines. Most begin with the local AL MAC; these helpers are the only place that writes that prefix.
//
//   LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");            Device 02:.., NULL registar function
//   LOG_MSG(KV_LOG_DEBUG, "send config query to " KV_MAC "\n", KV_MAC_BYTES(alMac));
//
// Written as macros, because the prefix must join the format at compile time, where -Wformat checks the whole format.
#pragma once

#include "frame/identity.h"
#include "kv1905/kos.h"
#include "kv1905/kvlog.h"

#define KV_MAC "%02hhX:%02hhX:%02hhX:%02hhX:%02hhX:%02hhX"
#define KV_MAC_BYTES(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]

#define LOG_PLAIN(level, ...) kvMAP_syslog(KV_LOG_FACILITY_MSG, level, __VA_ARGS__)

#ifdef __CPPCHECK__  // has no __VA_OPT__; the compilers check the arguments
#define LOG_PREFIXED(level, prefix, ...) LOG_PLAIN(level, prefix __VA_ARGS__)
#define PRINT_PREFIXED(prefix, ...) kos_pk(prefix __VA_ARGS__)
#else
#define LOG_PREFIXED(level, prefix, text, ...) \
    LOG_PLAIN(level, prefix "Device " KV_MAC ", " text, KV_MAC_BYTES(kv::getMAPAlMac()) __VA_OPT__(, ) __VA_ARGS__)
#define PRINT_PREFIXED(prefix, text, ...) \
    kos_pk(prefix "Device " KV_MAC ", " text, KV_MAC_BYTES(kv::getMAPAlMac()) __VA_OPT__(, ) __VA_ARGS__)
#endif

#define LOG_DEVICE(level, ...) LOG_PREFIXED(level, "", __VA_ARGS__)
#define LOG_MSG(level, ...) LOG_PREFIXED(level, "[MSG] ", __VA_ARGS__)
#define LOG_TLV(level, ...) LOG_PREFIXED(level, "[TLV] ", __VA_ARGS__)
#define LOG_DB(level, ...) LOG_PREFIXED(level, "[DB] ", __VA_ARGS__)

// Writes the same prefixes on lines without a level.
#define PRINT_DEVICE(...) PRINT_PREFIXED("", __VA_ARGS__)
#define PRINT_MSG(...) PRINT_PREFIXED("[MSG] ", __VA_ARGS__)
#define PRINT_TLV(...) PRINT_PREFIXED("[TLV] ", __VA_ARGS__)
