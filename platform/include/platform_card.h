/* What the platform says of the card itself. */
#ifndef PLATFORM_CARD_H
#define PLATFORM_CARD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Card types whose NPs take a counter number's upper three bytes as they lie in memory. */
enum {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) name = code,
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
};

/* The one card type whose slots have an infrastructure endpoint of their own. */
enum { CARD_TYPE_INFRA_SLOTS = 0x3C0266 };

/* Card types on which the platform says which NP takes a packet that is injected; on every other
 * one it is NP 0. */
enum {
    CARD_TYPE_NP_BY_DIRECTION_1 = 0x280251,
    CARD_TYPE_NP_BY_DIRECTION_2 = 0x230231,
    CARD_TYPE_NP_BY_DIRECTION_3 = 0x3A0263,
    CARD_TYPE_NP_BY_DIRECTION_4 = 0x3B0262
};

/* The type code of the card that the caller runs on. */
uint32_t platform_get_my_card_type(void);

/* The type code of the card that a node is; 0 for a node that the platform does not know. */
uint32_t platform_node_get_card_type(uint32_t nodeid);

/* The node of a line-card slot. Returns 0 with *nodeid set, or a code with it untouched. */
uint32_t plm_slot_to_nodeid(uint16_t slot, uint32_t *nodeid);

/* Starts the platform's statistics service for data-path counters. Returns 0, or a code. */
uint32_t plm_dpss_stats_init(void);

/* The number of an NP's table of dynamic counters; null for an NP without one. */
const uint32_t *plm_dpss_get_stats_tbl_id(uint32_t np);

/* The port through which the CPU reaches an NP; PLM_NO_CPU_PORT for an NP without one. */
#define PLM_NO_CPU_PORT UINT32_C(0xFFFFFFFF)
uint32_t plm_np_to_cpu_port_map(uint32_t np);

/* The NP that takes packets of a direction. Returns 0 with *np set, or a code with it untouched. */
enum { PLM_DIRECTION_WORD = 0, PLM_DIRECTION_INJECT = 1 };
uint32_t plm_pkt_dir_to_np_map(uint32_t word, uint32_t direction, uint8_t *np);

#ifdef __cplusplus
}
#endif
#endif
