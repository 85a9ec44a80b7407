/* Encoders of the service side: keys and results of the service config table as the NPs read them.
 */
#ifndef PLATFORM_ENCODERS_H
#define PLATFORM_ENCODERS_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

/* How many bytes an encoder may write at most. */
enum { ENCODER_SCRATCH_BYTES = 256 };

/* Kinds of a service config key. */
enum { ENCODER_KEY_ORDINARY = 1, ENCODER_KEY_USER_2 = 2 };

/* A UDP encapsulation to be encoded. Numbers in host byte order; the bytes without a name are
 * zero. */
typedef struct sdn_encap_input {
    uint8_t flag_0; /* 1 */
    uint8_t flag_1; /* 1 */
    uint8_t flag_2; /* 0 */
    uint8_t flag_3; /* 0 */
    uint8_t protocol;
    uint8_t padding_5[3];
    uint32_t src_ip;
    uint32_t dst_ip;
    uint16_t sport;
    uint16_t dport;
    uint8_t padding_20[4];
    uint8_t user_2_flags; /* bit 0 */
    uint8_t is_user_4;
    uint8_t padding_26[4];
    uint8_t known_user_30;
    uint8_t padding_31[5];
    uint8_t known_user_36;
    uint8_t known_user_37;
    uint8_t padding_38[18];
} sdn_encap_input;

/* Opens the encoder; the arguments are the service side's. Returns its handle, or null. */
void *ac_encode_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4);

/* Writes the key of a service index. Returns its length. */
uint32_t appl_construct_config_db_key(uint32_t vs_index, uint32_t zero, uint8_t *key,
                                      uint32_t key_type);

/* Writes the result of a UDP encapsulation (an sdn_encap_input). Returns its length. */
uint32_t appl_construct_sdn_encap_service_config_db_result(void *encoder, const void *input,
                                                           uint8_t *result);

RECORD_SIZE(sdn_encap_input, 56);
RECORD_FIELD(sdn_encap_input, flag_0, 0);
RECORD_FIELD(sdn_encap_input, flag_1, 1);
RECORD_FIELD(sdn_encap_input, flag_2, 2);
RECORD_FIELD(sdn_encap_input, flag_3, 3);
RECORD_FIELD(sdn_encap_input, protocol, 4);
RECORD_FIELD(sdn_encap_input, padding_5, 5);
RECORD_FIELD(sdn_encap_input, src_ip, 8);
RECORD_FIELD(sdn_encap_input, dst_ip, 12);
RECORD_FIELD(sdn_encap_input, sport, 16);
RECORD_FIELD(sdn_encap_input, dport, 18);
RECORD_FIELD(sdn_encap_input, padding_20, 20);
RECORD_FIELD(sdn_encap_input, user_2_flags, 24);
RECORD_FIELD(sdn_encap_input, is_user_4, 25);
RECORD_FIELD(sdn_encap_input, padding_26, 26);
RECORD_FIELD(sdn_encap_input, known_user_30, 30);
RECORD_FIELD(sdn_encap_input, padding_31, 31);
RECORD_FIELD(sdn_encap_input, known_user_36, 36);
RECORD_FIELD(sdn_encap_input, known_user_37, 37);
RECORD_FIELD(sdn_encap_input, padding_38, 38);

#ifdef __cplusplus
}
#endif
#endif
