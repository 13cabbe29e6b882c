/*
 * vexo: cyclic data exchange with a robot controller. Chief header of the client library.
 *
 * Calling order of an application:
 *
 *   log_init                          start the log (log/log.h)
 *   vexo_create_handle                a number for the controller
 *   vexo_create                       connect
 *   vexo_protocol_version_request     negotiate, with the same mode
 *   vexo_all_recipe_get               read what the controller offers
 *   find_*_index, multi_find          names to row numbers (client/name_index.h)
 *   vexo_output_setup_send            say what the controller is to stream
 *   vexo_input_setup_send             say what the application will write
 *   vexo_output_start                 start the stream
 *   vexo_ouput_data_receive, vexo_input_data_send and commands (client/commands.h), in any mix
 *   vexo_output_pause, vexo_destroy, log_cleanup
 *
 * Unless a function says otherwise, every call
 *  - takes the handle first and returns
 *      0          success
 *      1 to 255   the controller's status, when it refuses the request
 *      VEXO_ERROR_TRANSPORT (302) and the other codes below
 *      -1         the handle is unknown; the call has sent nothing;
 *  - reports a failure by a line on standard output and the same words in the log, under the handle
 *    and the function's name. An unknown handle is reported as "<function>---VexoHandle not found",
 *    printed and logged, or as "<function> Error: vexoHandle is NULL", only logged;
 *  - waits for the reply without a time limit, and fails at once when the connection is lost;
 *  - is to be made from one thread at a time for one handle. Different handles are independent;
 *  - ends with 302 when a signal handler runs in the calling thread while it waits. The reply that
 *    comes later is then read by the next request, as is that of a thread that was cancelled.
 * docs/contracts.md has the whole of these rules.
 */
#ifndef CLIENT_VEXO_H
#define CLIENT_VEXO_H

#include <pthread.h>
#include <stdint.h>

#include "client/commands.h"
#include "client/name_index.h"
#include "client/records.h"
#include "log/log.h"
#include "vexo_export.h"
#include "wire/type_codes.h"

VEXO_C_BEGIN

/* Result codes beside 0, -1 and the controller's own status (1 to 255). */
#define VEXO_ERROR_NOT_FOUND 301  /* a recipe row is negative; the output is not started */
#define VEXO_ERROR_TRANSPORT 302  /* sending or receiving failed, or a reply was incomplete */
#define VEXO_ERROR_EMPTY_PAGE 303 /* a catalogue page came back empty four times */
#define VEXO_ERROR_RAW_SOCKET 304 /* the raw endpoint could not be created */

/* The largest output package in bytes, its 4 header bytes included. */
#define VEXO_MAX_OUTPUT_PACKAGE 1440

/* The most bytes of values that one input package should hold. */
#define VEXO_MAX_INPUT_VALUES 1396

/* Size of a handle's dataspace in bytes. */
#define VEXO_DATASPACE_SIZE 1981648

/* ---- The process-wide state, for inspection ------------------------------------------------- */

/* The version of the library, such as "1.1.8". */
extern VEXO_API const char* VEXO_SDK_Version;

/* The registered handles in the order of their creation; the first VexoHandleData_num count. */
extern VEXO_API VexoHandleSlot VexoHandleData[VEXO_MAX_HANDLES];

/* A count, then the numbers of the handles; 0 where a handle was destroyed. */
extern VEXO_API uint32_t VexoHandlelist[1 + VEXO_MAX_HANDLES];

/* How many slots of VexoHandleData lookups see. */
extern VEXO_API int32_t VexoHandleData_num;

/* The latest receive thread, once recv_thread_init_ok is 1. It may be joined after vexo_destroy().
 */
extern VEXO_API pthread_t th_receive;

/* 1 once the receive thread was created. It stays 1 when that thread ends, and while it is 1 no
 * other is started: an application that wants to stream again after a vexo_destroy() sets it to 0
 * and calls vexo_output_start(). */
extern VEXO_API uint32_t recv_thread_init_ok;

/* Held during vexo_ouput_data_receive(), vexo_input_data_send() and cvexo_servoj() respectively,
 * each by the calls of all handles. */
extern VEXO_API pthread_mutex_t base_datarecv_mutex;
extern VEXO_API pthread_mutex_t base_datasend_mutex;
extern VEXO_API pthread_mutex_t base_servoj_mutex;

