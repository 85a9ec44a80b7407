#include "tshark_oracle.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>

namespace tshark_oracle {
namespace {

enum Column {
    protocols,
    length,
    destination,
    protocol,
    tcp_port,
    udp_port,
    source,
    tcp_source_port,
    udp_source_port,
    columns
};
constexpr const char *command = "tshark -n -o ip.defragment:FALSE -T fields -E occurrence=f "
                                "-e frame.protocols -e frame.len -e ip.dst -e ip.proto "
                                "-e tcp.dstport -e udp.dstport "
                                "-e ip.src -e tcp.srcport -e udp.srcport -r ";

std::vector<std::string> split(const std::string &line, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(line);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

// Run through a shell: paths of captures and of test directories hold no single quotes.
std::string output_of(const std::filesystem::path &capture)
{
    std::string line = command;
    line.append("'").append(capture.string()).append("' 2>/dev/null");
    FILE *pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("no shell for tshark");
    }
    std::string output;
    std::array<char, 65536> part;
    for (size_t got; (got = fread(part.data(), 1, part.size(), pipe)) > 0;) {
        output.append(part.data(), got);
    }
    if (pclose(pipe) != 0) {
        throw std::runtime_error("tshark failed on " + capture.string());
    }
    return output;
}

Frame frame_of(const std::string &line)
{
    std::vector<std::string> fields = split(line, '\t');
    fields.resize(columns);
    Frame frame;
    frame.protocols = fields[protocols];
    frame.wire_length = static_cast<uint32_t>(std::stoul(fields[length]));
    in_addr address;
    if (inet_pton(AF_INET, fields[destination].c_str(), &address) == 1) {
        frame.destination = ntohl(address.s_addr);
    }
    if (!fields[protocol].empty()) {
        frame.protocol = static_cast<uint8_t>(std::stoul(fields[protocol]));
    }
    if (inet_pton(AF_INET, fields[source].c_str(), &address) == 1) {
        frame.source = ntohl(address.s_addr);
    }
    const bool is_tcp = frame.protocol == 6;
    const auto port_in = [&](const std::string &field) {
        const bool has_ports = is_tcp || frame.protocol == 17;
        return static_cast<uint16_t>(has_ports && !field.empty() ? std::stoul(field) : 0);
    };
    frame.port = port_in(fields[is_tcp ? tcp_port : udp_port]);
    frame.source_port = port_in(fields[is_tcp ? tcp_source_port : udp_source_port]);
    return frame;
}

} // namespace

bool Frame::is_direct_ipv4() const
{
    constexpr std::string_view links[] = {"eth", "sll"};
    constexpr std::string_view between[] = {"ethertype", "vlan", "ieee8021ad", "llc"};
    const std::vector<std::string> layers = split(protocols, ':');
    if (layers.empty() || std::ranges::find(links, layers.front()) == std::end(links)) {
        return false;
    }
    const auto behind = std::find_if_not(layers.begin() + 1, layers.end(), [&](const auto &layer) {
        return std::ranges::find(between, layer) != std::end(between);
    });
    return behind != layers.end() && *behind == "ip";
}

std::vector<Frame> read(const std::filesystem::path &capture)
{
    std::vector<Frame> frames;
    for (const std::string &line : split(output_of(capture), '\n')) {
        frames.push_back(frame_of(line));
    }
    return frames;
}

} // namespace tshark_oracle
