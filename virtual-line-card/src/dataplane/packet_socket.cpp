#include "packet_socket.h"

#include <cerrno>
#include <system_error>

#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vlc/state_error.h"

namespace vlc {

PacketSocket::PacketSocket(uint32_t port, const std::string &device)
{
    const auto refuse = [&](const std::string &why) {
        throw StateError("CPU port " + std::to_string(port) + ": the device '" + device + "' " +
                         why);
    };
    device_ = static_cast<int>(if_nametoindex(device.c_str()));
    if (device_ == 0)
        refuse("is not there");
    // Of no protocol: it only sends.
    socket_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket_ < 0)
        refuse(errno == EPERM ? "needs the right to send raw frames (CAP_NET_RAW)"
                              : "cannot be used: " + std::generic_category().message(errno));
}

PacketSocket::~PacketSocket()
{
    if (socket_ >= 0)
        close(socket_);
}

uint32_t PacketSocket::send(std::span<const uint8_t> frame, int64_t)
{
    sockaddr_ll to = {};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = device_;
    const ssize_t sent = sendto(socket_, frame.data(), frame.size(), 0,
                                reinterpret_cast<const sockaddr *>(&to), sizeof to);
    if (sent == static_cast<ssize_t>(frame.size()))
        return 0;
    if (sent >= 0)
        return EIO;
    // Short of memory is no full queue, in which a frame would wait.
    return errno == ENOMEM ? ENOBUFS : static_cast<uint32_t>(errno);
}

} // namespace vlc
