#include "frame.h"

namespace vlc {

void append_frame(Payload &out, FrameKind kind, uint32_t sequence, std::span<const uint8_t> payload)
{
    WireWriter header;
    header.number(static_cast<uint32_t>(payload.size()));
    header.number(static_cast<uint32_t>(kind));
    header.number(sequence);
    const Payload bytes = header.take();
    out.insert(out.end(), bytes.begin(), bytes.end());
    out.insert(out.end(), payload.begin(), payload.end());
}

void FrameAssembler::feed(std::span<const uint8_t> bytes)
{
    if (taken_ == pending_.size()) {
        pending_.clear();
        taken_ = 0;
    }
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
}

std::optional<Frame> FrameAssembler::next()
{
    const auto left = std::span<const uint8_t>(pending_).subspan(taken_);
    if (broken_ || left.size() < frame_header_bytes)
        return std::nullopt;
    WireReader header(left);
    const auto length = header.number<uint32_t>();
    const auto kind = header.number<uint32_t>();
    const auto sequence = header.number<uint32_t>();
    if (length > longest_payload) {
        broken_ = true;
        return std::nullopt;
    }
    if (left.size() - frame_header_bytes < length)
        return std::nullopt;
    const auto payload = left.subspan(frame_header_bytes, length);
    Frame frame{static_cast<FrameKind>(kind), sequence, Payload(payload.begin(), payload.end())};
    taken_ += frame_header_bytes + length;
    return frame;
}

} // namespace vlc