/* ---- Handles -------------------------------------------------------------------------------- */

/*
 * Copies the 5 characters of the library's version, without a final zero, to `buffer` (5 bytes or
 * more), and logs "VEXO_SDK_Version: <version>" under handle 0.
 * Returns 0, or -1 for a null buffer (nothing is logged).
 */
VEXO_API int32_t vexo_get_SDK_Version(uint8_t* buffer);

/*
 * Registers a handle for the controller at `ip` (dotted IPv4 text) and stores its number in
 * `*handle`. Allocates the handle's dataspace of VEXO_DATASPACE_SIZE bytes; connects nothing.
 * Returns 0, or -1 with
 *   "VexoHandleData_num is full"   10 handles are registered
 *   "malloc failed"                there is no memory
 * Also printed and logged, under handle 0: "VexoHandle Requesting..." each time that a number is
 * made which is taken, until the clock has moved on; "Invalid IP address format" when `ip` is not
 * four numbers (the handle is made all the same).
 * Logs "\nip:<ip>,VexoHandle:<number>" under the handle and under handle 0.
 * Seeds the process's rand().
 * Thread: create and destroy all handles from one thread, before the first vexo_output_start().
 */
VEXO_API int32_t vexo_create_handle(uint32_t* handle, const char* ip);

/* 1 when one of the first VexoHandleData_num slots holds `handle`, else 0. Thread: any. */
VEXO_API uint32_t check_Handle(uint32_t handle);

/*
 * The dataspace of a handle, or null: silently for an unknown number; printing and logging
 * "VexoHandle is null" (under handle 0) for 0. The last slot with this number wins. For a destroyed
 * handle whose slot is still visible the pointer dangles. Thread: any.
 */
VEXO_API uint8_t* get_vexo_dataspace(uint32_t handle);

/*
 * The number that a handle made now for the address `ip` would get (a few hundred at most): m times
 * the digits of month, day, hour, minute, second, millisecond and the four numbers of the address,
 * with m from 1 to 10. A null `ip` is left out; one that is not four numbers is left out with
 * "Invalid IP address format" printed and logged. Seeds the process's rand().
 */
VEXO_API uint32_t get_time_multiply_sum(const char* ip);

/* `multiplier` times the sum of the decimal digits of `value`; 0 when `value` is 0 or less. */
VEXO_API int32_t sum_digits(int32_t value, uint32_t multiplier);

/*
 * Ends a handle: closes its connections (ports 2297, 2299, 2295, in this order; not the raw
 * endpoint), drops its name index, ends the receive thread, takes the handle from the registry and
 * frees its dataspace. Waits for the receive thread at most for the pass it is in. Calls on the
 * handle that are under way in other threads end first, with -1, 301 or 302: a request or an
 * acknowledged set-point that waits for its reply is woken, its connections being shut down.
 * Returns 0, or -1 when the handle is unknown (logged only) or a close failed ("Failed to close
 * control interface", "... receive interface", "... IO control interface"; the handle is gone all
 * the same).
 * There is one receive thread for all handles, and it is not started again by itself: after a
 * vexo_destroy() no handle receives output packages any more, and an acknowledged set-point of
 * another handle on the raw path goes on waiting, until recv_thread_init_ok is set to 0 and
 * vexo_output_start() called. Destroy handles in the reverse order of their creation: otherwise the
 * handle registered last drops out of the lookups instead.
 * A connection that was never opened is closed as descriptor 0: the receive connection in mode 3
 * and up, and all three of a handle that vexo_create() was not called for.
 */
VEXO_API int32_t vexo_destroy(uint32_t handle);

/* ---- Connection ----------------------------------------------------------------------------- */

