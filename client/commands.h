/*
 * Commands to the robot. Each calls a method of the controller, named by its row in the method
 * catalogue (find_method_index()); whether the row is the method that the function's name promises
 * is not checked, and a row outside the catalogue's 3000 sends id 0.
 *
 * Unless a function says otherwise it sends one request, waits for the reply without a time limit
 * and returns
 *   0          accepted
 *   1 to 255   the controller's status: "<function> Error: <status>", printed and logged
 *   302        sending or receiving failed, or the controller closed the connection:
 *              "<function> send error" or "<function> recv error", printed and logged
 *   -1         the handle is unknown: "<function> Error: vexoHandle is NULL", logged
 * Thread: one request at a time for one handle; different handles are independent.
 * Units and ranges of the values are the controller's; they are passed on as they are.
 */
#ifndef CLIENT_COMMANDS_H
#define CLIENT_COMMANDS_H

#include <stdint.h>

#include "client/records.h"
#include "vexo_export.h"

VEXO_C_BEGIN

/* Sets the speed override. */
VEXO_API int32_t vexo_set_percentvelocity(uint32_t handle, int32_t method_row, double value);

/* Set a digital output. The three build the same request; the method row tells the controller
 * which kind of output is meant. */
VEXO_API int32_t vexo_set_setstandarddigitalout(uint32_t handle, int32_t method_row, uint8_t output,
                                                uint8_t state);
VEXO_API int32_t vexo_set_setconfigurabledigitalout(uint32_t handle, int32_t method_row,
                                                    uint8_t output, uint8_t state);
VEXO_API int32_t vexo_set_settooldigitalout(uint32_t handle, int32_t method_row, uint8_t output,
                                            uint8_t state);

/*
 * Read all digital inputs or outputs into `*bits`, one bit each. The result is the 32-bit value of
 * the reply's bytes 3 to 6: its low byte is the controller's status. With status 0 the bits are
 * stored, and the result is 0 unless the controller fills the three bytes behind the status.
 */
VEXO_API int32_t vexo_set_getalldigitalinputbits(uint32_t handle, int32_t method_row,
                                                 uint64_t* bits);
VEXO_API int32_t vexo_set_getalldigitaloutputbits(uint32_t handle, int32_t method_row,
                                                  uint64_t* bits);

/* Ends servo motion. Goes over the servo commands' connection (port 2297), all others over port
 * 2295; not to be called beside cvexo_servoj() on the same handle. */
VEXO_API int32_t cvexo_servo_stop(uint32_t handle, int32_t method_row, double value);

/* Resets an error of the controller. */
VEXO_API int32_t cvexo_resterror(uint32_t handle, int32_t method_row);

/* Switch inertia and torque compensation. */
VEXO_API int32_t cvexo_startinertiacomp(uint32_t handle, int32_t method_row);
VEXO_API int32_t cvexo_starttorquecomp(uint32_t handle, int32_t method_row);
VEXO_API int32_t cvexo_stopinertiacomp(uint32_t handle, int32_t method_row);
VEXO_API int32_t cvexo_stoptorquecomp(uint32_t handle, int32_t method_row);

/* Starts the controller's log output. */
VEXO_API int32_t cvexo_startlogoutput(uint32_t handle, int32_t method_row);

/* Switch the force sensor's input. */
VEXO_API int32_t cvexo_startsensorforceinput(uint32_t handle, int32_t method_row);
VEXO_API int32_t cvexo_stopsensorforceinput(uint32_t handle, int32_t method_row);

/*
 * Sends one servo set-point, with a running number (1 to 100000, then 1 again). Made for a control
 * loop: allocates nothing; over TCP it waits at most 5 ms for room to send and 5 ms for the
 * acknowledgement.
 *   value   the leading number of the controller's servo method
 *   flag    the byte behind the running number
 *   vector  6 numbers, or null to leave them out; with protocol version 2 and on the raw path
 *           they are also left out when `flag` is 0
 *   count   how many values, 0 to 255
 *   values  `count` numbers (not read when 0)
 * Returns the codes above, but
 *   0    also when the acknowledgement was late, lost or could not be received:
 *        "cvexo_servoj recv error: <code>", only printed (-2: late, 0: connection closed)
 *   302  the set-point could not be sent ("cvexo_servoj send error: <code>"), or the raw endpoint
 *        is not open ("cvexo_servoj socket_raw_applysendbuf error <code>")
 * On the raw path the call waits without limit for the acknowledgement, which the receive thread
 * hands over: start the output first. The first call after that start does not wait, so that each
 * call returns the acknowledgement of the one before. In nack mode it does not wait at all. A lost
 * acknowledgement, or the end of the receive thread with any vexo_destroy(), leaves it waiting; the
 * end of its own handle ends it with 302. The thread may be cancelled in this wait.
 * Thread: any; the calls of all handles follow one another (base_servoj_mutex).
 */
VEXO_API int32_t cvexo_servoj(uint32_t handle, int32_t method_row, double value, uint8_t flag,
                              const double* vector, uint8_t count, const double* values);

/*
 * Asks for the controller's model number and version texts. Logs them as four lines under the
 * handle and under handle 0. Texts of more than 20 characters are cut to 20. On a failure the
 * record is left as it is.
 */
VEXO_API int32_t vexo_get_control_version(uint32_t handle, VexoControllerVersion* version);

VEXO_C_END

#endif
