/*
 * vexo session: one robot that stays connected. The whole interface of libvexo-session.
 *
 *   vexo_session_open("192.168.1.20", NULL, &robot);                   // connected or not
 *   vexo_session_stream_open(robot, names, 2, NULL, 5000000, &stream); // what it streams
 *   vexo_session_cursor_open(stream, NULL, &cursor);                   // a place in that stream
 *   while (vexo_session_cursor_wait(cursor, 1000000) == VEXO_SESSION_OK) {
 *       vexo_session_cursor_read(cursor, records, capacity, &count, &lost);
 *   }
 *   vexo_session_close(robot);                             // takes stream and cursor with it
 *
 * STATES. A session goes its way by itself, from vexo_session_open() until vexo_session_close():
 *
 *        open
 *         |
 *   +-> connecting --> negotiating --> reading catalogue --> setting up -----> ready <--> streaming
 *   |     |                |                   |                 |               |            |
 *   |     +----------------+---------+---------+-----------------+---------------+------------+
 *   |                                |  a cut: reset, closed, silent, refused, out of step
 *   |                                v
 *   +--- each 50 ms at first --- waiting                      (close: from any state to closed)
 *
 *   connecting          opens the TCP ports 2295, then 2297 and (not on the raw path) 2299
 *   negotiating         asks for the protocol version, and on the raw path for the address
 *   reading catalogue   reads the controller's version, then outputs, inputs and methods
 *   setting up          sets up the recipes that were open before the cut, by name
 *   ready, streaming    requests, inputs and set-points are taken; when streaming, packages come
 *   waiting             between two attempts: 50 ms after the last one during the first ten seconds
 *                       of a cut, then half as long again each time, up to one second
 *   closed              the handle is of no use any more
 *
 * WHAT A CUT DOES. Calls that wait for the controller end with VEXO_SESSION_CUT. Nothing that was
 * given to the library before the cut is sent after it: set-points that are still in the sockets
 * are thrown away with their connection, input values count as not set. Streams, their cursors and
 * inputs stay open and go on when the session is back. If the catalogue is another one then, an
 * event says so; recipes whose names are still there with the same types are set up again, the
 * others answer with VEXO_SESSION_CATALOGUE_CHANGED until they are closed and opened anew.
 *
 * NOTICING A CUT. A connection that is closed or reset is noticed at once. Silence is noticed by
 * the stream, when no package has come for `stream_limit_us`, and without a stream by a request
 * each `idle_us` that stays unanswered for `reply_limit_us`.
 *
 * HANDLES. VexoSession, VexoSessionStream, VexoSessionInputs, VexoSessionCursor and VexoSessionFeed
 * are numbers in the guise of pointers: to be compared with NULL, never to be followed. A closed or
 * foreign one is answered with VEXO_SESSION_CLOSED, whenever it is used. Closing a session closes
 * what was opened on it, closing a stream its cursors. Handles do not survive fork(): in the child
 * they count as closed, and the child may open its own. There may be 16384 at a time.
 *
 * RESULTS. A function returns VEXO_SESSION_OK (0) or a negative VexoSessionResult; a few return a
 * count instead of 0 and say so. After a failure vexo_session_error() tells the calling thread the
 * cause and the remedy, a line each. Every function may return VEXO_SESSION_CLOSED for its handle,
 * and VEXO_SESSION_BAD_ARGUMENT for a null pointer or a value outside of what is said of it; below
 * only the others are listed. When a function fails, it writes nothing to its output parameters
 * unless it says otherwise.
 *
 * STRUCTURES begin with `size`, which the caller sets to sizeof of the structure before a call: so
 * old programs work with newer libraries. A null pointer to options stands for all defaults; so
 * does a field that is 0.
 *
 * LIMITS. Each call that may wait takes a limit in microseconds from the call on; 0 (or less) never
 * waits. It returns VEXO_SESSION_TIMED_OUT once the limit has passed. Calls without a limit never
 * wait, neither for the controller nor for other threads' calls that do.
 *
 * THREADS. Every function may be called by any thread at any time, also together on one handle;
 * only a cursor is for one thread at a time. One thread of the library, the I/O thread, serves all
 * sessions of a process; it runs from the first open to the last close. It stores a package without
 * taking a lock and without allocating. vexo_session_close() may be called while other threads are
 * inside calls on that session: these return VEXO_SESSION_CLOSED.
 *
 * The library prints nothing, makes no files, and changes neither signals nor handlers. All times
 * are nanoseconds (_ns) or microseconds (_us), of CLOCK_REALTIME or of CLOCK_MONOTONIC.
 */
#ifndef SESSION_SESSION_H
#define SESSION_SESSION_H

#include <stddef.h>
#include <stdint.h>

#include "vexo_export.h"
#include "wire/type_codes.h"

VEXO_C_BEGIN

