// Messages of virtual services, put together byte by byte as their sender does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

inline constexpr size_t vservice_record_bytes = 1104;

// What the handler reads of a record.
struct Vservice {
    uint32_t index = 0;
    uint32_t encap = 1;
    uint32_t user = 1;
    uint32_t source = 0xC0000201;
    uint32_t destination = 0xCB007105;
    uint16_t source_port = 0x1234;
    uint16_t destination_port = 0xABCD;
};

inline void put_number(std::vector<uint8_t> &bytes, size_t at, uint32_t value, size_t width = 4)
{
    for (size_t i = 0; i < width; ++i)
        bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * i));
}

// The record's bytes; those that nobody reads are `unread`.
inline std::vector<uint8_t> record_of(const Vservice &service, uint8_t unread = 0x5A)
{
    std::vector<uint8_t> bytes(vservice_record_bytes, unread);
    put_number(bytes, 0, service.index);
    put_number(bytes, 48, service.encap);
    put_number(bytes, 52, service.user);
    put_number(bytes, 68, service.source);
    put_number(bytes, 88, service.destination);
    put_number(bytes, 104, service.source_port, 2);
    put_number(bytes, 106, service.destination_port, 2);
    return bytes;
}

class VserviceMessage {
public:
    static constexpr size_t head_bytes = 16;

    explicit VserviceMessage(int32_t type, int32_t count = 0) : bytes_(head_bytes, 0xEE)
    {
        put_number(bytes_, 8, static_cast<uint32_t>(type));
        set_count(count);
    }
    VserviceMessage &set_count(int32_t count)
    {
        count_ = count;
        put_number(bytes_, 12, static_cast<uint32_t>(count));
        return *this;
    }
    VserviceMessage &record(const Vservice &service) { return append(record_of(service)); }
    VserviceMessage &index(uint32_t number)
    {
        std::vector<uint8_t> bytes(4);
        put_number(bytes, 0, number);
        return append(bytes);
    }
    VserviceMessage &append(const std::vector<uint8_t> &item)
    {
        bytes_.insert(bytes_.end(), item.begin(), item.end());
        return set_count(count_ + 1);
    }
    const std::vector<uint8_t> &bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    int32_t count_ = 0;
};

inline VserviceMessage add_message()
{
    return VserviceMessage(1);
}
inline VserviceMessage delete_message()
{
    return VserviceMessage(2);
}

} // namespace test
