/* Command lists: a batch of table entries for one application's interface, built step by step.
 *
 * Open the list, add at most 32 commands, program it. There is storage for one list; the list id
 * that the calls take is 0 and is not looked at. An application type and id name a key of the
 * shadow DB; a pair that names none is unbound, and then open, delete, single-entry programming and
 * the presence tests do nothing. */
#ifndef INLINE_SERVICE_CMDLIST_H
#define INLINE_SERVICE_CMDLIST_H

#include <stdint.h>

#include "inline_service_shadowdb.h"
#include "platform_error_log.h"
#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    COMMAND_LIST_SLOTS = 32,
    COMMAND_KEY_BYTES = 32,
    COMMAND_RESULT_BYTES = 36,
    COMMAND_LIST_UNBOUND = 0xFFFF
};

/* One command as its caller gives it. */
typedef struct command_input {
    uint32_t unread_0;
    uint32_t table_type;
    uint8_t key[COMMAND_KEY_BYTES];
    uint8_t key_len; /* at most COMMAND_KEY_BYTES */
    uint8_t result[COMMAND_RESULT_BYTES];
    uint8_t result_len; /* at most COMMAND_RESULT_BYTES */
    uint8_t unread_78[6];
} command_input;

/* How the platform error log is told what our messages are. */
extern const zem_message_record zem_msg_rec_plat_error_log;

/* The switch of this family, on at first. While it is off, programming, single-entry programming
 * and deleting do nothing. */
void plm_inline_enable_hardware_programming(void);
void plm_inline_disable_hardware_programming(void);

/* Opens the list for an application's interface; what it held before is forgotten.
 * Returns the platform's list handle as a number, 0 when it could not make one; or
 * COMMAND_LIST_UNBOUND for an unbound pair, with the list as it was. */
uint64_t plm_inline_init_cmd_list(uint32_t list, uint32_t app_type, uint32_t app_id,
                                  uint32_t app_ID, uint32_t app_param, uint16_t entry_tag);

/* The stored entry with an id under the list's key; null when there is none, and when the main
 * entry is no longer the one that the list was opened on. */
shmem_node *plm_inline_get_hw_entry(uint32_t list, uint32_t entry_id);

/* Adds a command: 1 create, 2 modify, 3 delete. The entry gets `hw_index` when use_hw_index is 1
 * and SHADOW_DB_NO_HW_INDEX otherwise; `hw_entry` is the node that a modify or delete means.
 * Returns the platform's code of the enqueue, LIST_OK when it worked, and the command counts also
 * when it did not; or 22 for a null input, one that is too long and a 33rd command, with the list
 * as it was. */
uint32_t plm_inline_insert_cmd_to_list(uint32_t list, uint32_t entry_id, uint32_t hw_index,
                                       const command_input *in, uint32_t action,
                                       uint32_t use_hw_index, shmem_node *hw_entry);

/* Applies the list as one batch. A failure goes to the platform error log. A list that was never
 * opened is not applied. */
void plm_inline_program_list_to_hardware(uint32_t list);

/* Deletes everything under the pair's key. */
void plm_inline_delete_list_from_hardware(uint32_t app_type, uint32_t app_id);

/* Programs one entry of a main entry that exists: creates it, modifies it when it is there, or with
 * a null input deletes it. An input that is too long is logged and nothing is done. */
void plm_inline_program_entry_in_hardware_list(uint32_t app_type, uint32_t app_id,
                                               uint32_t entry_id, const command_input *in);

/* Whether the pair has a main entry: 1 or 0. Where the outputs are not null they get, for 1 only,
 * the entry's version and its tag, or the VQI of the interface that the tag names. */
uint32_t plm_inline_is_list_in_hardware_uidb(uint32_t app_type, uint32_t app_id, uint32_t *word_out,
                                             uint16_t *uidb_out);
uint32_t plm_inline_is_list_in_hardware(uint32_t app_type, uint32_t app_id, uint32_t *word_out,
                                        uint16_t *vqi_out);

/* Remnants of debugging without any effect that can be seen. */
void plm_inline_print_cmd(const app_node *cmd);
void print_key_and_result(const uint8_t *key, uint32_t key_len, const uint8_t *result,
                          uint32_t result_len);

RECORD_SIZE(command_input, 84);
RECORD_FIELD(command_input, unread_0, 0);
RECORD_FIELD(command_input, table_type, 4);
RECORD_FIELD(command_input, key, 8);
RECORD_FIELD(command_input, key_len, 40);
RECORD_FIELD(command_input, result, 41);
RECORD_FIELD(command_input, result_len, 77);
RECORD_FIELD(command_input, unread_78, 78);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
