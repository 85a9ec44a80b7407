// Two network devices that are the ends of one wire, in a network namespace that this process makes
// for itself; and what comes out of the far end.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

class WirePair {
public:
    static constexpr char near[] = "wire-near";
    static constexpr char far[] = "wire-far";

    WirePair()
    {
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            why_ = "this process may not make a network namespace";
            return;
        }
        const std::string make = std::string("ip link add ") + near + " type veth peer name " +
                                 far + " && ip link set " + near + " up && ip link set " + far +
                                 " up";
        if (std::system((make + " 2>/dev/null").c_str()) != 0) {
            why_ = "no pair of devices can be made here";
            return;
        }
        listen();
    }
    ~WirePair()
    {
        if (socket_ >= 0)
            close(socket_);
    }
    WirePair(const WirePair &) = delete;
    WirePair &operator=(const WirePair &) = delete;

    const std::string &why_not() const { return why_; } // empty when the wire is there

    // The next frame that comes out for an address that begins so; nothing after two seconds.
    std::optional<std::vector<uint8_t>> receive(const std::vector<uint8_t> &beginning)
    {
        pollfd ready = {.fd = socket_, .events = POLLIN, .revents = 0};
        while (poll(&ready, 1, 2000) == 1) {
            std::vector<uint8_t> frame = receive_one();
            if (frame.size() >= beginning.size() &&
                std::equal(beginning.begin(), beginning.end(), frame.begin()))
                return frame;
        }
        return std::nullopt;
    }

private:
    void listen()
    {
        socket_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
        const int on = 1;
        sockaddr_ll at = {};
        at.sll_family = AF_PACKET;
        at.sll_protocol = htons(ETH_P_ALL);
        at.sll_ifindex = static_cast<int>(if_nametoindex(far));
        if (socket_ < 0 || setsockopt(socket_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
            bind(socket_, reinterpret_cast<const sockaddr *>(&at), sizeof at) != 0)
            why_ = "this process may not read raw frames";
    }

    // The kernel hands over a frame without its outermost tag, and the tag beside it.
    std::vector<uint8_t> receive_one()
    {
        std::vector<uint8_t> frame(70000);
        alignas(cmsghdr) char beside[CMSG_SPACE(sizeof(tpacket_auxdata))];
        iovec into = {frame.data(), frame.size()};
        msghdr message = {};
        message.msg_iov = &into;
        message.msg_iovlen = 1;
        message.msg_control = beside;
        message.msg_controllen = sizeof beside;
        const ssize_t got = recvmsg(socket_, &message, 0);
        frame.resize(got < 0 ? 0 : static_cast<size_t>(got));
        for (cmsghdr *one = CMSG_FIRSTHDR(&message); one; one = CMSG_NXTHDR(&message, one)) {
            if (one->cmsg_level != SOL_PACKET || one->cmsg_type != PACKET_AUXDATA)
                continue;
            tpacket_auxdata data;
            std::memcpy(&data, CMSG_DATA(one), sizeof data);
            if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0 || frame.size() < 12)
                continue;
            const auto high = [](uint16_t word) { return static_cast<uint8_t>(word >> 8); };
            const auto low = [](uint16_t word) { return static_cast<uint8_t>(word); };
            const uint8_t tag[] = {high(data.tp_vlan_tpid), low(data.tp_vlan_tpid),
                                   high(data.tp_vlan_tci), low(data.tp_vlan_tci)};
            frame.insert(frame.begin() + 12, std::begin(tag), std::end(tag));
        }
        return frame;
    }

    int socket_ = -1;
    std::string why_;
};

} // namespace test