typedef struct VexoSession VexoSession;
typedef struct VexoSessionStream VexoSessionStream;
typedef struct VexoSessionCursor VexoSessionCursor;
typedef struct VexoSessionInputs VexoSessionInputs;
typedef struct VexoSessionFeed VexoSessionFeed;

/* ---- Results and errors --------------------------------------------------------------------- */

typedef enum VexoSessionResult {
    VEXO_SESSION_OK = 0,
    VEXO_SESSION_BAD_ARGUMENT = -1,       /* a null pointer, or a value that makes no sense */
    VEXO_SESSION_CLOSED = -2,             /* the handle is closed, or never was one */
    VEXO_SESSION_TIMED_OUT = -3,          /* the limit of the call has passed */
    VEXO_SESSION_NOT_CONNECTED = -4,      /* neither ready nor streaming; nothing was sent */
    VEXO_SESSION_CUT = -5,                /* the connection broke; whether it was done is unknown */
    VEXO_SESSION_REFUSED = -6,            /* by the controller; its status is in the error */
    VEXO_SESSION_UNKNOWN_NAME = -7,       /* not in the catalogue; the remedy has the nearest */
    VEXO_SESSION_WRONG_TYPE = -8,         /* the value does not fit the variable's type */
    VEXO_SESSION_NOT_SET = -9,            /* an input has no value since the last cut */
    VEXO_SESSION_BUSY = -10,              /* the session has a stream (or feed) already */
    VEXO_SESSION_TOO_LARGE = -11,         /* does not fit a package, a message or the buffer */
    VEXO_SESSION_CATALOGUE_CHANGED = -12, /* the recipe's variables are not what they were */
    VEXO_SESSION_NOT_PERMITTED = -13,     /* the system refuses: privileges are missing */
    VEXO_SESSION_NO_INTERFACE = -14,      /* no such network interface, or it is down */
    VEXO_SESSION_NO_MEMORY = -15,         /* no memory, or no free handle */
    VEXO_SESSION_SYSTEM = -16,            /* the system refuses for another reason */
    VEXO_SESSION_OUT_OF_STEP = -17,       /* what the controller sends makes no sense */
    VEXO_SESSION_UNREACHABLE = -18,       /* a port cannot be connected to */
    VEXO_SESSION_SILENT = -19,            /* the controller has stopped to answer, or to stream */
    VEXO_SESSION_NO_DATA = -20            /* no package has come yet */
} VexoSessionResult;

typedef struct VexoSessionError {
    uint32_t size;
    int32_t code;   /* a VexoSessionResult */
    int32_t status; /* the controller's status of 1 to 255 when refused, else 0 */
    int32_t system; /* errno, else 0 */
    char cause[256];
    char remedy[256];
} VexoSessionError;

/* Copies the calling thread's last failure, with the code that the function returned;
 * VEXO_SESSION_OK and empty texts when no call of this thread has failed yet. */
VEXO_API int32_t vexo_session_error(VexoSessionError* error);

/* "timed out" for VEXO_SESSION_TIMED_OUT and so on; "unknown" for other numbers. */
VEXO_API const char* vexo_session_result_name(int32_t result);
VEXO_API const char* vexo_session_version(void); /* of the library: "1.2.0" */

/* ---- The I/O thread ------------------------------------------------------------------------- */

typedef struct VexoSessionThreadOptions {
    uint32_t size;
    int32_t policy;    /* SCHED_OTHER (0), SCHED_FIFO (1), SCHED_RR (2) */
    int32_t priority;  /* 1 to 99 for SCHED_FIFO and SCHED_RR, else 0 */
    int32_t processor; /* 1 + the number of the processor to stay on; 0: any */
} VexoSessionThreadOptions;

/*
 * Says how the I/O thread of this process is to run: at once if it runs, and whenever it starts.
 * Without this call it runs with SCHED_OTHER on any processor. It is named "vexo-session".
 * VEXO_SESSION_NOT_PERMITTED when the system refuses the policy or the priority, BAD_ARGUMENT when
 * there is no such processor. What held before still holds then. When the thread does not run yet,
 * the refusal is the result of vexo_session_open().
 */
VEXO_API int32_t vexo_session_io_thread(const VexoSessionThreadOptions* options);

/* ---- Sessions ------------------------------------------------------------------------------- */

typedef enum VexoSessionState {
    VEXO_SESSION_STATE_CLOSED = 0,
    VEXO_SESSION_STATE_WAITING = 1,
    VEXO_SESSION_STATE_CONNECTING = 2,
    VEXO_SESSION_STATE_NEGOTIATING = 3,
    VEXO_SESSION_STATE_READING_CATALOGUE = 4,
    VEXO_SESSION_STATE_SETTING_UP = 5,
    VEXO_SESSION_STATE_READY = 6,
    VEXO_SESSION_STATE_STREAMING = 7
} VexoSessionState;

