#include "injected_bytes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "exit_code.h"
#include "inline_service_packet.h"
#include "numbers.h"
#include "vlc/capture_reader.h"

namespace inlinectl {
namespace {

using injection_layout::Kind;

// Beside every header of either kind.
constexpr size_t most_bytes = size_t{SPP_LONGEST_FRAME} - size_t{INJECTED_PREFIX_BYTES} -
                              size_t{INJECTED_NP_HEADER_BYTES} - size_t{INJECTED_IPV4_BYTES} -
                              size_t{INJECTED_UDP_BYTES};

int digit_of(char letter)
{
    constexpr std::string_view lower = "0123456789abcdef";
    constexpr std::string_view upper = "0123456789ABCDEF";
    const size_t place = std::min(lower.find(letter), upper.find(letter));
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

// Blanks and colons may stand between pairs.
std::vector<uint8_t> bytes_of_hex(std::string_view text)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == ':') {
            ++i;
            continue;
        }
        const int high = digit_of(text[i]);
        const int low = i + 1 < text.size() ? digit_of(text[i + 1]) : -1;
        if (high < 0 || low < 0)
            throw UsageError("--hex is pairs of hexadecimal digits, and at its character " +
                             std::to_string(i + 1) + " is none");
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
        i += 2;
    }
    return bytes;
}

std::vector<uint8_t> bytes_of_file(const std::filesystem::path &path)
{
    struct Close {
        void operator()(FILE *file) const { std::fclose(file); }
    };
    const std::unique_ptr<FILE, Close> file(std::fopen(path.c_str(), "rbe"));
    std::vector<uint8_t> bytes;
    std::array<uint8_t, 4096> part;
    size_t got = 0;
    while (file && bytes.size() <= most_bytes &&
           (got = std::fread(part.data(), 1, part.size(), file.get())) > 0)
        bytes.insert(bytes.end(), part.begin(), part.begin() + static_cast<ptrdiff_t>(got));
    if (!file || std::ferror(file.get()) != 0)
        throw UsageError(path.string() + ": cannot be read: " + std::strerror(errno));
    return bytes;
}

std::vector<uint8_t> first_packet_of(const std::filesystem::path &path)
{
    vlc::CaptureReader reader(path);
    vlc::CapturedPacket packet;
    while (reader.next(&packet)) {
        const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
        if (parsed.unreadable != vlc::Unreadable::none)
            continue;
        if (parsed.ipv4.size() < parsed.ipv4_wire_length)
            throw UsageError(path.string() + ": its first IPv4 packet was captured in part only");
        return {parsed.ipv4.begin(), parsed.ipv4.end()};
    }
    throw UsageError(path.string() + ": has no IPv4 packet");
}

} // namespace

void check_bytes(const BytesChoice &choice, Kind kind)
{
    const int given = (choice.text ? 1 : 0) + (choice.hex ? 1 : 0) + (choice.file ? 1 : 0) +
                      (choice.capture ? 1 : 0);
    const char *ways =
        kind == Kind::service ? "--text, --hex or --file" : "--hex, --file or --pcap";
    if (given == 0)
        throw UsageError(std::string("no bytes to send: give ") + ways);
    if (given > 1)
        throw UsageError(std::string("give one of ") + ways + ", not several");
}

std::vector<uint8_t> chosen_bytes(const BytesChoice &choice)
{
    std::vector<uint8_t> bytes;
    if (choice.text)
        bytes.assign(choice.text->begin(), choice.text->end());
    else if (choice.hex)
        bytes = bytes_of_hex(*choice.hex);
    else if (choice.file)
        bytes = bytes_of_file(*choice.file);
    else if (choice.capture)
        bytes = first_packet_of(*choice.capture);
    if (bytes.size() > most_bytes)
        throw UsageError("more than " + grouped(most_bytes) + " bytes fit into no frame");
    return bytes;
}

} // namespace inlinectl
