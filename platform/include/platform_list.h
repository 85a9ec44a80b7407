/* The platform's list library: intrusive doubly linked lists.
 *
 * An element begins with its link, so the address of an element is the address of its link. A
 * record whose first 32 bytes are zero is a valid empty list. The three operation slots are
 * optional: where one is set, callers use it instead of the default operation of the same kind.
 *
 * Lists may lie in shared memory and outlive a process that is killed at any instruction: the
 * forward chain, `first` and each `next`, is right at each of them. The rest may be behind it. */
#ifndef PLATFORM_LIST_H
#define PLATFORM_LIST_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct list_link {
    struct list_link *next; /* null at the last element */
    struct list_link *prev;
    void *data;  /* what the element carries; often the element itself */
    void *owner; /* the platform's: the list that holds the element, null outside a list */
} list_link;

struct list_record;

/* The value that an enqueue returns for success; anything else is a failure. */
enum { LIST_OK = 1 };

typedef uint32_t (*list_enqueue_fn)(struct list_record *list, void *element, void *data);
typedef void *(*list_dequeue_fn)(struct list_record *list);
typedef uint32_t (*list_remove_fn)(struct list_record *list, void *element, void *data);

typedef struct list_record {
    list_link *first; /* null when the list is empty */
    list_link *last;
    uint64_t count;
    uint64_t reserved;
    list_enqueue_fn enqueue;
    list_dequeue_fn dequeue;
    list_remove_fn remove;
    uint8_t platform_words[216]; /* the platform's own */
} list_record;

/* Makes `list` an empty list. The three further arguments are 0 for a list without comparator and
 * flags. Returns a non-null handle on success, null on failure. */
void *list_create(list_record *list, uint64_t comparator, uint64_t flags, uint64_t user);

/* Appends `element` at the tail, carrying `data`. Returns LIST_OK, or another value when the list
 * or element is null or the element is in a list already. */
uint32_t list_enqueue_default(list_record *list, void *element, void *data);

/* Takes `element` out of the list. Returns LIST_OK, or another value when it is not in it. */
uint32_t list_remove_default(list_record *list, void *element, void *data);

/* Takes the first element off and returns its data; null when the list is empty. */
void *list_dequeue_default(list_record *list);

/* Ends the list; elements that it still holds are let go, not freed. Returns LIST_OK, or another
 * value for a null list. */
uint32_t list_destroy(list_record *list);

RECORD_SIZE(list_link, 32);
RECORD_FIELD(list_link, next, 0);
RECORD_FIELD(list_link, prev, 8);
RECORD_FIELD(list_link, data, 16);
RECORD_FIELD(list_link, owner, 24);

RECORD_SIZE(list_record, 272);
RECORD_FIELD(list_record, first, 0);
RECORD_FIELD(list_record, last, 8);
RECORD_FIELD(list_record, count, 16);
RECORD_FIELD(list_record, reserved, 24);
RECORD_FIELD(list_record, enqueue, 32);
RECORD_FIELD(list_record, dequeue, 40);
RECORD_FIELD(list_record, remove, 48);
RECORD_FIELD(list_record, platform_words, 56);

#ifdef __cplusplus
}
#endif
#endif
