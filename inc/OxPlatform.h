#pragma once

/**
 * @file
 * The functions of the platform that the library calls: the device's own libraries define them, and
 * stand-ins do on a development host.
 *
 * A definition in the executable wins over both, so that a test or an application can collect the
 * log or choose the screen's size; it includes this header, so that the compiler compares the two.
 */

#include "OxExport.h"

extern "C" {

/**
 * Writes a line to the platform's log.
 *
 * Without the attribute for formats, because the library checks formats where it writes them.
 *
 * @param logId     the log buffer; the library writes to the main one, 0
 * @param priority  6 for errors, 4 for what scripts print
 * @param tag       "OX" for the library's own lines
 * @param format    as for `printf`
 * @return not looked at
 */
OXIL_API int __dlog_print(int logId, int priority, const char* tag, const char* format, ...);

/**
 * Answers a question about the device.
 *
 * @param key    "/feature/screen.width" and "/feature/screen.height" with the prefix that the
 *               library was built with (`OXIL_FEATURE_NAMESPACE`)
 * @param value  where the answer goes; untouched if there is none
 * @return 0 or a negative number
 */
OXIL_API int system_info_get_platform_int(const char* key, int* value);

}  // extern "C"
