/* The platform's error log: where an operator of the router looks. */
#ifndef PLATFORM_ERROR_LOG_H
#define PLATFORM_ERROR_LOG_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What kind of message it is. */
typedef struct zem_message_record {
    uint64_t zero_0;
    const char *format;
    uint64_t zero_16;
    const char *facility_short_name;
    const char *facility_name;
    const char *message_name;
    uint64_t attributes[3]; /* in the error log's own encoding */
} zem_message_record;

/* Severity of a failure that an operator should see. */
enum { ZEM_SEVERITY_ERROR = 3 };

/* Writes one message. `record` describes the message's kind to the platform. Returns 0, or a code
 * that may be ignored. */
uint32_t zem_errmsg(const void *record, uint32_t severity, const char *text);

RECORD_SIZE(zem_message_record, 72);
RECORD_FIELD(zem_message_record, zero_0, 0);
RECORD_FIELD(zem_message_record, format, 8);
RECORD_FIELD(zem_message_record, zero_16, 16);
RECORD_FIELD(zem_message_record, facility_short_name, 24);
RECORD_FIELD(zem_message_record, facility_name, 32);
RECORD_FIELD(zem_message_record, message_name, 40);
RECORD_FIELD(zem_message_record, attributes, 48);

#ifdef __cplusplus
}
#endif
#endif
