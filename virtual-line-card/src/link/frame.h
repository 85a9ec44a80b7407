// The framing: each message is a header of three words (the payload's length, the kind, a sequence
// number) and the payload. Each end has requests answered in order; an announcement has sequence 0
// and may come between a request and its reply.
#pragma once

#include <optional>

#include "wire.h"

namespace vlc {

enum class FrameKind : uint32_t {
    // requests, and their replies under the request's sequence number
    hello = 1,
    find_handle,
    register_handle,
    reregister,
    set_name,
    request,
    read_answer,
    unread,
    is_handle,
    read_counter,
    packets,
    rows,
    answers,
    counter,
    settle,
    hit_counts,
    take_counters,
    give_counters_back,
    flows,
    flow_activity,
    dynamic_counters,
    go_on,       // with the packets behind a miss
    console_ask, // of a host's console
    console_follow,
    counters,
    np_totals,
    cpu_frame, // that goes into a CPU port
    // from the card
    reply = 0x100,
    part,    // of a reply that is longer than a frame: comes before it
    refusal, // instead of a reply: why, as a text; the connection ends
    prm_event = 0x200,
    answers_waiting,
    // from a host's console
    console_line = 0x300
};

struct Frame {
    FrameKind kind;
    uint32_t sequence = 0;
    Payload payload = {};
};

constexpr size_t frame_header_bytes = 12;
constexpr uint32_t longest_payload = uint32_t{4} << 20; // the largest card's text fits

void append_frame(Payload &out, FrameKind kind, uint32_t sequence,
                  std::span<const uint8_t> payload);

// Makes frames of whatever pieces a stream arrives in.
class FrameAssembler {
public:
    void feed(std::span<const uint8_t> bytes);
    std::optional<Frame> next();
    bool is_broken() const { return broken_; } // a frame that is too long: nothing more comes

private:
    Payload pending_;
    size_t taken_ = 0; // of pending, from its front
    bool broken_ = false;
};

} // namespace vlc
