/* Attributes of interfaces and slots: which application owns an interface, where it is, and where a
 * slot's infrastructure endpoint is. They lie in the window, so every process attached to it sees
 * them. Numbers are plain loads and stores; writers of one index are serialised by their callers.
 *
 * The attribute table is the host's to make: 65,536 zeroed bytes of the window, stored in the root.
 * Without root or table a getter gives its out-of-range value, a setter logs its line and changes
 * nothing, and an infra lookup gives 2. */
#ifndef INLINE_SERVICE_ATTRIBUTES_H
#define INLINE_SERVICE_ATTRIBUTES_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum { UIDB_ATTRIBUTES = 4096 };

/* One interface; all zero until something is set. */
typedef struct uidb_attribute {
    uint32_t app_type; /* 0 to 5; 0 also means unowned */
    uint8_t dirty;     /* 0 or 1 */
    uint8_t spare_5;
    uint16_t slot;
    uint32_t iftype;
    uint16_t app_ID;
    uint16_t vqi;
} uidb_attribute;

/* What the getters give for an interface that is out of range. */
enum { UIDB_UNKNOWN_SLOT = 22 };
#define UIDB_UNKNOWN_VQI UINT32_C(0xFFFFFFFF)

/* ---- setters: an index above 4095 is logged and changes nothing ------------------------------ */

/* Binds an interface to an application; an app_ID of 0 unbinds it, whatever app_type says. An
 * app_type above 5 is refused like an index above 4095. */
void inline_api_set_uidb_to_app(uint32_t app_type, uint16_t uidb_index, uint16_t app_ID);
void inline_api_set_uidb_to_vqi(uint16_t uidb_index, uint16_t vqi);
void inline_api_set_dirty_bit(uint16_t uidb_index);
void inline_api_reset_dirty_bit(uint16_t uidb_index);
void inline_api_set_slot_iftype(uint16_t uidb_index, uint16_t slot, uint32_t iftype);

/* Stores a slot's infrastructure endpoint. A row that has the slot's key gets `new_slot` as its
 * key; otherwise the first free row (key 0 or 22) gets `slot`. When all six rows are taken nothing
 * happens and nothing is logged. The first argument is not read. */
void inline_api_set_infra_slot_infra_ip(uint32_t ignored, uint16_t slot, uint16_t new_slot,
                                        uint32_t infra_ip, uint32_t infra_value);

/* ---- getters: nothing is logged -------------------------------------------------------------- */

/* Out of range: 0. */
uint32_t inline_api_get_dirty_bit(uint16_t uidb_index);
uint32_t inline_api_uidb_to_appid(uint32_t ignored, uint16_t uidb_index);
uint32_t inline_api_uidb_to_apptype(uint16_t uidb_index);
uint32_t inline_api_get_iftype(uint16_t uidb_index);
/* Out of range: UIDB_UNKNOWN_VQI, UIDB_UNKNOWN_SLOT. */
uint32_t inline_api_uidb_to_vqi(uint16_t uidb_index);
uint32_t inline_api_get_slot(uint16_t uidb_index);

/* ---- lookups --------------------------------------------------------------------------------- */

/* The infrastructure endpoint of a slot; 0 and 1 for a card whose type has none.
 * Returns 0; 2 for a slot without a node (logged), a slot without a row, and without a root; 22 for
 * a null output. */
uint32_t inline_api_get_infra_ip(uint16_t slot, uint32_t *ip, uint32_t *value);

/* The same for an interface's slot. Returns 2 also for an interface whose slot is 22 or out of
 * range, and then nothing is asked of the platform. */
uint32_t inline_api_get_infra_ip_from_uidb(uint16_t uidb_index, uint32_t *ip, uint32_t *value);

/* The PIC of an interface, as the interface manager writes it. Binds to its database on first use,
 * once a process; a bind that failed is tried again by the next call.
 * Returns 0; 22 for a null output; otherwise the interface manager's code, from bind or query. What
 * taking the PIC out of the answer came to is not looked at. */
uint32_t inline_api_get_pic(uint32_t interface_handle, void *pic_out);

/* The hardware table id of a VRF. Returns 0; 22 for a null output; otherwise the code of the lookup
 * or of the decoding. */
uint32_t inline_api_get_hw_table_id(uint32_t vrf_id, uint32_t *table_id_out);

RECORD_SIZE(uidb_attribute, 16);
RECORD_FIELD(uidb_attribute, app_type, 0);
RECORD_FIELD(uidb_attribute, dirty, 4);
RECORD_FIELD(uidb_attribute, spare_5, 5);
RECORD_FIELD(uidb_attribute, slot, 6);
RECORD_FIELD(uidb_attribute, iftype, 8);
RECORD_FIELD(uidb_attribute, app_ID, 12);
RECORD_FIELD(uidb_attribute, vqi, 14);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