/*
 * Connects a handle to the controller at `ip`: TCP ports 2295 (requests), 2297 (servo commands)
 * and, for mode 2 and below, 2299 (output packages); for mode 3 and up a raw Ethernet endpoint on
 * the network interface named `interface`, before the TCP ports. `srcmac` (6 bytes) replaces the
 * interface's own address as the source of raw frames when it is not null. Both are ignored for
 * mode 2 and below, and may then be null.
 * Blocks as socket_connect() does, for each port.
 * Returns 0; 304 when the raw endpoint cannot be created (the handle stays usable; no port was
 * tried); -1 for an unknown handle, or with "Failed to connect to IO control interface", "Failed to
 * connect to control interface" or "Failed to connect to receive interface". After such a failure
 * the dataspace is freed and the number of registered handles is one lower (whichever handle was
 * registered last drops out); connections already made stay open. The count of VexoHandlelist stays
 * as it was, and so one too high from then on: the receive thread that vexo_output_start() starts
 * with it ends at once ("vexo_thread--VexoHandle not found"). To stream all the same, call
 * vexo_thread_init() with a list of your own (recv_thread_init_ok must be 0).
 * At most 8 raw endpoints can exist, and neither vexo_destroy() nor a failure gives one back
 * (socket_raw_free() does). The calling thread cannot be cancelled meanwhile.
 */
VEXO_API int32_t vexo_create(uint32_t handle, const char* ip, const char* interface, int64_t mode,
                             uint8_t* srcmac);

/*
 * Creates the raw endpoint of a handle; vexo_create() does so with kind 2.
 *   interface  name of the network interface, e.g. "eth0"
 *   kind       low 16 bits: 2 bare Ethernet frames, 1 IPv4 datagrams (net/raw_socket.h)
 *   srcmac     6 bytes, or null for the interface's own address
 * Logs "vexo_rawsocket_create---srcmac:..." with the address in use.
 * Returns 0, 304 ("vexo_rawsocket_create---sock_raw create error:<code>"), or -1.
 */
VEXO_API int32_t vexo_rawsocket_create(uint32_t handle, const char* interface, uint32_t kind,
                                       uint8_t* srcmac);

/*
 * Negotiates the protocol version. Use the mode given to vexo_create():
 *   mode 1 and below   TCP, catalogue pages of 10 entries
 *   mode 2             TCP, catalogue pages of 200 entries
 *   mode 3 and up      raw Ethernet, pages of 200; with `nack` not 0 the controller does not
 *                      acknowledge servo set-points
 * On the raw path the controller's address is taken from its reply ("dstmac: ...", printed and
 * logged). Logs "protocol version request: <mode>,nack: <nack>" under the handle and handle 0.
 * Returns the common codes. A refused request still leaves its settings and the version stored.
 */
VEXO_API int32_t vexo_protocol_version_request(uint32_t handle, int64_t mode, uint32_t nack);

/* ---- Catalogue ------------------------------------------------------------------------------ */

/*
 * Read one page of the controller's output variables, input variables or control methods, starting
 * at entry `first`, into a VexoVariablePage or VexoMethodPage (room for as many rows as the
 * negotiated page size, 10 or 200, is enough). Only the fields stated there are written; on a
 * failure nothing is.
 * Return the common codes; 302 also for an incomplete reply, with "<function> recv error,
 * need_len:<n>, now_len:<m>". A reply is read in pieces of at most 1400 bytes.
 */
VEXO_API int32_t vexo_output_variables_get(uint32_t handle, uint32_t first, uint32_t* array);
VEXO_API int32_t vexo_input_variables_get(uint32_t handle, uint32_t first, uint32_t* array);
VEXO_API int32_t vexo_control_methods_get(uint32_t handle, uint32_t first, uint8_t* array);

/*
 * Reads all output variables, input variables and control methods into the dataspace, and builds
 * the name index. A page with fewer entries than the page size ends a list.
 * Returns the common codes, or 303 when a page came back empty four times, which happens when a
 * list is empty or its length is a multiple of the page size. What was read before a failure stays
 * usable. Rows beyond 2000 output variables, 1000 input variables or 3000 methods are dropped, and
 * the log says so once for each list.
 */
VEXO_API int32_t vexo_all_recipe_get(uint32_t handle);

/*
 * Width in bytes of a value with the type code in the low byte of `type` (wire/type_codes.h); 0 for
 * any other code.
 */
VEXO_API int32_t vexo_get_type_len(int32_t type);

/* Builds the three name indexes of a handle anew from its catalogue. Returns 0 or -1. */
VEXO_API int32_t build_all_hashes(uint32_t handle);

/* ---- Recipes -------------------------------------------------------------------------------- */

