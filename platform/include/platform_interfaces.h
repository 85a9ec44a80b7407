/* The interface manager's database, and the platform's table of VRFs. */
#ifndef PLATFORM_INTERFACES_H
#define PLATFORM_INTERFACES_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- interface manager ---------------------------------------------------------------------- */

/* What this client binds with: the record's length as it is passed, and its one word. The word lies
 * in front of four zero bytes. */
enum { IMC_BIND_LENGTH = 8, IMC_BIND_CLIENT = 10 };
/* The attribute that carries an interface's port and its slot, and how many are asked for. */
enum { IMC_ATTRIBUTE_PIC = 60, IMC_ATTRIBUTE_COUNT = 1 };

/* Binds a client to the database. Returns 0 with *handle set, or a code with it untouched. */
uint32_t imc_db_bind(const void *bind_record, uint32_t length, void **handle);

/* Queries an attribute of an interface. Returns 0 with the second word of `attr_result` the address
 * of a buffer that the caller gives back with free(), or a code. */
uint32_t imc_s_attr_query(void *handle, uint32_t interface_handle, uint32_t zero1, uint32_t zero2,
                          uint32_t attribute, uint32_t count, uint64_t attr_result[2]);

/* Where an interface's port is, as the platform numbers it. */
typedef uint32_t imc_pic;

/* Takes the PIC out of what a query gave. Returns 0 with *pic_out, an imc_pic, set, or a code.
 * `scratch` is a word for the platform's use. */
uint32_t imc_gdp_pic_get(uint64_t attr_result[2], uint32_t zero, void *scratch, void *pic_out);

/* ---- VRFs ----------------------------------------------------------------------------------- */

typedef struct vrf_record {
    uint32_t table_id; /* a word that rsi_c_tbl_id_decode2 understands */
    uint8_t platform_words[124];
} vrf_record;

/* Looks a VRF up. Returns 0 with *record filled, or a code. */
uint32_t ital_shm_lookup_vrf(uint32_t vrf_id, uint32_t one1, uint32_t one2, vrf_record *record);

/* Decodes a table-id word. Returns 0 with *out set, or a code. */
uint32_t rsi_c_tbl_id_decode2(uint32_t table_id_word, void *null1, void *null2, uint32_t *out);

RECORD_SIZE(vrf_record, 128);
RECORD_FIELD(vrf_record, table_id, 0);
RECORD_FIELD(vrf_record, platform_words, 4);

#ifdef __cplusplus
}
#endif
#endif
