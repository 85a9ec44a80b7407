#include "reference_counts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace test {
namespace {

enum Field {
    length,
    layers,
    source,
    address,
    protocol,
    tcp_source_port,
    tcp_port,
    udp_source_port,
    udp_port,
    fields
};

std::string run(const std::string &command)
{
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run " + command);
    std::string text;
    std::array<char, 65536> part;
    for (size_t got; (got = fread(part.data(), 1, part.size(), pipe)) > 0;)
        text.append(part.data(), got);
    if (pclose(pipe) != 0)
        throw std::runtime_error("failed: " + command);
    return text;
}

std::array<std::string, fields> split(const std::string &line)
{
    std::array<std::string, fields> columns;
    std::istringstream text(line);
    for (std::string &column : columns)
        std::getline(text, column, '\t');
    return columns;
}

// Whether IPv4 follows the link header and its tags directly; what other layers carry is not read.
bool is_read_by_the_data_plane(const std::string &layers)
{
    std::istringstream text(layers);
    for (std::string layer; std::getline(text, layer, ':');) {
        if (layer == "ip")
            return true;
        if (layer != "eth" && layer != "sll" && layer != "ethertype" && layer != "vlan" &&
            layer != "ieee8021ad")
            return false;
    }
    return false;
}

void add(Count *count, uint64_t bytes)
{
    ++count->packets;
    count->bytes += bytes;
}

} // namespace

bool analyser_is_installed()
{
    return system("tshark --version > /dev/null 2>&1") == 0;
}

ReferenceCounts reference_counts(const std::filesystem::path &capture)
{
    const std::string text =
        run("tshark -n -r '" + capture.string() +
            "' -o ip.defragment:FALSE -T fields -E occurrence=f -e frame.len -e frame.protocols "
            "-e ip.src -e ip.dst -e ip.proto -e tcp.srcport -e tcp.dstport -e udp.srcport "
            "-e udp.dstport 2>/dev/null");
    ReferenceCounts counts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto columns = split(line);
        const uint64_t bytes = std::stoull(columns[length]);
        add(&counts.all, bytes);
        if (!is_read_by_the_data_plane(columns[layers]) || columns[address].empty())
            continue;
        // The ports of an inner packet are not the outer one's.
        std::string port;
        std::string source_port;
        if (columns[protocol] == "6") {
            port = columns[tcp_port];
            source_port = columns[tcp_source_port];
        } else if (columns[protocol] == "17") {
            port = columns[udp_port];
            source_port = columns[udp_source_port];
        }
        add(&counts.ipv4, bytes);
        add(&counts.addresses[columns[address]], bytes);
        add(&counts.destinations[columns[protocol] + " " + columns[address] + " " +
                                 (port.empty() ? "0" : port)],
            bytes);
        add(&counts.flows[columns[protocol] + " " + columns[source] + " " +
                          (source_port.empty() ? "0" : source_port) + " " + columns[address] + " " +
                          (port.empty() ? "0" : port)],
            bytes);
    }
    return counts;
}

std::vector<std::filesystem::path> captures()
{
    namespace fs = std::filesystem;
    std::vector<fs::path> found;
    const fs::path project = PROJECT_SOURCE_DIR;
    for (const fs::path &directory : {project / "captures", project / "../shared/captures"}) {
        if (!fs::is_directory(directory))
            continue;
        for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
            const std::string extension = entry.path().extension();
            if (extension == ".pcap" || extension == ".pcapng")
                found.push_back(fs::canonical(entry.path()));
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void CaptureTest::SetUp()
{
    if (!analyser_is_installed())
        GTEST_SKIP() << "tshark is not installed";
}

std::string capture_test_name(const testing::TestParamInfo<std::filesystem::path> &capture)
{
    const std::filesystem::path &file = capture.param;
    const bool own = file.parent_path() == std::filesystem::path(PROJECT_SOURCE_DIR) / "captures";
    std::string name = (own ? "own_" : "shared_") + file.filename().string();
    for (char &letter : name)
        letter = isalnum(static_cast<unsigned char>(letter)) != 0 ? letter : '_';
    return name;
}

} // namespace test