/* "reading catalogue" and so on, as in the drawing; "unknown" for other numbers. */
VEXO_API const char* vexo_session_state_name(uint32_t state);

typedef struct VexoSessionOptions {
    uint32_t size;
    uint32_t mode;            /* protocol version over TCP: 1 or 2; default 2 */
    const char* interface;    /* raw Ethernet over this interface; default: TCP */
    uint32_t no_acknowledge;  /* 1, raw only: set-points are not acknowledged by the controller */
    uint32_t attempt_us;      /* how long one attempt to connect may take, after a cut up to the
                                 first answer; default 50000. It grows with the waiting time after
                                 the first ten seconds of a cut */
    uint32_t reply_limit_us;  /* for the session's own requests; default 1000000 */
    uint32_t idle_us;         /* without a stream: a request so often; default 1000000 */
    uint32_t stream_limit_us; /* so long without a package is a cut; default: 20 periods of the
                                 stream, but 250000 at least (and 1000000 for the first package) */
    const char* servo_method; /* the method of set-points; default "servoJ" */
} VexoSessionOptions;

/*
 * Begins a session with the controller at `address` (dotted IPv4 text) and returns at once: the
 * controller may come later. A controller holds one session: opening a second one to it, in this or
 * any process, ends the first, which tries to come back. Results: NO_MEMORY; SYSTEM; NO_INTERFACE;
 * NOT_PERMITTED (the I/O thread's priority, or raw frames without the right to send them).
 */
VEXO_API int32_t vexo_session_open(const char* address, const VexoSessionOptions* options,
                                   VexoSession** session);

/* Ends a session in whatever state it is, from any thread, in 50 ms at most: connections are
 * closed, calls of other threads are woken, all that was opened on it is closed. What was sent
 * before is still delivered. Ends the I/O thread with the last session. Results: only CLOSED, when
 * somebody else was first. */
VEXO_API int32_t vexo_session_close(VexoSession* session);

/* Waits until the session is in `state`, READY or STREAMING, where streaming counts as ready.
 * TIMED_OUT: the cause is that of the session's last failure; VexoSessionStatus has its code. */
VEXO_API int32_t vexo_session_wait(VexoSession* session, uint32_t state, int64_t limit_us);

typedef struct VexoSessionStatus {
    uint32_t size;
    uint32_t state;              /* a VexoSessionState */
    int64_t state_since_ns;      /* monotonic */
    uint32_t connection;         /* goes up whenever the session becomes ready; 0: never yet */
    uint32_t mode;               /* 1, 2, or 3 for raw, as negotiated or to be asked for */
    uint32_t catalogue_revision; /* 0 before the first; goes up when another catalogue was read */
    uint32_t outputs;            /* entries of the three lists */
    uint32_t inputs;
    uint32_t methods;
    uint32_t attempts;  /* to connect, since the session was last ready */
    uint32_t model;     /* of the controller */
    char firmware[256]; /* empty before the first answer */
    char hardware[256];
    char bootloader[256];
    char address[16];
    uint8_t controller_mac[6]; /* raw only */
    uint8_t host_mac[6];
    uint32_t round_trip_us; /* of the latest request */
    VexoSessionError error; /* the session's latest failure, whoever was told */
    int64_t error_ns;       /* when, realtime; 0: none */
} VexoSessionStatus;

/* Copies how things stand. The size of the inner error needs not be set. */
VEXO_API int32_t vexo_session_status(VexoSession* session, VexoSessionStatus* status);

/* Asks the controller for its version and tells how long the answer took, from before sending to
 * the reply's arrival; `round_trip_ns` may be null. Results: NOT_CONNECTED, CUT, TIMED_OUT,
 * REFUSED. */
VEXO_API int32_t vexo_session_ping(VexoSession* session, int64_t limit_us, int64_t* round_trip_ns);

/* ---- Events --------------------------------------------------------------------------------- */

typedef enum VexoSessionEventKind {
    VEXO_SESSION_EVENT_STATE = 1,     /* `state` was entered from `previous`; told once when
                                         attempts that fail lead to and fro */
    VEXO_SESSION_EVENT_CUT = 2,       /* a session that was ready has lost its connection; why */
    VEXO_SESSION_EVENT_BACK = 3,      /* ready again; `span_ns` since the cut */
    VEXO_SESSION_EVENT_CATALOGUE = 4, /* another catalogue than before: `count` is its revision */
    VEXO_SESSION_EVENT_ERROR = 5,     /* an attempt has failed, or a recipe cannot be set up */
    VEXO_SESSION_EVENT_LOST = 6       /* packages are lost: `count`, summed up over 100 ms */
} VexoSessionEventKind;

