// What the tests of injected packets share: a card, and every frame as it is handed to the packet
// path, taken apart while its pieces are there.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "card_fixture.h"
#include "inline_service_packet.h"
#include "platform_card.h"

namespace test {

using Octets = std::vector<uint8_t>;
using Strings = std::vector<std::string>;

// One call of the packet path's send.
struct SentFrame {
    uint64_t handle = 0;
    uint64_t port = 0;
    std::vector<size_t> lengths; // of the pieces
    std::vector<const void *> places;
    Octets bytes;
    uint64_t count = 0, word_1 = 0, word_2 = 0;
    uint32_t retcode_before = 0;

    Octets part(size_t from, size_t length) const
    {
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(from);
        return {begin, begin + static_cast<ptrdiff_t>(length)};
    }
    Octets prefix() const { return part(0, 16); }
    Octets np_header() const { return part(16, 56); }
    Octets behind_the_headers() const { return part(72, bytes.size() - 72); }
};

// Bytes that are all zero but for some.
inline Octets zeroed(size_t size, std::initializer_list<std::pair<size_t, uint8_t>> but)
{
    Octets bytes(size);
    for (const auto &[place, value] : but)
        bytes.at(place) = value;
    return bytes;
}

class PacketTest : public CardTest {
protected:
    static constexpr uint32_t map_types[] = {0x280251, 0x230231, 0x3A0263, 0x3B0262};
    static constexpr uint32_t flag_types[] = {0x280251, 0x230231};
    static constexpr uint32_t ordinary_type = 0xD20001;
    static constexpr uint32_t no_port = 0xFFFFFFFF;

    PacketTest()
    {
        services.observe([this](const vlc::ServiceCall &call) {
            if (call.service == std::string("spp_prep_bfd_pkt_and_xmt"))
                frames.push_back(taken_apart(call));
        });
    }

    void *register_client()
    {
        static constexpr spp_client_params params = {};
        return plm_inline_spp_client_register(params);
    }
    // Registered on a card of the type; nothing of it is remembered.
    void register_on(uint32_t card_type)
    {
        services.force("platform_get_my_card_type", card_type);
        ASSERT_NE(register_client(), nullptr);
        forget();
    }
    // The map puts the NP there, and returns the code.
    void map_gives(std::optional<uint8_t> np, uint32_t code = 0)
    {
        services.script("plm_pkt_dir_to_np_map", [=](const vlc::ServiceCall &call) {
            if (np)
                *reinterpret_cast<uint8_t *>(call.args[2]) = *np;
            return std::optional<uint64_t>(code);
        });
    }
    void path_answers(uint32_t code, uint32_t retcode)
    {
        services.script("spp_prep_bfd_pkt_and_xmt", [=](const vlc::ServiceCall &call) {
            *reinterpret_cast<uint32_t *>(call.args[5]) = retcode;
            return std::optional<uint64_t>(code);
        });
    }
    void forget()
    {
        services.forget();
        forget_log();
        frames.clear();
    }
    void send_udp(uint32_t tag, const Octets &payload = Octets(4, 'p'))
    {
        plm_inline_send_packet_to_service_lc(tag, 0xC0000201, 0xC6336407, payload.data(),
                                             static_cast<uint32_t>(payload.size()));
    }
    void send_ip(uint16_t tag, const Octets &packet = Octets(20, 'i'))
    {
        plm_inline_send_ip_packet(tag, packet.data(), static_cast<uint32_t>(packet.size()));
    }

    std::vector<SentFrame> frames;

private:
    static SentFrame taken_apart(const vlc::ServiceCall &call)
    {
        SentFrame frame;
        frame.handle = call.args[0];
        frame.port = call.args[1];
        frame.count = call.args[3];
        frame.word_1 = call.args[4];
        frame.retcode_before = *reinterpret_cast<const uint32_t *>(call.args[5]);
        frame.word_2 = call.args[6];
        const auto *pieces = reinterpret_cast<const gather_piece *>(call.args[2]);
        for (size_t i = 0; i < frame.count; ++i) {
            const auto *bytes = static_cast<const uint8_t *>(pieces[i].data);
            frame.lengths.push_back(pieces[i].length);
            frame.places.push_back(bytes);
            frame.bytes.insert(frame.bytes.end(), bytes, bytes + pieces[i].length);
        }
        return frame;
    }
};

} // namespace test
