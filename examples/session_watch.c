/* Shows outputs of a controller ten times a second, goes on after every cut, and counts at the end.
 * The controller may come later.
 *
 *   session_watch ADDRESS SECONDS NAME...        session_watch 127.0.0.1 5 uptime_seconds */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "session/session.h"

static int fail(void) {
    VexoSessionError error = {.size = sizeof error};
    vexo_session_error(&error);
    fprintf(stderr, "%s: %s\n%s\n", vexo_session_result_name(error.code), error.cause,
            error.remedy);
    return 1;
}

static void pause_for_a_tenth(void) {
    const struct timespec tenth = {.tv_nsec = 100000000};
    nanosleep(&tenth, NULL);
}

/* What has befallen the session since the last call. */
static void show_events(VexoSession* robot, uint64_t* position) {
    VexoSessionEvent event = {.size = sizeof event};
    while (vexo_session_next_event(robot, position, &event, 0) == VEXO_SESSION_OK) {
        if (event.kind == VEXO_SESSION_EVENT_STATE) {
            printf("state: %s\n", vexo_session_state_name(event.state));
        } else if (event.kind == VEXO_SESSION_EVENT_CUT) {
            printf("cut: %s\n", event.error.cause);
        } else if (event.kind == VEXO_SESSION_EVENT_BACK) {
            printf("back after %.3f s\n", (double)event.span_ns * 1e-9);
        }
    }
}

static void show_counts(VexoSession* robot) {
    VexoSessionStatistics counts = {.size = sizeof counts};
    if (vexo_session_statistics(robot, &counts) == VEXO_SESSION_OK) {
        printf("%llu packages, %llu lost on the way, %llu overwritten, %llu cuts\n",
               (unsigned long long)counts.packages, (unsigned long long)counts.lost,
               (unsigned long long)counts.overwritten, (unsigned long long)counts.cuts);
    }
}

/* Manual begins */
enum { BATCH = 256 };

/* A field of a record with all its elements, behind the package's number. */
static void show(const VexoSessionVariable* field, const void* record) {
    const VexoSessionPackage* package = record;
    double values[255];
    const int32_t elements = vexo_session_get_f64(field, record, values, 255);
    printf("%llu  %s", (unsigned long long)package->number, field->name);
    for (int32_t i = 0; i < elements; ++i) {
        printf(" %.3f", values[i]);
    }
    printf("\n");
}

static int watch(VexoSession* robot, const char* const* names, uint32_t count, double seconds) {
    VexoSessionStream* stream;
    VexoSessionCursor* cursor;
    VexoSessionLayout layout = {.size = sizeof layout};
    if (vexo_session_stream_open(robot, names, count, NULL, 5000000, &stream) != VEXO_SESSION_OK ||
        vexo_session_cursor_open(stream, NULL, &cursor) != VEXO_SESSION_OK ||
        vexo_session_stream_layout(stream, &layout) != VEXO_SESSION_OK) {
        return fail();
    }
    char* records = malloc((size_t)BATCH * layout.record_size);
    uint64_t position = 0; /* among the events */
    for (int tenth = 0; records != NULL && tenth < seconds * 10; ++tenth) {
        uint32_t read = 0;
        pause_for_a_tenth(); /* the ring keeps four seconds of packages */
        show_events(robot, &position);
        while (vexo_session_cursor_read(cursor, records, BATCH, &read, NULL) == VEXO_SESSION_OK &&
               read == BATCH) {
        }
        for (uint32_t i = 0; read > 0 && i < layout.fields; ++i) {
            VexoSessionVariable field = {.size = sizeof field};
            vexo_session_stream_field(stream, i, &field);
            show(&field, records + (size_t)(read - 1) * layout.record_size);
        }
    }
    free(records);
    return vexo_session_stream_close(stream, 1000000) == VEXO_SESSION_OK ? 0 : fail();
}
/* Manual ends */

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: session_watch ADDRESS SECONDS NAME...\n");
        return 2;
    }
    VexoSession* robot;
    if (vexo_session_open(argv[1], NULL, &robot) != VEXO_SESSION_OK) {
        return fail();
    }
    const int status =
        watch(robot, (const char* const*)argv + 3, (uint32_t)argc - 3, atof(argv[2]));
    show_counts(robot);
    vexo_session_close(robot);
    return status;
}