typedef struct VexoSessionEvent {
    uint32_t size;
    uint32_t kind;       /* a VexoSessionEventKind */
    uint64_t number;     /* 1, 2, ... for each session */
    int64_t realtime_ns; /* when */
    int64_t monotonic_ns;
    uint32_t state; /* of EVENT_STATE: a VexoSessionState; so is the next */
    uint32_t previous;
    int64_t span_ns;
    uint64_t count; /* packages; for an error: how often it came since it was last told */
    VexoSessionError error;
} VexoSessionEvent;

/*
 * Copies the first event whose number is greater than `*position`, and sets `*position` to it.
 * Begin with 0. Each caller keeps a position of its own. The latest 256 are kept: a number more
 * than one above the last says how many were missed. An error with the same text is told once a
 * second at most. Results: TIMED_OUT, no further event.
 */
VEXO_API int32_t vexo_session_next_event(VexoSession* session, uint64_t* position,
                                         VexoSessionEvent* event, int64_t limit_us);

/* ---- Catalogue ------------------------------------------------------------------------------ */

/* Which lists: one, or several or-ed together. */
typedef enum VexoSessionKind {
    VEXO_SESSION_OUTPUT = 1, /* what the controller streams */
    VEXO_SESSION_INPUT = 2,  /* what it takes, and streams back when a stream names it */
    VEXO_SESSION_METHOD = 4  /* what it can be told to do */
} VexoSessionKind;

/* "char", "bool", "u8", "f64", "f64x6", "text" and so on for the type codes of wire/type_codes.h;
 * "unknown" for other numbers. */
VEXO_API const char* vexo_session_type_name(uint32_t type);

/* One entry of the catalogue, or one field of a recipe. */
typedef struct VexoSessionVariable {
    uint32_t size;
    uint32_t kind;     /* a VexoSessionKind */
    char name[256];    /* with a final zero */
    uint32_t id;       /* the controller's number of it */
    uint32_t type;     /* a VexoType; 0 for a method */
    uint32_t bytes;    /* of a value: 1 to 255; 0 for methods, and types that are not known here */
    uint32_t element;  /* the type of one element: F64 for 6F64, else itself, CHAR for text */
    uint32_t elements; /* 1 for a scalar, 255 for a text */
    uint32_t offset;   /* of a field: where it is in a record of the stream, or in the values of
                          the inputs; else 0 */
    uint32_t index;    /* in its list, or in its recipe */
} VexoSessionVariable;

/* These serve from the catalogue that was read last, also while the session is cut.
 * NOT_CONNECTED: none was read yet. */

/* Entry `index` of one list; VexoSessionStatus says how many there are. */
VEXO_API int32_t vexo_session_entry(VexoSession* session, uint32_t kind, uint32_t index,
                                    VexoSessionVariable* entry);

/* The entry with this name in the lists `kinds`; outputs go before inputs before methods. Results:
 * UNKNOWN_NAME, with the three nearest in the remedy. */
VEXO_API int32_t vexo_session_find(VexoSession* session, uint32_t kinds, const char* name,
                                   VexoSessionVariable* entry);

/* The names of the lists `kinds` that are nearest to `name`, the nearest first: the same but for
 * case, then those that contain it, then by the number of letters to change. Writes `capacity`
 * entries at most (the `size` of the first counts for all) and returns how many. */
VEXO_API int32_t vexo_session_nearest(VexoSession* session, uint32_t kinds, const char* name,
                                      VexoSessionVariable* entries, uint32_t capacity);

/* ---- Streams -------------------------------------------------------------------------------- */

typedef struct VexoSessionStreamOptions {
    uint32_t size;
    uint32_t header_word; /* passed to the controller as it is */
    double ring_s;        /* how many seconds of packages are kept; default 4 */
    uint32_t period_us;   /* of the packages, if known: for the size of the ring (default
                             1000) and for lateness (default: measured) */
    uint32_t reserved;
    const char* counter_variable; /* of the stream: counts packages by one; default: none. A gap
                                     counts as lost (the raw path sees gaps without it) */
    const char* time_variable;    /* of the stream: the controller's time; default: none */
    double time_unit_s;           /* seconds in one unit of it; default 1 */
} VexoSessionStreamOptions;

/*
 * Has the controller stream `count` variables, named by `names`: outputs, or inputs, whose present
 * values are streamed back. Waits until the session is connected, the recipe is set up and the
 * stream is started, so it may be called right after vexo_session_open().
 * A session has one stream at a time; any number of cursors read it.
 * Results: TIMED_OUT; UNKNOWN_NAME (nothing was sent; the cause names the first one, the remedy the
 * nearest); BUSY; REFUSED; CUT; TOO_LARGE (more than 65531 bytes of values, raw 1436); WRONG_TYPE
 * (a type that is not known, or the counter or time variable is not one number); NO_MEMORY.
 * After a failure nothing is open.
 */
