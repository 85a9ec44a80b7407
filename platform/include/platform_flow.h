/* What the flow service supplies: the encoders of its flows, and the callback of its table's
 * walker. `flow_info` and what is filled from user data are the service's own records, which nobody
 * else looks into. */
#ifndef PLATFORM_FLOW_H
#define PLATFORM_FLOW_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What this client passes for the words of dpss_fill_flow_info_from_db. */
enum { DPSS_FILL_FROM_USER_DATA = 2 };

/* Each writes at most ENCODER_SCRATCH_BYTES (platform_encoders.h) of a zeroed scratch. */
void dpss_flow_encoder_key(const void *flow_info, uint8_t *key, uint8_t *key_len);
void dpss_flow_encoder_result(const void *flow_info, uint8_t *result);
void dpss_flow_encoder_userdata(const void *flow_info, uint8_t *user_data);

/* Whether the flow has a policer, and with it a second counter: 1 when it has, 0 when not. */
uint32_t dpss_flow_is_policer_enabled(const void *flow_info);

/* Fills *out from a flow's 131 bytes of user data. */
void dpss_fill_flow_info_from_db(const uint8_t *user_data, void *out, uint32_t source);

/* Gets the next slice of flow records from the table's walker. It must not delete them. */
void dpss_flow_scan_callback(void **records, uint32_t count);

#ifdef __cplusplus
}
#endif
#endif
