// What kind of card this is. Comes from the card file (TOML), or is the default card.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlc {

// A line-card slot of the router, and the card that is in it.
struct SlotConfig {
    uint16_t number = 0;
    uint32_t node = 0;
    uint32_t card_type = 0;
    bool operator==(const SlotConfig &) const = default;
};

struct Ipv4Prefix {
    uint32_t network = 0; // in host byte order; the bits behind the prefix are 0
    uint8_t length = 0;   // 0 to 32

    constexpr uint32_t mask() const { return length == 0 ? 0 : ~uint32_t{0} << (32 - length); }
    bool operator==(const Ipv4Prefix &) const = default;
};

// "192.0.2.0/24". Reading takes an address alone for its own prefix, and gives nothing for what is
// no prefix, bits behind its length too.
std::string text_of(const Ipv4Prefix &prefix);
std::optional<Ipv4Prefix> prefix_of(std::string_view text);

struct InterfaceConfig {
    static constexpr uint16_t highest_uidb = 4095;
    static constexpr uint16_t highest_key = 1023;
    static constexpr uint16_t first_vservice_key = 0x300; // of the vservice with index 0

    uint32_t handle = 0;
    uint16_t uidb = 0;
    uint32_t pic = 0;
    // What traffic enters here: all that is given holds of it. None enters where nothing is given.
    std::optional<uint16_t> vlan = {}; // of the outermost tag; 0 for packets without one
    std::string capture = {};          // a file's name without its directory; empty for any
    std::optional<Ipv4Prefix> source = {};
    std::optional<uint16_t> key = {}; // of the shadow DB: whose entry the packets meet

    bool takes_traffic() const { return vlan || !capture.empty() || source; }
    bool operator==(const InterfaceConfig &) const = default;
};

struct VrfConfig {
    static constexpr uint32_t highest_table = 0xFFFFFF;

    uint32_t id = 0;
    uint32_t table = 0;
    bool operator==(const VrfConfig &) const = default;
};

// How the card's CPU reaches an NP. Without a row, by the NP's ordinary port.
struct CpuPortConfig {
    static constexpr uint32_t first = 16; // the ordinary port of NP 0
    static constexpr uint32_t highest = 65535;

    uint16_t np = 0;
    bool is_there = true;              // an NP may have no port
    std::optional<uint32_t> port = {}; // the ordinary one unless given
    std::string device = {};           // of the machine, on which frames leave; empty for a file
    bool operator==(const CpuPortConfig &) const = default;
};

struct CardConfig {
    std::string name = "default";
    uint32_t card_type = 0xD20001; // outside the codes that take counters unswapped
    uint16_t slot = 0;
    uint16_t num_nps = 2;                    // 1 to 8
    uint32_t service_config_capacity = 8192; // rows of an NP's table
    uint32_t ext_conf_capacity = 8192;
    uint32_t flow_capacity = 8192;
    uint32_t dynamic_counters = 16384; // of an NP; 0 for none
    uint16_t inject_np = 0;            // that takes injected packets
    uint64_t window_bytes = uint64_t{64} << 20;
    std::vector<SlotConfig> slots;
    std::vector<InterfaceConfig> interfaces; // the first that a packet fits is the packet's
    std::vector<VrfConfig> vrfs;
    std::vector<CpuPortConfig> cpu_ports; // one of an NP at most
    bool operator==(const CardConfig &) const = default;
};

// The port of an NP; nothing for an NP without one and for one that the card does not have.
std::optional<uint32_t> cpu_port_of(const CardConfig &card, uint32_t np);

// Reads a card file. Throws StateError "FILE:LINE:COLUMN: ..." for what is broken, out of range,
// given twice or unknown (with the nearest known name).
CardConfig load_card_file(const std::filesystem::path &file);

// A card as the text of a card file that says all of it, and back. The text of a state directory's
// marker and of the first message at a socket too. A text that was cut off is no whole card.
// Reading throws StateError as above, with the source's name for the file's.
std::string text_of(const CardConfig &card);
CardConfig card_of_text(const std::string &text, const std::string &source);

} // namespace vlc