VEXO_API int32_t vexo_session_stream_open(VexoSession* session, const char* const* names,
                                          uint32_t count, const VexoSessionStreamOptions* options,
                                          int64_t limit_us, VexoSessionStream** stream);

/* Pauses the stream and closes it with its cursors. Waits for the controller's acknowledgement;
 * results: TIMED_OUT, CUT and REFUSED tell of that, the stream is closed all the same. */
VEXO_API int32_t vexo_session_stream_close(VexoSessionStream* stream, int64_t limit_us);

/* What stands at the beginning of each record; the values follow at once, packed in the order of
 * the names, as the fields' `offset` says. */
typedef struct VexoSessionPackage {
    uint64_t number;             /* 1, 2, ... since the stream was opened, cuts included */
    int64_t arrival_realtime_ns; /* when the kernel had received it (see `stamped`) */
    int64_t arrival_ns;          /* the same moment, monotonic: the age counts from here */
    int64_t stored_ns;           /* when it became readable, monotonic */
    uint32_t lost;               /* packages lost directly before it, as far as can be told */
    uint32_t connection;         /* over which it came: VexoSessionStatus.connection */
    uint16_t bytes;              /* of values */
    uint8_t stamped;             /* 1: arrival is the kernel's stamp (over TCP that of the last
                                    segment that was read with it); 0: when it was read */
    uint8_t reserved[5];
} VexoSessionPackage;

typedef struct VexoSessionLayout {
    uint32_t size;
    uint32_t fields;
    uint32_t record_size;   /* bytes from one record to the next: a multiple of 8 */
    uint32_t values_offset; /* sizeof(VexoSessionPackage) */
    uint32_t values_bytes;
    uint32_t reserved;
    uint64_t capacity; /* records in the ring */
} VexoSessionLayout;

/* How the records of the stream are laid out. It never changes while the stream is open. */
VEXO_API int32_t vexo_session_stream_layout(VexoSessionStream* stream, VexoSessionLayout* layout);

/* Field `index` of a record; the first field of a name. Results: UNKNOWN_NAME. */
VEXO_API int32_t vexo_session_stream_field(VexoSessionStream* stream, uint32_t index,
                                           VexoSessionVariable* field);
VEXO_API int32_t vexo_session_stream_find(VexoSessionStream* stream, const char* name,
                                          VexoSessionVariable* field);

/*
 * Copies the latest record. Never waits.
 *   bytes  size of the room at `record`: record_size at least, else TOO_LARGE
 *   age_ns may be null; since its arrival
 * Results: NO_DATA before the first package; CATALOGUE_CHANGED. After a cut the latest record is
 * still the one from before it: `connection` and the age tell.
 */
VEXO_API int32_t vexo_session_stream_latest(VexoSessionStream* stream, void* record, size_t bytes,
                                            int64_t* age_ns);

/* ---- Cursors -------------------------------------------------------------------------------- */

typedef struct VexoSessionCursorOptions {
    uint32_t size;
    uint32_t from_oldest; /* 1: begins with the oldest record kept; default: the next to come */
    uint32_t cyclic;      /* 1: the reader means to have each package at once. One that it takes
                             more than half a period after it was stored counts as late by the
                             reader, and its age counts in the histogram of ages at reading */
} VexoSessionCursorOptions;

/* A place in the stream from which one thread at a time reads. Results: NO_MEMORY. */
VEXO_API int32_t vexo_session_cursor_open(VexoSessionStream* stream,
                                          const VexoSessionCursorOptions* options,
                                          VexoSessionCursor** cursor);
VEXO_API int32_t vexo_session_cursor_close(VexoSessionCursor* cursor);

/* Waits until there is a record to read; it goes on waiting over a cut. Results: TIMED_OUT,
 * CATALOGUE_CHANGED. */
VEXO_API int32_t vexo_session_cursor_wait(VexoSessionCursor* cursor, int64_t limit_us);

/*
 * Copies the records from the cursor on in one go, and moves the cursor behind them. Never waits.
 *   records   `capacity` times record_size bytes
 *   count     receives how many there are, 0 to `capacity`
 *   lost      receives how many records were overwritten before this reader came to them; the
 *             cursor has passed over them. May be null
 */
VEXO_API int32_t vexo_session_cursor_read(VexoSessionCursor* cursor, void* records,
                                          uint32_t capacity, uint32_t* count, uint64_t* lost);

/* How many records are waiting for the cursor; 0 at its end. */
VEXO_API int32_t vexo_session_cursor_waiting(VexoSessionCursor* cursor, uint64_t* records);

/*
 * A descriptor for poll(): readable when a record has come since vexo_session_cursor_read() last
 * gave less than its capacity, and when the stream is closed. Neither to be read nor to be closed;
 * it lives as long as the cursor. A cursor whose descriptor nobody asked for costs nothing.
 * Results: SYSTEM.
 */