/*
 * Sets up the output recipe: which variables an output package holds, in which order.
 *   count        how many rows, up to 2000
 *   rows         rows of the output catalogue; a row of the input catalogue with
 *                VEXO_INPUT_ROW_MARKER added has the controller echo that input
 *   header_word  passed to the controller as it is
 *   recipe_id    receives the controller's number of the recipe
 * Returns the common codes, or 301 when a row number is negative (nothing is sent): "Error: The
 * varId[<position>] of data was not found". Only warned of, printed and logged: more rows than the
 * output catalogue has; a package of more than VEXO_MAX_OUTPUT_PACKAGE bytes, whose length is then
 * taken as that.
 */
VEXO_API int32_t vexo_output_setup_send(uint32_t handle, int32_t count, uint32_t* rows,
                                        uint32_t header_word, uint32_t* recipe_id);

/*
 * Sets up the input recipe: which input variables the application will write, in which order.
 *   count      how many rows (low 16 bits)
 *   rows       rows of the input catalogue
 *   recipe_id  receives the controller's number of the recipe
 * Returns the common codes; 301 as above; -1 also when `count` exceeds the input catalogue. Only
 * warned of: more than VEXO_MAX_INPUT_VALUES bytes of values.
 */
VEXO_API int32_t vexo_input_setup_send(uint32_t handle, int32_t count, int32_t* rows,
                                       uint32_t* recipe_id);

/* ---- Cyclic data ---------------------------------------------------------------------------- */

/*
 * Starts the output stream and, when recv_thread_init_ok is 0, the receive thread, which serves the
 * handles registered by then. That thread has the scheduling policy, priority and processors of the
 * thread that made this first call. `spare` is ignored.
 * Returns the common codes; -1 also with "Error: pthread_create".
 */
VEXO_API int32_t vexo_output_start(uint32_t handle, uint32_t spare);

/*
 * Pauses the output stream; the package store is then zeroed. `spare` is ignored.
 * Returns the common codes.
 */
VEXO_API int32_t vexo_output_pause(uint32_t handle, uint32_t spare);

/*
 * Copies the latest output package: u16 length of the whole package, 'U', recipe id, then the
 * values in recipe order, little-endian. A package whose length exceeds `size` is cut to size - 1
 * bytes. Before the first package has come nothing is copied. Never waits for the controller; but a
 * receive thread that the system has pre-empted in the midst of storing a package is waited for.
 *   spare   ignored
 *   buffer  where to; `size` bytes
 * Returns 0, 301 when the stream is not started, or -1. Thread: any.
 */
VEXO_API int32_t vexo_ouput_data_receive(uint32_t handle, uint32_t spare, void* buffer,
                                         uint32_t size);

/*
 * Sends one input package: the values of the input recipe in recipe order, little-endian, without
 * padding. `data` holds as many bytes as the recipe's values have together. No reply is awaited;
 * over TCP the call waits at most 5 ms for room in the socket. Over TCP the system may also hold a
 * package back until the controller's host has acknowledged the last one, up to some 40 ms, and
 * send those of that time together; the raw path sends each at once.
 * Returns 0, 302 or -1. Thread: any, but not beside another request on the same handle.
 */
VEXO_API int32_t vexo_input_data_send(uint32_t handle, uint32_t recipe_id, const void* data);

/* ---- The receive thread --------------------------------------------------------------------- */

/*
 * Starts the receive thread for the handles of `list` (a count, then the numbers), and brings the
 * reply semaphore of each of them to one token. vexo_output_start() calls this with VexoHandlelist.
 * Returns 0, also when recv_thread_init_ok says that the thread was started before, or -1 with
 * "Error: pthread_create".
 */
VEXO_API int32_t vexo_thread_init(uint32_t* list);

/* When recv_thread_init_ok is 1: asks the receive thread, and those of the application's own that
 * run now, to end once they have finished their pass, and does not wait for them. Always returns 0.
 * No thread is started again before the application sets recv_thread_init_ok to 0. */
VEXO_API int32_t vexo_thread_destroy(void);

/*
 * The body of the receive thread, with the list of handles as its argument: for a thread of the
 * application's own making in place of vexo_thread_init(). Runs until it is cancelled, which takes
 * effect between two passes, or vexo_thread_destroy() is called (it returns PTHREAD_CANCELED),
 * or a handle of the list is gone ("vexo_thread--VexoHandle not found"; it returns null).
 */
VEXO_API void* receive_thread(void* list);

VEXO_C_END

#endif
