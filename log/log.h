/*
 * The log: what every call of the library did, in one text file per controller.
 *
 * log_write() builds a line on the caller's thread and hands it to a background writer; it never
 * waits for the disk, and it drops the line when 31 lines are already waiting. The writer appends
 * the line to the file of the controller that it concerns at once, in one write, so that a crash
 * loses no more than the lines still waiting.
 *
 * Files: "vexo_<key>_log" in the current directory, where <key> is the controller address of the
 * handle with every '.' turned into '_' ("vexo_192_168_1_10_log"), or "sys_log" for lines that
 * concern no handle ("vexo_sys_log_log"). A file is truncated when its first line is written after
 * log_init(), and again after 500,000 lines. At most 10 keys get a file: with ten handles and
 * general lines there are eleven keys, and the last one to log gets none.
 *
 * A line: "Function:<name> Handle:<number> Time:<YYYY-MM-DD hh:mm:ss.uuuuuu> <text>", in local
 * time, cut at 2047 characters.
 *
 * A child of fork() begins with an empty log that is not started; its log_init() starts one of its
 * own, whose files are those of its own current directory.
 *
 * Nothing in the library starts or stops the log: call log_init() once early and log_cleanup() once
 * at the end. Until then up to 31 lines wait, and log_init() forgets them.
 */
#ifndef LOG_LOG_H
#define LOG_LOG_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Size of log_string in bytes; longer texts are cut to 1023 characters. */
#define VEXO_LOG_STRING_SIZE 1024

/* The text that was logged last, whichever thread logged it. Several threads may write it at once;
 * the log itself does not read it. */
extern VEXO_API char log_string[VEXO_LOG_STRING_SIZE];

/* 1 from log_init() to log_cleanup(), else 0. */
extern VEXO_API uint8_t log_init_ok;

/*
 * Starts the writer thread. Does nothing when the log is started already. Lines logged before are
 * forgotten. A failure to create the thread is not reported; lines are then dropped.
 * Thread: not together with log_cleanup() or another log_init().
 */
VEXO_API void log_init(void);

/*
 * Queues one line for the file of `handle`; 0 is the general file.
 *   function  name of the operation that logs
 *   text      the message, without a line feed at its end
 * The line is silently dropped when the handle is not registered, when `function` or `text` is null
 * (with a handle other than 0; with 0 "(null)" is logged), or when 31 lines wait. Costs one clock
 * reading and a short critical section, and allocates nothing. Thread: any.
 */
VEXO_API void log_write(uint32_t handle, const char* function, const char* text);

/*
 * Writes all lines that wait, closes the files and ends the writer, which says "Log thread exited"
 * on standard error. Returns at once when the log is not started. log_init() may follow.
 * Thread: not together with log_init() or another log_cleanup().
 */
VEXO_API void log_cleanup(void);

VEXO_C_END

#endif
