// Layouts of a flow: the agreement between the flow service, its encoders, the data plane that
// carries the results out, and the tools that show flows.
//
//   key (flow table), 13 bytes: the packet's 5-tuple
//     0 IP protocol | 1-4 source address | 5-8 destination address
//     9-10 source port | 11-12 destination port
//   result (flow table), 32 bytes:
//     0 action: 0x01 count, 0x02 count and police
//     1-5 address of the flow's counter, written by the library (below); 0 for none
//     6-7 zero | 8-15 rate, in bytes a second | 16-19 burst, in bytes | 20-31 zero
//   user data, 131 bytes:
//     0 mark 0x46 | 1-13 key | 14 flags: 0x01 has a policer | 15-22 rate | 23-26 burst
//     27-34 time of the first packet | 35-42 time when the flow was last seen active
//     43-50 packets seen by then | 51-58 idle time after which it ends | 59-66 the service's own
//     67-130 zero
//
// Numbers are in network byte order, times in nanoseconds (since 1970). Packets without ports have
// port 0.
//
// The counter's address has 24 bits. An add carries it in bytes 3, 4, 5, the highest byte first. A
// modify carries bytes 1 to 3 of the counter's number in bytes 1, 2, 3 instead, and bytes 4 and 5
// as the encoder left them, zero; those bytes of a dynamic counter's number are its address too,
// the lowest byte first. So the highest byte is byte 3 of both, and each of the others stands in
// one place and is zero in the other; a modified flow goes on counting where it counted. All else
// of a result lies outside bytes 1 to 5, where no request writes.
//
// The policer is a bucket that holds `burst` bytes and is full at first; `rate` bytes flow in every
// second. A packet whose wire length is in the bucket takes it out and conforms; any other is
// dropped and takes nothing. Time is that of the packets as they arrive; where it goes back,
// nothing flows in. Conforming packets count on the flow's counter, dropped ones on the counter at
// the next address. At rate 0 no packet is dropped, and the bucket is left alone.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace flow_layout {

// Numbers in host byte order.
struct Tuple {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint16_t source_port = 0;
    uint16_t destination_port = 0;
    uint8_t protocol = 0;
    bool operator==(const Tuple &) const = default;
};

// What the flow service hands the library as `flow_info`, and gets back from a lookup.
struct FlowInfo {
    Tuple tuple{};
    bool policer = false;
    uint64_t rate = 0;  // of the policer: bytes a second, 0 for one that drops nothing
    uint32_t burst = 0; // bytes
    // Kept for the service in the user data; the NPs know nothing of these.
    int64_t first_packet = 0;  // time
    int64_t last_active = 0;   // time
    uint64_t seen_packets = 0; // by then
    int64_t idle_time = 0;
    uint64_t mark = 0;
    bool operator==(const FlowInfo &) const = default;
};

struct Policer {
    uint64_t rate = 0;
    uint32_t burst = 0;
    bool operator==(const Policer &) const = default;
};

inline constexpr uint8_t count_action = 0x01;
inline constexpr uint8_t police_action = 0x02;
inline constexpr uint8_t user_data_mark = 0x46;
inline constexpr uint8_t has_policer = 0x01;

using Key = std::array<uint8_t, 13>;
using Result = std::array<uint8_t, 32>;
using UserData = std::array<uint8_t, 131>;
using Bytes = std::span<const uint8_t>;

namespace places {
inline constexpr size_t rate = 8; // in a result
inline constexpr size_t burst = 16;
inline constexpr size_t user_key = 1; // in user data
inline constexpr size_t user_flags = 14;
inline constexpr size_t user_rate = 15;
inline constexpr size_t user_burst = 23;
inline constexpr size_t user_first_packet = 27;
inline constexpr size_t user_last_active = 35;
inline constexpr size_t user_seen_packets = 43;
inline constexpr size_t user_idle_time = 51;
inline constexpr size_t user_service = 59;
} // namespace places