VEXO_API int32_t vexo_session_cursor_descriptor(VexoSessionCursor* cursor, int* descriptor);

/* ---- Values of a record --------------------------------------------------------------------- */

/*
 * Take at most `capacity` elements of a field out of a record, and return how many. They look at
 * nothing but their arguments, and never fail for a field and a record of one stream.
 * WRONG_TYPE: _f64 and _i64 for a text, _i64 for a floating type, _text for anything but a text.
 *   _f64   numbers of any type as doubles
 *   _i64   whole numbers as they are; a u64 above INT64_MAX keeps its bits
 *   _text  up to its first zero, with a final zero, cut to `capacity`; returns its length
 */
VEXO_API int32_t vexo_session_get_f64(const VexoSessionVariable* field, const void* record,
                                      double* values, uint32_t capacity);
VEXO_API int32_t vexo_session_get_i64(const VexoSessionVariable* field, const void* record,
                                      int64_t* values, uint32_t capacity);
VEXO_API int32_t vexo_session_get_text(const VexoSessionVariable* field, const void* record,
                                       char* text, uint32_t capacity);

/* ---- Inputs --------------------------------------------------------------------------------- */

/*
 * Prepares input variables that are sent together, in one package. Waits as
 * vexo_session_stream_open() does. A session may have 16 of them, which outlive cuts.
 * Results: TIMED_OUT, UNKNOWN_NAME, REFUSED, CUT, BUSY (16 are open), TOO_LARGE (more than 1396
 * bytes), WRONG_TYPE, NO_MEMORY.
 */
VEXO_API int32_t vexo_session_inputs_open(VexoSession* session, const char* const* names,
                                          uint32_t count, int64_t limit_us,
                                          VexoSessionInputs** inputs);
VEXO_API int32_t vexo_session_inputs_close(VexoSessionInputs* inputs);

/* Its fields: as for streams; the offsets count from the first value of the package. */
VEXO_API int32_t vexo_session_inputs_field(VexoSessionInputs* inputs, uint32_t index,
                                           VexoSessionVariable* field);
VEXO_API int32_t vexo_session_inputs_find(VexoSessionInputs* inputs, const char* name,
                                          VexoSessionVariable* field);

/*
 * Set one variable; nothing is sent yet. `count` must be its number of elements.
 * WRONG_TYPE: another count, a number that the type cannot hold exactly (f32: not within its
 * range), a text for a number or the other way round, a text of more than 255 bytes. A boolean
 * takes 0 and 1.
 * Results besides: UNKNOWN_NAME.
 */
VEXO_API int32_t vexo_session_inputs_set_f64(VexoSessionInputs* inputs, const char* name,
                                             const double* values, uint32_t count);
VEXO_API int32_t vexo_session_inputs_set_i64(VexoSessionInputs* inputs, const char* name,
                                             const int64_t* values, uint32_t count);
VEXO_API int32_t vexo_session_inputs_set_text(VexoSessionInputs* inputs, const char* name,
                                              const char* text);

/*
 * Sends the values that were set, as one package. The controller does not acknowledge it.
 * Results: NOT_SET, a variable was not set since the last cut (the cause names it); NOT_CONNECTED;
 * CATALOGUE_CHANGED; CUT; SYSTEM (no room in the socket: nothing was sent).
 */
VEXO_API int32_t vexo_session_inputs_send(VexoSessionInputs* inputs);

/* Sends these values, packed as the fields' offsets say, and sets nothing. TOO_LARGE: `bytes` is
 * not the sum of the fields' bytes. Other results as for _send, but for NOT_SET. */
VEXO_API int32_t vexo_session_inputs_write(VexoSessionInputs* inputs, const void* values,
                                           size_t bytes);

/* ---- Methods -------------------------------------------------------------------------------- */

typedef struct VexoSessionArgument {
    uint32_t type;    /* a VexoType */
    uint32_t element; /* of an ARRAY: a scalar type, else 0 */
    uint32_t count;   /* of an ARRAY: elements, up to 255, else 0 */
    uint32_t reserved;
    const void* data; /* the value's bytes; a TEXT has 255 */
} VexoSessionArgument;

typedef enum VexoSessionPort {
    VEXO_SESSION_PORT_BY_NAME = 0, /* control for names that begin with "servo", else I/O */
    VEXO_SESSION_PORT_IO = 2295,
    VEXO_SESSION_PORT_CONTROL = 2297
} VexoSessionPort;

