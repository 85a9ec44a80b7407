// Packets as hexadecimal text, as bytes in front of an unreadable page, and as capture files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vlc/packet.h"

namespace test_packets {

using Frame = std::vector<uint8_t>;

Frame from_hex(std::string_view text); // blanks are for the reader
uint32_t address(uint8_t a, uint8_t b, uint8_t c, uint8_t d);

// Holds bytes so that reading one past them faults, in every build.
class GuardedBytes {
public:
    explicit GuardedBytes(size_t capacity);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;
    std::span<const uint8_t> hold(std::span<const uint8_t> bytes);

private:
    uint8_t *memory_;
    size_t readable_;
    size_t page_;
};

// Captured bytes and the length that the record tells.
struct Record {
    Frame bytes;
    uint32_t wire_length;
};

inline constexpr uint32_t link_ethernet = 1;
inline constexpr uint32_t link_linux_sll = 113;

Frame pcap_bytes(uint32_t link, const std::vector<Record> &records);
void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes);
vlc::CapturedPacket captured(vlc::LinkType link, std::span<const uint8_t> bytes);

// A directory that goes with the test.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    std::filesystem::path file(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace test_packets
