#include "packets_in_memory.h"

#include <set>

#include "vlc/capture_reader.h"

namespace bench {

PacketsInMemory::PacketsInMemory(const char *capture)
{
    vlc::CaptureReader reader(capture);
    vlc::CapturedPacket packet{};
    while (reader.next(&packet)) {
        bytes_.emplace_back(packet.bytes.begin(), packet.bytes.end());
        packets_.push_back(packet);
    }
    for (size_t i = 0; i < packets_.size(); ++i) {
        packets_[i].bytes = bytes_[i];
        packets_[i].capture = "capture";
    }
}

std::vector<services::Destination> PacketsInMemory::destinations() const
{
    std::set<services::Destination> found;
    for (const vlc::CapturedPacket &packet : packets_) {
        const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
        if (parsed.unreadable == vlc::Unreadable::none)
            found.insert(
                {parsed.tuple.protocol, parsed.tuple.destination, parsed.tuple.destination_port});
    }
    return {found.begin(), found.end()};
}

} // namespace bench