/*
 * Calls a method of the catalogue and waits for the answer. The catalogue does not say which
 * arguments a method takes: the types given here count.
 *   arguments     `count` of them, up to 255; may be null for none
 *   port          a VexoSessionPort
 *   reply         receives what the controller sends back behind the status; may be null
 *   reply_bytes   in: room at `reply`; out: how many bytes there were (those beyond the room are
 *                 cut off). May be null
 * Results: UNKNOWN_NAME; WRONG_TYPE (nothing was sent); TOO_LARGE (of more than 65535 bytes);
 * NOT_CONNECTED; REFUSED; CUT; TIMED_OUT: it may still be carried out. Its late answer is not taken
 * for that of another call: a call that cannot tell whose answer came gives the connection up.
 */
VEXO_API int32_t vexo_session_call(VexoSession* session, const char* method,
                                   const VexoSessionArgument* arguments, uint32_t count,
                                   uint32_t port, void* reply, size_t* reply_bytes,
                                   int64_t limit_us);

/* ---- Set-points ----------------------------------------------------------------------------- */

typedef struct VexoSessionSetPoint {
    uint32_t size;
    uint32_t count; /* of `joints`, up to 255 */
    double value;   /* the leading number; what it means is the controller's */
    const double* joints;
    const double* vector; /* six numbers, or null. Version 1 sends them whenever they are given, the
                             others only with a flag that is not 0 */
    uint32_t flag;        /* low byte */
    uint32_t reserved;
} VexoSessionSetPoint;

/*
 * Sends one set-point in the form of the negotiated version, over the control connection or, on the
 * raw path, in a frame, from the calling thread. Set-points of a session go out one after another.
 *   acknowledge_us  how long to wait for the controller's acknowledgement, other threads'
 *                   set-points before it included; 0: not at all. With `no_acknowledge` none is
 *                   waited for
 * Results: OK (acknowledged, or sent and not waited for); REFUSED; TIMED_OUT: sent, and not
 * acknowledged in time (a late one is not taken for that of the next); NOT_CONNECTED; CUT;
 * UNKNOWN_NAME (no such method); SYSTEM (no room in the socket: not sent).
 * When for 100 ms no set-point could be acknowledged for certain although answers came, the
 * connection is given up: one of them was lost.
 */
VEXO_API int32_t vexo_session_servo(VexoSession* session, const VexoSessionSetPoint* point,
                                    int64_t acknowledge_us);

typedef struct VexoSessionFeedOptions {
    uint32_t size;
    uint32_t joints;    /* numbers in one set-point, 1 to 255 */
    uint32_t period_us; /* between two set-points; default 1000, at least 250 */
    uint32_t capacity;  /* set-points that wait at most; default 4096 */
    double value;       /* as in VexoSessionSetPoint, for all */
    uint32_t flag;
    uint32_t reserved;
} VexoSessionFeedOptions;

/* A buffer of set-points that the I/O thread sends at a steady pace, for programs that cannot keep
 * it themselves. A session has one at a time. Results: BUSY, NO_MEMORY, NOT_CONNECTED,
 * UNKNOWN_NAME. */
VEXO_API int32_t vexo_session_feed_open(VexoSession* session, const VexoSessionFeedOptions* options,
                                        VexoSessionFeed** feed);

/*
 * Appends `count` set-points of `joints` numbers each, and waits for room while there is none.
 *   taken  receives how many were appended, also on TIMED_OUT and CUT. May be null
 * Results: TIMED_OUT; CUT: the session was cut since the feed was opened. What had not been sent
 * then is dropped, and the feed takes nothing more: close it and open another.
 */
VEXO_API int32_t vexo_session_feed_push(VexoSessionFeed* feed, const double* points, uint32_t count,
                                        int64_t limit_us, uint32_t* taken);

typedef struct VexoSessionFeedStatus {
    uint32_t size;
    uint32_t cut; /* 1: see above */
    uint64_t waiting;
    uint64_t sent;
    uint64_t acknowledged;
    uint64_t refused;
    uint64_t underruns;  /* periods in which nothing was there to send, but the last ones */
    int32_t last_status; /* the controller's, of the latest that was refused; 0: none */
    uint32_t reserved;
} VexoSessionFeedStatus;

VEXO_API int32_t vexo_session_feed_status(VexoSessionFeed* feed, VexoSessionFeedStatus* status);
/* Waits until all is sent. Results: TIMED_OUT, CUT. */
VEXO_API int32_t vexo_session_feed_drain(VexoSessionFeed* feed, int64_t limit_us);
/* Drops what was not sent. */
VEXO_API int32_t vexo_session_feed_close(VexoSessionFeed* feed);

/* ---- Counters ------------------------------------------------------------------------------- */

/* Who made a package late. A package is late when it becomes readable more than half a period
 * after it was due; the largest part of its delay says who. */
