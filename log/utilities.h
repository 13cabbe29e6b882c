/* Two small helpers for applications. They keep no state, print and log nothing, and may be called
 * from any thread. */
#ifndef LOG_UTILITIES_H
#define LOG_UTILITIES_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Suspends the calling thread for `ms` milliseconds; 0 returns at once, without a system call.
 * A signal handler that runs meanwhile ends the sleep early, and nothing tells so. */
VEXO_API void vexo_delay_ms(uint32_t ms);

/* Judges a comma-separated list of names, the form in which several names are looked up at once.
 * Only commas and blanks (' ') are judged: any other character may be part of a name, tabs
 * included, and whether a name exists is not looked at.
 *
 * Returns, for the first fault from the left,
 *   0  none: no blank, no empty element
 *   1  `str` is null or empty
 *   2  a blank
 *   3  an empty element: a comma at the beginning, after another comma, or at the end */
VEXO_API int check_string(const unsigned char* str);

VEXO_C_END

#endif
