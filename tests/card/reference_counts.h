// What an independent analyser counts in a capture.
#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace test {

struct Count {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    auto operator<=>(const Count &) const = default;
};

struct ReferenceCounts {
    std::map<std::string, Count> destinations; // "protocol address port"
    std::map<std::string, Count> addresses;
    std::map<std::string, Count> flows; // "protocol source port destination port"
    Count all;                          // every packet of the capture
    Count ipv4;                         // those with an IPv4 destination that the data plane reads
};

// By tshark: first occurrence of each field, no reassembly.
ReferenceCounts reference_counts(const std::filesystem::path &capture);

bool analyser_is_installed();

// The project's captures, and those beside the checkout when they are there.
std::vector<std::filesystem::path> captures();

// A test of each of them, named "own_..." or "shared_...".
class CaptureTest : public testing::TestWithParam<std::filesystem::path> {
protected:
    void SetUp() override; // skips without the analyser
    static std::string pcap() { return " --pcap '" + GetParam().string() + "'"; }
};
std::string capture_test_name(const testing::TestParamInfo<std::filesystem::path> &capture);

} // namespace test