typedef enum VexoSessionCause {
    VEXO_SESSION_CAUSE_PEER = 0,         /* the controller sent it late */
    VEXO_SESSION_CAUSE_WIRE = 1,         /* between the controller and the kernel of this host */
    VEXO_SESSION_CAUSE_WAKE_UP = 2,      /* the I/O thread was woken late */
    VEXO_SESSION_CAUSE_LIBRARY = 3,      /* the I/O thread was at work */
    VEXO_SESSION_CAUSE_READER = 4,       /* a cyclic cursor's reader came late */
    VEXO_SESSION_CAUSE_PEER_OR_WIRE = 5, /* which cannot be told without a time variable */
    VEXO_SESSION_CAUSES = 6
} VexoSessionCause;

/* "peer", "wire", "wake-up", "library", "reader", "peer or wire"; "unknown". */
VEXO_API const char* vexo_session_cause_name(uint32_t cause);

/* Since the session was opened. */
typedef struct VexoSessionStatistics {
    uint32_t size;
    uint32_t reserved;
    uint64_t packages;
    uint64_t package_bytes;
    uint64_t lost;        /* on the way, as far as can be told */
    uint64_t malformed;   /* packages of another length, damaged frames */
    uint64_t foreign;     /* packages of another recipe */
    uint64_t overwritten; /* records that cursors came too late for */
    uint64_t late[VEXO_SESSION_CAUSES];
    uint64_t kernel_drops; /* raw: frames without room in the socket's queue */
    uint64_t requests;
    uint64_t refused;      /* requests and set-points */
    uint64_t timed_out;    /* requests and set-points */
    uint64_t late_replies; /* came after their call had given up */
    uint64_t set_points;
    uint64_t acknowledged;
    uint64_t inputs;
    uint64_t attempts;    /* to connect */
    uint64_t connections; /* how often the session became ready */
    uint64_t cuts;
    uint64_t cut_ns; /* all cuts together, from the cut to ready */
    uint64_t longest_cut_ns;
    uint64_t last_cut_ns; /* how long the latest took; 0 while it lasts */
    uint64_t period_ns;   /* of the stream as measured; 0: not yet */
    uint64_t wake_ups;    /* of the I/O thread, for all sessions */
} VexoSessionStatistics;

/* Never waits, and disturbs nobody. */
VEXO_API int32_t vexo_session_statistics(VexoSession* session, VexoSessionStatistics* statistics);

typedef enum VexoSessionMeasure {
    VEXO_SESSION_MEASURE_AGE = 0,        /* of a package when it became readable: since arrival */
    VEXO_SESSION_MEASURE_INTERVAL = 1,   /* from arrival to arrival */
    VEXO_SESSION_MEASURE_READ = 2,       /* age when a cyclic cursor's reader took it */
    VEXO_SESSION_MEASURE_ROUND_TRIP = 3, /* of requests */
    VEXO_SESSION_MEASURE_SET_POINT = 4,  /* from sending a set-point to its acknowledgement */
    VEXO_SESSION_MEASURES = 5
} VexoSessionMeasure;

#define VEXO_SESSION_BUCKETS 256

/* Bucket i counts what is less than vexo_session_bucket_ns(i) and not less than that of i - 1.
 * A bucket is an eighth of its values wide, or 128 ns. */
typedef struct VexoSessionHistogram {
    uint32_t size;
    uint32_t reserved;
    uint64_t count;
    uint64_t sum_ns;
    uint64_t least_ns; /* 0 when empty */
    uint64_t most_ns;
    uint64_t buckets[VEXO_SESSION_BUCKETS];
} VexoSessionHistogram;

VEXO_API int32_t vexo_session_histogram(VexoSession* session, uint32_t measure,
                                        VexoSessionHistogram* histogram);

/* The upper limit of bucket `index`; UINT64_MAX for the last. */
VEXO_API uint64_t vexo_session_bucket_ns(uint32_t index);

/* The time that so much (0 to 1) of what was counted kept to, as exactly as the buckets tell; for 1
 * the most that was seen; 0 when nothing was counted. */
VEXO_API uint64_t vexo_session_percentile_ns(const VexoSessionHistogram* histogram,
                                             double fraction);

/* ---- The controller's clock ----------------------------------------------------------------- */

typedef struct VexoSessionClock {
    uint32_t size;
    uint32_t valid;       /* 0: no time variable, or too few packages yet */
    double offset_s;      /* host monotonic minus controller time, at `at_ns`; it includes the
                             least time on the way */
    double drift_ppm;     /* the host's clock gains so much on the controller's */
    double uncertainty_s; /* of the offset: how far the fastest packages lie apart */
    int64_t at_ns;        /* monotonic */
    uint64_t packages;    /* that went into it */
} VexoSessionClock;

/* The running estimate from the stream's time variable: the line below all points of arrival minus
 * controller time of the last minute. It begins anew after a cut, and when that time jumps. */
VEXO_API int32_t vexo_session_clock(VexoSession* session, VexoSessionClock* clock);

VEXO_C_END

#endif
