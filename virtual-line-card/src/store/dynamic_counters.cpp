#include "vlc/dynamic_counters.h"

#include "object_at.h"
#include "publish.h"

namespace vlc {

namespace {

constexpr uint32_t address_shift = 8;
constexpr uint32_t position_mask = 0xFF; // in the run

} // namespace

uint32_t DynamicCounters::address_of(uint32_t number) noexcept
{
    const uint32_t first = number >> address_shift;
    const uint32_t position = number & position_mask;
    const bool known =
        position < longest_run && first >= first_address && first - first_address < most - position;
    return known ? first + position : 0;
}

uint64_t DynamicCounters::cell_bytes_for(uint32_t size)
{
    return uint64_t{size} * sizeof(CountCell);
}

uint64_t DynamicCounters::mark_bytes_for(uint32_t size)
{
    return size;
}

bool DynamicCounters::is_free(uint32_t place) const noexcept
{
    return place < size_ && marks_[place] == 0 && (place % 2 == 0 || marks_[place - 1] != 2);
}

bool DynamicCounters::has_one_free(uint32_t pair) const noexcept
{
    return is_free(2 * pair) != is_free(2 * pair + 1);
}

void DynamicCounters::note_free(uint32_t place)
{
    const uint32_t pair = place / 2;
    (has_one_free(pair) ? half_pairs_ : free_pairs_).push_back(pair);
}

const char *DynamicCounters::attach(std::byte *cells, std::byte *marks, uint32_t size)
{
    cells_ = object_at<CountCell>(cells, 0);
    marks_ = object_at<uint8_t>(marks, 0);
    size_ = size;
    in_use_ = 0;
    free_pairs_.clear();
    half_pairs_.clear();
    for (uint32_t pair = (size + 1) / 2; pair > 0; --pair) { // so that the first are taken first
        const uint32_t place = 2 * (pair - 1);
        const bool is_whole = place + 1 < size;
        const uint32_t first = published(marks_[place]);
        const uint32_t second = is_whole ? published(marks_[place + 1]) : 0;
        const uint32_t room = is_whole ? 2 : 1;
        if (first > room || second > 1 || first + second > room)
            return "its dynamic counters have a run that cannot be";
        in_use_ += first + second;
        if (is_whole && first + second == 0)
            free_pairs_.push_back(pair - 1);
        else if (first + second < room)
            half_pairs_.push_back(pair - 1);
    }
    return nullptr;
}

// A run of one goes where half a pair is free, so that whole pairs are left for runs of two.
uint32_t DynamicCounters::free_place(uint32_t length)
{
    while (length == 1 && !half_pairs_.empty()) {
        const uint32_t pair = half_pairs_.back();
        half_pairs_.pop_back();
        if (has_one_free(pair))
            return 2 * pair + (is_free(2 * pair) ? 0 : 1);
    }
    if (free_pairs_.empty())
        return size_;
    const uint32_t pair = free_pairs_.back();
    free_pairs_.pop_back();
    if (length == 1)
        half_pairs_.push_back(pair);
    return 2 * pair;
}

uint32_t DynamicCounters::take(uint32_t length)
{
    if (length == 0 || length > longest_run)
        return 0;
    const uint32_t place = free_place(length);
    if (place == size_)
        return 0;
    for (uint32_t i = 0; i < length; ++i)
        cells_[place + i].clear();
    publish(marks_[place], static_cast<uint8_t>(length));
    in_use_ += length;
    return (first_address + place) << address_shift;
}

bool DynamicCounters::give_back(uint32_t number)
{
    const int64_t found = place(number);
    if (found < 0 || (number & position_mask) != 0)
        return false;
    const auto first = static_cast<uint32_t>(found);
    in_use_ -= marks_[first];
    publish(marks_[first], uint8_t{0});
    note_free(first);
    return true;
}

int64_t DynamicCounters::place(uint32_t number) const noexcept
{
    if (address_of(number) == 0)
        return -1;
    const uint32_t position = number & position_mask;
    const int64_t first = place_of_address(number >> address_shift);
    if (first < 0 || marks_[first] <= position)
        return -1;
    return first + position;
}

PacketCount DynamicCounters::read_and_clear(uint32_t place) noexcept
{
    const PacketCount counted = read(place);
    cells_[place].clear();
    return counted;
}

void DynamicCounters::for_each_run(
    const std::function<void(uint32_t number, uint32_t length)> &visit) const
{
    for (uint32_t place = 0; place < size_; ++place) {
        if (marks_[place] != 0)
            visit((first_address + place) << address_shift, marks_[place]);
    }
}

} // namespace vlc
