// Every log site of packets and utility messages is reached, told by its number; failures are said
// at error level and all else is not.
#include <algorithm>
#include <filesystem>
#include <set>

#include "debug_points.h"
#include "packet_fixture.h"

using namespace test;

namespace {

class PacketSites : public PacketTest {
protected:
    PacketSites()
    {
        bring_up(); // so that the points are handed out
        services.script("_ltrace", [this](const vlc::ServiceCall &call) {
            const uint64_t mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;
            said_.insert(static_cast<uint32_t>(call.args[1] & mask));
            return std::optional<uint64_t>();
        });
    }
    ~PacketSites() override { services.stop_forcing(); }

    // The formats of the sites by level; each must have been said.
    Strings said(uint8_t level) const
    {
        Strings formats;
        for (const ed_debug_point &point : debug_points()) {
            if (file_name(point) != "inline_service_packet.cpp" || point.level != level)
                continue;
            EXPECT_EQ(said_.count(point.number), 1u) << point.function << ": " << point.format;
            formats.emplace_back(point.format);
        }
        std::sort(formats.begin(), formats.end());
        return formats;
    }

private:
    std::set<uint32_t> said_;
};

TEST_F(PacketSites, AreAllReached)
{
    send_udp(0); // without a client
    services.force("spp_client_init_v2", 5, 1, 1);
    register_client();
    register_client();
    services.force("platform_get_my_card_type", map_types[0]);
    services.force("plm_pkt_dir_to_np_map", 2);
    for (const auto &[code, retcode] : {std::pair{0u, 0u}, {0u, 5u}, {5u, 5u}}) {
        path_answers(code, retcode);
        send_udp(0);
        send_ip(0);
    }
    services.force("plm_np_to_cpu_port_map", no_port);
    send_udp(0);
    send_ip(0);
    inline_register_inutil_callback(3, nullptr);
    std::filesystem::create_directory("/tmp/inutil_result.txt");
    const uint32_t message = 0;
    plm_inline_process_util_msg(&message);

    EXPECT_EQ(said(ED_EVENT_BUFFER),
              (Strings{"pkt sent\n", "spp_prep_bfd_pkt_and_xmt returned OK %d"}));
    EXPECT_EQ(said(ED_ERROR_BUFFER),
              (Strings{" spp_handle is NULL", "Error getting np_num for inject",
                       "Error getting tsec port", "Error getting tsec port", "failed to open %s",
                       "no utility messages of kind %u", "pkt not sent retcode %d\n",
                       "send failure rc %d retcode %d", "spp_client_init_v2 failed: rc = %d",
                       "spp_prep_bfd_pkt_and_xmt returned non-zero rc %d, retcode %d",
                       "spp_prep_bfd_pkt_and_xmt returned non-zero retcode %d "}));
}

} // namespace
