// Messages of virtual services drawn by a seed, and what must come of them.
//
// A message has the parts that a sender's has (head, records, indices), with values at and around
// every limit. Its bytes are exactly those that it claims: what reads one more reads past them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "inline_service_shadowdb.h"
#include "vservice_message.h"

namespace test {

class MessageGenerator {
public:
    explicit MessageGenerator(uint32_t seed) : random_(seed) {}

    static constexpr uint32_t most_items = 12;
    static constexpr size_t most_bytes =
        VserviceMessage::head_bytes + most_items * vservice_record_bytes;

    VserviceMessage next()
    {
        const int32_t type = one_of<int32_t>({1, 1, 1, 2, 2, 3, 0, 4, -1, any_signed()});
        VserviceMessage message(type);
        if (type != 1 && type != 2)
            return message.set_count(any_count());
        const uint32_t items = below(most_items + 1);
        if (items == 0)
            return message.set_count(one_of<int32_t>({0, -1, INT32_MIN, -any_positive()}));
        for (uint32_t item = 0; item < items; ++item) {
            if (type == 1)
                message.append(record());
            else
                message.index(index());
        }
        return message;
    }

private:
    uint32_t any() { return static_cast<uint32_t>(random_()); }
    uint32_t below(uint32_t limit) { return any() % limit; }
    int32_t any_signed() { return static_cast<int32_t>(any()); }
    int32_t any_positive() { return static_cast<int32_t>(any() >> 2) + 1; }
    int32_t any_count() { return one_of<int32_t>({0, 1, -1, INT32_MAX, INT32_MIN, any_signed()}); }

    template <typename Value>
    Value one_of(std::initializer_list<Value> values)
    {
        return values.begin()[below(static_cast<uint32_t>(values.size()))];
    }

    uint32_t index()
    {
        return one_of<uint32_t>({0, 1, 254, 255, 256, 257, 0x10000, 0x100FF, UINT32_MAX, below(8),
                                 below(256), below(256), any()});
    }

    std::vector<uint8_t> record()
    {
        const Vservice service{.index = index(),
                               .encap = one_of<uint32_t>({1, 1, 1, 4, 4, 0, 2, 3, 5, any()}),
                               .user = one_of<uint32_t>({0, 1, 2, 3, 4, 5, UINT32_MAX, any()}),
                               .source = any(),
                               .destination = any(),
                               .source_port = static_cast<uint16_t>(any()),
                               .destination_port = static_cast<uint16_t>(any())};
        std::vector<uint8_t> bytes = record_of(service, static_cast<uint8_t>(any()));
        // Bytes that mean nothing here, and once in a while any byte at all.
        for (uint32_t i = below(16); i > 0; --i)
            bytes[108 + below(vservice_record_bytes - 108)] = static_cast<uint8_t>(any());
        if (below(8) == 0)
            bytes[below(108)] = static_cast<uint8_t>(any());
        return bytes;
    }

    std::mt19937 random_;
};

// What a table and the hardware's keys hold after the messages so far.
class VserviceModel {
public:
    static constexpr uint32_t services = 256;
    static constexpr size_t head_bytes = VserviceMessage::head_bytes;

    // How often each way through a message was taken.
    struct Ways {
        uint64_t created, modified, unsupported, invalid_adds, deleted, invalid_deletes, nothing;
    };

    void apply(std::span<const uint8_t> message)
    {
        const auto type = static_cast<int32_t>(number(message, 8));
        const auto count = static_cast<int32_t>(number(message, 12));
        if ((type != 1 && type != 2) || count < 1) {
            ++ways_.nothing;
            return;
        }
        const size_t width = type == 1 ? vservice_record_bytes : 4;
        for (size_t item = 0; item < static_cast<size_t>(count); ++item) {
            const auto bytes = message.subspan(head_bytes + item * width, width);
            if (type == 1)
                add(bytes);
            else
                remove(number(bytes, 0));
        }
    }

    // Nothing when the library's table and keys are these.
    std::string difference(const void *table, main_entry *const *main_table) const
    {
        for (uint32_t index = 0; index < services; ++index) {
            const auto *record =
                static_cast<const uint8_t *>(table) + index * vservice_record_bytes;
            if (memcmp(record, records_[index].data(), vservice_record_bytes) != 0)
                return "record " + std::to_string(index) + " differs";
            const main_entry *main = main_table[0x300 + index];
            if ((main != nullptr) != programmed_[index])
                return "service " + std::to_string(index) +
                       (programmed_[index] ? " is not programmed" : " is programmed");
            if (main != nullptr && main->num_elements[0] + main->num_elements[1] != 1)
                return "service " + std::to_string(index) + " has not one entry";
        }
        return {};
    }
    const Ways &ways() const { return ways_; }

private:
    using Record = std::array<uint8_t, vservice_record_bytes>;

    static uint32_t number(std::span<const uint8_t> bytes, size_t at)
    {
        uint32_t value = 0;
        memcpy(&value, &bytes[at], sizeof value);
        return value;
    }

    void add(std::span<const uint8_t> record)
    {
        const uint32_t index = number(record, 0);
        if (index >= services) {
            ++ways_.invalid_adds;
            return;
        }
        memcpy(records_[index].data(), record.data(), record.size());
        const uint32_t encap = number(record, 48);
        if (encap != 1 && encap != 4) {
            ++ways_.unsupported;
            return;
        }
        ++(programmed_[index] ? ways_.modified : ways_.created);
        programmed_[index] = true;
    }

    void remove(uint32_t index)
    {
        if (index >= services) {
            ++ways_.invalid_deletes;
            return;
        }
        ways_.deleted += programmed_[index];
        records_[index].fill(0);
        programmed_[index] = false;
    }

    std::array<Record, services> records_{};
    std::array<bool, services> programmed_{};
    Ways ways_{};
};

} // namespace test
