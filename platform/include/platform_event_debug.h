/* The platform's event-debug and trace facilities.
 *
 * A component registers once and names the array that holds all its debug points; from then on the
 * facility may change the flags, the line filter and the trace word of what it was given, at any
 * time. Every argument that reaches the facility is one 64-bit word: integers widened by their own
 * signedness, strings by address. */
#ifndef PLATFORM_EVENT_DEBUG_H
#define PLATFORM_EVENT_DEBUG_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Flags of a debug point. */
enum {
    ED_SUPPRESS_PRINT = 0x02,     /* no print */
    ED_SUPPRESS_ALL = 0x04,       /* no print, and no trace event unless the point matched */
    ED_PRINT = 0x40,              /* print through ed_print_debug */
    ED_SLOW = 0x80,               /* print through ed_slow_debugs; read only without ED_PRINT */
    ED_INVERT = 0x100,            /* invert the filter's result */
    ED_LINE = 0x200,              /* compare the line id */
    ED_DEFAULT_FLAGS = 0x0430,    /* what a debug point is built with */
    ED_LINE_ID_MASK = 0x00FFFFFF, /* of line_filter: the line id */
    ED_FILTER_BYTE_SHIFT = 24,    /* of line_filter: non-zero above it, the filter is on */
    ED_EVENT_BUFFER = 0,          /* trace buffer of ordinary messages */
    ED_ERROR_BUFFER = 1,          /* trace buffer of failure messages */
    ED_TRACE_BUFFERS = 2,
    ED_TRACE_BUFFER_ENTRIES = 1000
};

/* Fields of the 64-bit event word handed to _ltrace. */
enum {
    ED_EVENT_NUMBER_BITS = 23,     /* bits 0-22: the debug point's number */
    ED_EVENT_TRACE_WORD_SHIFT = 23 /* bits 23-27: the low five bits of the trace word */
};
#define ED_EVENT_WORD_FIXED ((UINT64_C(7) << 32) | (UINT64_C(1) << 31))

typedef struct ed_debug_point {
    uint16_t flags;
    uint8_t level;        /* 0 ordinary, 1 failure */
    uint8_t trace_buffer; /* ED_EVENT_BUFFER or ED_ERROR_BUFFER */
    uint32_t line_filter; /* bits 0-23 line id, bits 24-31 filter byte */
    uint32_t arg_count;
    uint32_t number; /* trace point number: unique, dense from 0, never changing */
    const char *const *arg_names;
    const char *format;
    const char *file;
    const char *function;
    uint64_t reserved;
} ed_debug_point;

typedef struct ed_trace_buffer {
    const char *name;
    uint32_t entries;
    uint32_t padding;
} ed_trace_buffer;

typedef struct ed_component {
    const char *name;
    char short_name[16];
    ed_trace_buffer buffers[ED_TRACE_BUFFERS];
    void *buffer_handles[ED_TRACE_BUFFERS]; /* filled by the facility once the buffers are open */
    uint32_t trace_word;
    uint32_t padding;
    void *dummy;
    void *perf_dummy;
    ed_debug_point *debug_points;
    uint64_t debug_point_count;
    uint64_t reserved;
} ed_component;

/* Registers a component; a component registered before is registered anew. The four words are
 * passed on from whoever starts the component. Returns 0, or a code that may be ignored. */
uint32_t ed_init(ed_component *component, uint64_t arg1, uint64_t arg2, uint64_t arg3,
                 uint64_t arg4);

/* Prints one message. `args` holds the debug point's arg_count words, `format` is the message's
 * own format. The unnamed words are 0. */
void ed_print_debug(ed_debug_point *point, ed_component *component, const uint64_t *args,
                    uint64_t zero1, uint32_t line, uint64_t zero2, const char *format,
                    uint64_t zero3);

/* Like ed_print_debug, with filters of the facility's own; it sets *matched when they let the
 * message pass and leaves it alone otherwise. */
void ed_slow_debugs(ed_debug_point *point, ed_component *component, uint32_t *matched,
                    const uint64_t *args, uint64_t zero1, uint32_t line, uint64_t zero2,
                    const char *format, uint64_t zero3);

/* Records one event in a trace buffer (null before the buffers are open: the event is dropped).
 * The words after the event word are the message's arguments, or one 0 for none. */
void _ltrace(void *buffer, uint64_t event_word, ...);

RECORD_SIZE(ed_debug_point, 56);
RECORD_FIELD(ed_debug_point, flags, 0);
RECORD_FIELD(ed_debug_point, level, 2);
RECORD_FIELD(ed_debug_point, trace_buffer, 3);
RECORD_FIELD(ed_debug_point, line_filter, 4);
RECORD_FIELD(ed_debug_point, arg_count, 8);
RECORD_FIELD(ed_debug_point, number, 12);
RECORD_FIELD(ed_debug_point, arg_names, 16);
RECORD_FIELD(ed_debug_point, format, 24);
RECORD_FIELD(ed_debug_point, file, 32);
RECORD_FIELD(ed_debug_point, function, 40);
RECORD_FIELD(ed_debug_point, reserved, 48);

RECORD_SIZE(ed_trace_buffer, 16);
RECORD_FIELD(ed_trace_buffer, name, 0);
RECORD_FIELD(ed_trace_buffer, entries, 8);
RECORD_FIELD(ed_trace_buffer, padding, 12);

RECORD_SIZE(ed_component, 120);
RECORD_FIELD(ed_component, name, 0);
RECORD_FIELD(ed_component, short_name, 8);
RECORD_FIELD(ed_component, buffers, 24);
RECORD_FIELD(ed_component, buffer_handles, 56);
RECORD_FIELD(ed_component, trace_word, 72);
RECORD_FIELD(ed_component, padding, 76);
RECORD_FIELD(ed_component, dummy, 80);
RECORD_FIELD(ed_component, perf_dummy, 88);
RECORD_FIELD(ed_component, debug_points, 96);
RECORD_FIELD(ed_component, debug_point_count, 104);
RECORD_FIELD(ed_component, reserved, 112);

#ifdef __cplusplus
}
#endif
#endif
