// Numbers and bytes as they travel: little-endian, without padding.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vlc {

using Payload = std::vector<uint8_t>;

class WireWriter {
public:
    template <typename Number>
    WireWriter &number(Number value)
    {
        std::array<uint8_t, sizeof(Number)> bytes;
        auto left = static_cast<uint64_t>(value);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(left);
            left >>= 8;
        }
        return this->bytes(bytes);
    }
    // Not within its callers, where g++ 12 believes that insert() writes too far.
    [[gnu::noinline]] WireWriter &bytes(std::span<const uint8_t> bytes)
    {
        payload_.insert(payload_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    WireWriter &text(std::string_view text)
    {
        number(static_cast<uint32_t>(text.size()));
        return bytes({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    }
    size_t size() const { return payload_.size(); }
    Payload take() { return std::move(payload_); }

private:
    Payload payload_;
};

// Reads what a peer sent. What does not fit reads as 0 or nothing, and is_whole() says so once at
// the end.
class WireReader {
public:
    explicit WireReader(std::span<const uint8_t> payload) : left_(payload) {}

    template <typename Number>
    Number number()
    {
        uint64_t value = 0;
        const std::span<const uint8_t> taken = take(sizeof(Number));
        for (size_t i = taken.size(); i > 0; --i)
            value = value << 8 | taken[i - 1];
        return static_cast<Number>(value);
    }
    template <typename Number>
    void into(Number &field)
    {
        field = number<Number>();
    }
    std::span<const uint8_t> take(size_t size)
    {
        if (left_.size() < size) {
            refuse();
            return {};
        }
        const std::span<const uint8_t> taken = left_.first(size);
        left_ = left_.subspan(size);
        return taken;
    }
    std::span<const uint8_t> take_rest() { return take(left_.size()); }
    template <size_t Size>
    void into(uint8_t (&field)[Size], size_t size = Size)
    {
        if (size > Size) {
            refuse();
            return;
        }
        // Not by std::copy, of which g++ 12 leaves nothing in optimised builds.
        const std::span<const uint8_t> taken = take(size);
        if (!taken.empty())
            std::memcpy(field, taken.data(), taken.size());
    }
    std::string text()
    {
        const std::span<const uint8_t> taken = take(number<uint32_t>());
        return {taken.begin(), taken.end()};
    }
    void refuse() // what was read cannot be
    {
        fits_ = false;
        left_ = {};
    }
    bool has_more() const { return !left_.empty(); }
    bool fits() const { return fits_; }
    bool is_whole() const { return fits_ && left_.empty(); }

private:
    std::span<const uint8_t> left_;
    bool fits_ = true;
};

} // namespace vlc
