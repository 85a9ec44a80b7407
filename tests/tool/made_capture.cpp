#include "made_capture.h"

#include <memory>

#include <tins/tins.h>

namespace test {
namespace {

std::unique_ptr<Tins::PDU> frame_pdu(const MadePacket &packet)
{
    auto frame = std::make_unique<Tins::EthernetII>("02:00:00:00:00:02", "02:00:00:00:00:01");
    if (packet.kind == MadePacket::Kind::arp) {
        *frame /= Tins::ARP(packet.destination, packet.source);
        return frame;
    }
    *frame /= Tins::IP(packet.destination, packet.source);
    switch (packet.kind) {
    case MadePacket::Kind::tcp:
        *frame /= Tins::TCP(packet.destination_port, packet.source_port);
        break;
    case MadePacket::Kind::udp:
        *frame /= Tins::UDP(packet.destination_port, packet.source_port);
        break;
    default:
        *frame /= Tins::ICMP();
    }
    *frame /= Tins::RawPDU(std::string(packet.payload, 'x'));
    return frame;
}

} // namespace

std::vector<uint8_t> frame_of(const MadePacket &packet)
{
    return frame_pdu(packet)->serialize();
}

void write_capture(const std::string &file, const std::vector<MadePacket> &packets)
{
    Tins::PacketWriter writer(file, Tins::DataLinkType<Tins::EthernetII>());
    for (const MadePacket &packet : packets) {
        const std::unique_ptr<Tins::PDU> frame = frame_pdu(packet);
        Tins::Packet stamped(*frame, std::chrono::microseconds(0));
        writer.write(stamped);
    }
}

} // namespace test
