/* Compile-time proofs that stand beside every record that crosses a binary boundary.
 *
 * A record is read again by other processes, by a restarted host and by programs built elsewhere,
 * so its size, the offset of every field and the absence of hidden padding are proved where it is
 * defined. In C++ the padding proof is in RECORD_SIZE; in C the same records are compiled once
 * with -Wpadded as an error. */
#ifndef RECORD_PROOF_H
#define RECORD_PROOF_H

#include <stddef.h>

#ifdef __cplusplus
#include <type_traits>
#define RECORD_ASSERT(condition, text) static_assert(condition, text)
#define RECORD_SIZE(record, bytes)                                                                 \
    static_assert(sizeof(record) == (bytes), #record " has another size");                         \
    static_assert(std::has_unique_object_representations_v<record>, #record " has padding")
#else
#define RECORD_ASSERT(condition, text) _Static_assert(condition, text)
#define RECORD_SIZE(record, bytes)                                                                 \
    _Static_assert(sizeof(record) == (bytes), #record " has another size")
#endif

#define RECORD_FIELD(record, field, offset)                                                        \
    RECORD_ASSERT(offsetof(record, field) == (offset), #record "." #field " lies elsewhere")

#endif
