/* The packet path: whole frames from a process of the card into the ports that the card's CPU
 * shares with its NPs. */
#ifndef PLATFORM_PACKET_PATH_H
#define PLATFORM_PACKET_PATH_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a client asks for when it is made; the packet path's own, clients hand it on unread. */
typedef struct spp_client_params {
    uint8_t bytes[784];
} spp_client_params;

/* One piece of a frame that is gathered when it is sent. A piece of no bytes may be null. */
typedef struct gather_piece {
    const void *data;
    uint64_t length;
} gather_piece;

/* Of a frame, in pieces and in bytes altogether. */
enum { SPP_MOST_PIECES = 16, SPP_LONGEST_FRAME = 65536 };

/* What became of a frame that a service took. Other values are errno values of a port that could
 * not send it. */
enum {
    SPP_RETCODE_SENT = 0,
    SPP_RETCODE_QUEUE_FULL = 12 /* taken; it leaves when its port's queue has room */
};

/* What this client passes for the words of a send that have no name. */
enum { SPP_SEND_WORD_1 = 1, SPP_SEND_WORD_2 = 71 };

/* Makes a client. Returns 0 with *handle set; 22 for a null `handle`, and without a card. */
uint32_t spp_client_init_v2(void **handle, spp_client_params params);

/* Gathers a frame and sends it into a port. Returns 0 with *retcode set to what became of it, or,
 * with nothing sent and the same code in *retcode:
 *   22   a handle that is no client's, no piece or more than SPP_MOST_PIECES, null pieces, a piece
 *        of some bytes that is null, or a null `retcode`, which is then not written;
 *   90   a frame longer than SPP_LONGEST_FRAME;
 *   19   a port that the card does not have;
 *   107  a card in another process that cannot be reached. */
uint32_t spp_prep_bfd_pkt_and_xmt(void *handle, uint32_t port, gather_piece *pieces, uint32_t count,
                                  uint32_t word_1, uint32_t *retcode, uint32_t word_2);

RECORD_SIZE(spp_client_params, 784);
RECORD_FIELD(spp_client_params, bytes, 0);

RECORD_SIZE(gather_piece, 16);
RECORD_FIELD(gather_piece, data, 0);
RECORD_FIELD(gather_piece, length, 8);

#ifdef __cplusplus
}
#endif
#endif