template <typename Number>
constexpr void put(std::span<uint8_t> bytes, size_t place, Number number)
{
    auto left = static_cast<uint64_t>(number);
    for (size_t i = sizeof(Number); i > 0; --i, left >>= 8)
        bytes[place + i - 1] = static_cast<uint8_t>(left);
}

template <typename Number>
constexpr Number number_at(Bytes bytes, size_t place)
{
    uint64_t number = 0;
    for (size_t i = 0; i < sizeof(Number); ++i)
        number = number << 8 | bytes[place + i];
    return static_cast<Number>(number);
}

constexpr Key key_of(const Tuple &tuple)
{
    Key key{tuple.protocol};
    put(key, 1, tuple.source);
    put(key, 5, tuple.destination);
    put(key, 9, tuple.source_port);
    put(key, 11, tuple.destination_port);
    return key;
}

// Nothing for a key of another layout.
constexpr std::optional<Tuple> tuple_in(Bytes key)
{
    if (key.size() != Key{}.size())
        return std::nullopt;
    return Tuple{number_at<uint32_t>(key, 1), number_at<uint32_t>(key, 5),
                 number_at<uint16_t>(key, 9), number_at<uint16_t>(key, 11), key[0]};
}

// Without a counter: the library writes that.
constexpr Result result_of(const FlowInfo &flow)
{
    Result result{flow.policer ? police_action : count_action};
    if (flow.policer) {
        put(result, places::rate, flow.rate);
        put(result, places::burst, flow.burst);
    }
    return result;
}

// Whether an NP that hits a row with the result has anything to do.
constexpr bool is_flow_result(Bytes result)
{
    return result.size() == Result{}.size() &&
           (result[0] == count_action || result[0] == police_action);
}

// The address that a flow's result carries, as an add or a modify wrote it; 0 for none.
constexpr uint32_t counter_address(Bytes result)
{
    return uint32_t{result[3]} << 16 | uint32_t{result[4]} << 8 | result[5] |
           uint32_t{result[2]} << 8 | result[1];
}

// Nothing for a flow's result without one.
constexpr std::optional<Policer> policer_in(Bytes result)
{
    if (result[0] != police_action)
        return std::nullopt;
    return Policer{number_at<uint64_t>(result, places::rate),
                   number_at<uint32_t>(result, places::burst)};
}

constexpr UserData user_data_of(const FlowInfo &flow)
{
    UserData data{user_data_mark};
    std::ranges::copy(key_of(flow.tuple), data.begin() + places::user_key);
    data[places::user_flags] = flow.policer ? has_policer : 0;
    put(data, places::user_rate, flow.rate);
    put(data, places::user_burst, flow.burst);
    put(data, places::user_first_packet, flow.first_packet);
    put(data, places::user_last_active, flow.last_active);
    put(data, places::user_seen_packets, flow.seen_packets);
    put(data, places::user_idle_time, flow.idle_time);
    put(data, places::user_service, flow.mark);
    return data;
}

// Nothing for user data of another layout.
constexpr std::optional<FlowInfo> flow_in(Bytes user_data)
{
    if (user_data.size() < UserData{}.size() || user_data[0] != user_data_mark)
        return std::nullopt;
    return FlowInfo{.tuple = *tuple_in(user_data.subspan(places::user_key, Key{}.size())),
                    .policer = (user_data[places::user_flags] & has_policer) != 0,
                    .rate = number_at<uint64_t>(user_data, places::user_rate),
                    .burst = number_at<uint32_t>(user_data, places::user_burst),
                    .first_packet = number_at<int64_t>(user_data, places::user_first_packet),
                    .last_active = number_at<int64_t>(user_data, places::user_last_active),
                    .seen_packets = number_at<uint64_t>(user_data, places::user_seen_packets),
                    .idle_time = number_at<int64_t>(user_data, places::user_idle_time),
                    .mark = number_at<uint64_t>(user_data, places::user_service)};
}

} // namespace flow_layout
