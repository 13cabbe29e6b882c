/* Serial lines, real and virtual, through one set of calls.
 *
 * There are 5 channels, numbered 0 to 4. A channel is either a serial device in raw mode, or a
 * virtual one: a mailbox in memory with no device, through which the application exchanges blocks
 * of bytes with a pump, another part of the application that takes what was sent (tty_push_data)
 * and hands in what is to be received (tty_pop_data). tty_send, tty_recv, tty_select and tty_flush
 * serve both kinds, so that their caller need not know which one it talks to.
 *
 * A channel, once taken, stays taken for the life of the process; there is no close. A number
 * outside 0 to 4 is answered as stated at each function and changes nothing. A number inside is not
 * tested for being taken.
 *
 * A virtual channel towards the pump: idle -> a block waits (tty_send) -> taken (tty_push_data) ->
 * idle (tty_pop_data with TTY_ACKNOWLEDGE). A new tty_send in any state replaces the block, which
 * then waits. Towards the application: empty -> ready (tty_pop_data) -> drained (tty_recv) or
 * dropped (tty_flush); tty_send withdraws the ready mark.
 *
 * Threads: there are no locks. tty_connect is called from one thread. One channel is used by one
 * thread at a time; application and pump serialise their calls on a virtual channel themselves, and
 * since tty_push_data looks at all channels, it is serialised with the calls on each of them.
 * Nothing here prints or logs. */
#ifndef NET_SERIAL_H
#define NET_SERIAL_H

#include <stdint.h>
#include <sys/time.h>
#include <termios.h>

#include "vexo_export.h"

/* The greatest number of bytes in one block of a virtual channel, and in one tty_send. */
#define TTY_BLOCK_SIZE 1024

/* The flag of tty_pop_data by which the pump says that the block it took has been dealt with. */
#define TTY_ACKNOWLEDGE 0x80

VEXO_C_BEGIN

/* Takes the lowest free channel and opens a serial device on it, or makes it a virtual channel.
 *
 *   device     path of the device, e.g. "/dev/ttyUSB0"; empty or null: a virtual channel, for which
 *              the arguments up to `parity`, and `saved`, have no meaning
 *   baud       bits per second: 110, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200,
 *              230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2500000, 3000000,
 *              3500000 or 4000000; any other value, 2000000 included, gives 9600
 *   data_bits  5, 6 or 7 (the low 8 bits count); any other value gives 8
 *   stop_bits  1 (the low 8 bits count); any other value gives 2
 *   parity     'N' none, 'E' even (the low 8 bits count); any other value gives odd. With a parity
 *              the input is checked for it
 *   channel    takes the channel number, or -1 on failure; may be null
 *   saved      takes the settings found on the device, to be restored at the end through
 *              tty_getinstfd and tcsetattr(3); may be null. Filled also when the configuration
 *              fails after it; left alone when the device cannot be opened or is no terminal
 *
 * The device is opened for reading and writing, non-blocking, close-on-exec and not as controlling
 * terminal; its descriptor is never 0, 1 or 2. No translation, echo, signal characters or flow
 * control of any kind is in force.
 *
 * Returns 0, or -1 when no channel is free or the device cannot be opened or configured; the
 * channel then stays free and the device is closed. Does not wait for the line. */
VEXO_API int tty_connect(const char* device, unsigned int baud, unsigned int data_bits,
                         int stop_bits, int parity, int* channel, struct termios* saved);

/* The descriptor of a real channel; the channel number of a virtual one; -1 for a free channel and
 * for a number outside 0 to 4. (Before the first tty_connect a free channel gives 0.) */
VEXO_API int tty_getinstfd(int channel);

/* Sends a block of at most TTY_BLOCK_SIZE bytes. Never waits.
 * Real: one write; returns the number of bytes accepted, which may be less than `length`, or -1
 * (errno EAGAIN: no room at present).
 * Virtual: puts the block out for the pump in place of any earlier one, and withdraws received data
 * that has not been read: tty_recv returns 0 until the pump hands in new data. Returns `length`.
 * Returns 0, with no effect, for a number outside 0 to 4 and for a `length` above TTY_BLOCK_SIZE;
 * on a virtual channel also for a null `data` with a `length` above 0. */
VEXO_API long tty_send(int channel, const void* data, unsigned int length);

/* Receives at most `capacity` bytes (a negative one, or a null `buffer`, counts as 0). Never waits.
 * Real: one read; returns the number of bytes, 0 when the line has hung up, or -1 (errno EAGAIN:
 * nothing is there; EIO: the line has hung up).
 * Virtual: returns the number of bytes, or 0 when nothing is there; what does not fit into the
 * buffer is kept for the next call.
 * Returns 0 for a number outside 0 to 4. */
VEXO_API long tty_recv(int channel, void* buffer, int capacity);

/* Tells whether there is something to receive.
 * Real: waits at most `limit` (null: no limit; microseconds may be a million and more), which takes
 * what remains of the time; a signal handler does not end the wait. Returns 1 when readable (a line
 * that has hung up included), 0 when the time is over, -1 on an error: EINVAL for a negative limit.
 * Virtual: returns 1 when received data waits, otherwise 0, at once.
 * Returns 0 for a number outside 0 to 4. */
VEXO_API int tty_select(int channel, struct timeval* limit);

/* Drops what was received and not read yet; on a real channel also what is not sent yet.
 * Real: returns the result of tcflush(3): 0, or -1 with errno.
 * Virtual: returns the number of bytes dropped.
 * Returns 0 for a number outside 0 to 4. Never waits. */
VEXO_API int tty_flush(int channel);

/* The pump's side: hands in a block that the application is to receive, in place of what it has not
 * read of the one before. Never waits.
 *
 *   length  at most TTY_BLOCK_SIZE; of a longer block the first TTY_BLOCK_SIZE bytes are stored. 0
 *           leaves nothing to receive
 *   flags   TTY_ACKNOWLEDGE: the block that the pump took before is dealt with; other bits have no
 *           meaning
 *   unused  has no meaning
 *
 * Returns the number of bytes stored; 0, with no effect, for a number outside 0 to 4, for a real
 * channel, and for a null `data` with a `length` above 0. */
VEXO_API int tty_pop_data(int channel, const uint8_t* data, unsigned int length, int flags,
                          int unused);

/* The pump's side: takes a block that the application has sent, from the lowest channel on which
 * one waits. The search ends at the first free channel. Never waits.
 *
 *   channel  takes the number of the channel
 *   data     takes the block: room for TTY_BLOCK_SIZE bytes
 *   length   takes the number of bytes of the block
 *
 * Each of the three may be null; the block is taken all the same. They are left alone when no block
 * waits. Returns 0 when a block was taken, -1 when none waits. */
VEXO_API int tty_push_data(int* channel, uint8_t* data, uint32_t* length);

VEXO_C_END

#endif
