// The packet path's client, and what the card says of its CPU ports.
#include <algorithm>
#include <cerrno>
#include <span>
#include <vector>

#include "platform_card.h"
#include "platform_packet_path.h"
#include "tap_words.h"
#include "vlc/virtual_line_card.h"

using vlc::forced_as;
using vlc::FrameOutcome;
using vlc::tapped_call;
using vlc::VirtualLineCard;

namespace {

// Handles are 1 to this. A client is its process's, which may have one card after another.
uintptr_t clients = 0;

bool is_client(const void *handle)
{
    const auto number = reinterpret_cast<uintptr_t>(handle);
    return number != 0 && number <= clients;
}

bool is_gatherable(std::span<const gather_piece> pieces)
{
    return std::ranges::all_of(
        pieces, [](const gather_piece &piece) { return piece.data || piece.length == 0; });
}

// The frame in one piece; false when it is longer than a frame can be.
bool gather(std::span<const gather_piece> pieces, std::vector<uint8_t> &frame)
{
    for (const gather_piece &piece : pieces) {
        if (piece.length > SPP_LONGEST_FRAME - frame.size())
            return false;
        const auto *bytes = static_cast<const uint8_t *>(piece.data);
        if (piece.length != 0)
            frame.insert(frame.end(), bytes, bytes + piece.length);
    }
    return true;
}

FrameOutcome refused(uint32_t code)
{
    return {code, code};
}

FrameOutcome send(void *handle, uint32_t port, const gather_piece *pieces, uint32_t count)
{
    VirtualLineCard *card = VirtualLineCard::current();
    if (!card || !is_client(handle) || !pieces || count == 0 || count > SPP_MOST_PIECES ||
        !is_gatherable({pieces, count}))
        return refused(EINVAL);
    std::vector<uint8_t> frame;
    if (!gather({pieces, count}, frame))
        return refused(EMSGSIZE);
    return card->access().send_frame(port, frame);
}

} // namespace

uint32_t plm_np_to_cpu_port_map(uint32_t np)
{
    if (auto forced = tapped_call("plm_np_to_cpu_port_map", np))
        return forced_as<uint32_t>(*forced);
    const VirtualLineCard *card = VirtualLineCard::current();
    return card ? cpu_port_of(card->config(), np).value_or(PLM_NO_CPU_PORT) : PLM_NO_CPU_PORT;
}

uint32_t plm_pkt_dir_to_np_map(uint32_t word, uint32_t direction, uint8_t *np)
{
    if (auto forced = tapped_call("plm_pkt_dir_to_np_map", word, direction, np))
        return forced_as<uint32_t>(*forced);
    const VirtualLineCard *card = VirtualLineCard::current();
    if (!card || !np)
        return EINVAL;
    if (direction != PLM_DIRECTION_INJECT || card->config().inject_np >= card->config().num_nps)
        return ENOENT;
    *np = static_cast<uint8_t>(card->config().inject_np);
    return 0;
}

uint32_t spp_client_init_v2(void **handle, spp_client_params params)
{
    if (auto forced = tapped_call("spp_client_init_v2", handle, &params))
        return forced_as<uint32_t>(*forced);
    if (!VirtualLineCard::current() || !handle)
        return EINVAL;
    *handle = reinterpret_cast<void *>(++clients);
    return 0;
}

uint32_t spp_prep_bfd_pkt_and_xmt(void *handle, uint32_t port, gather_piece *pieces, uint32_t count,
                                  uint32_t word_1, uint32_t *retcode, uint32_t word_2)
{
    if (auto forced = tapped_call("spp_prep_bfd_pkt_and_xmt", handle, port, pieces, count, word_1,
                                  retcode, word_2))
        return forced_as<uint32_t>(*forced);
    if (!retcode)
        return EINVAL;
    const FrameOutcome outcome = send(handle, port, pieces, count);
    *retcode = outcome.retcode;
    return outcome.code;
}
