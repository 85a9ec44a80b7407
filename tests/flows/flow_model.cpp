#include "flow_model.h"

#include <algorithm>
#include <cstring>

namespace test {
namespace {

// Places in a record, from its link on; a model's record begins behind that.
constexpr size_t link_bytes = 8;
constexpr size_t record_bytes = 304 - link_bytes;
enum Place : size_t {
    flow_key_at = 8 - link_bytes,
    state_at = 20 - link_bytes,
    key_at = 24 - link_bytes,
    key_len_at = 56 - link_bytes,
    result_at = 57 - link_bytes,
    result_len_at = 93 - link_bytes,
    flags_at = 100 - link_bytes,
    np_at = 104 - link_bytes,
    user_data_at = 105 - link_bytes,
    counter_at = 236 - link_bytes,
    drop_counter_at = 268 - link_bytes
};
constexpr uint32_t has_stats = 1;
constexpr uint32_t on_all_nps = 2;

template <typename Number>
std::string little_endian(Number number)
{
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

void put(std::string &bytes, size_t at, const std::string &value, size_t most = 1000)
{
    const size_t length = std::min(value.size(), most);
    bytes.replace(at, length, value, 0, length);
}

uint32_t word(const std::string &bytes, size_t at)
{
    uint32_t value = 0;
    memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

bool fails(uint32_t nps, uint32_t np)
{
    return (nps >> np & 1) != 0;
}

uint32_t operation_of(FlowEvent::Kind kind)
{
    return kind == FlowEvent::add_row ? 0x001 : kind == FlowEvent::modify_row ? 0x101 : 0x201;
}

} // namespace

std::pair<uint32_t, uint32_t> FlowModel::range_of(const Record &record) const
{
    const uint32_t np = static_cast<uint8_t>(record[np_at]);
    return (word(record, flags_at) & on_all_nps) != 0 ? std::pair{0u, nps_} : std::pair{np, np + 1};
}

std::string FlowModel::request(const Record &record, FlowEvent::Kind kind, uint32_t np,
                               const std::string &written, uint32_t at) const
{
    std::string bytes(636, '\0');
    put(bytes, 0, little_endian(np));
    bytes[4] = 4;
    put(bytes, 8, little_endian(operation_of(kind)));
    bytes[12] = record[key_len_at];
    put(bytes, 20, record.substr(key_at, static_cast<uint8_t>(record[key_len_at])));
    bytes[120] = record[result_len_at];
    put(bytes, 124, record.substr(result_at, static_cast<uint8_t>(record[result_len_at])));
    put(bytes, 124 + at, written);
    return bytes;
}

uint32_t FlowModel::send(FlowEvent::Kind kind, uint32_t np, const std::string &bytes,
                         const FlowFailures &failures)
{
    note({kind, np, 0, bytes});
    if (fails(failures.refusing, np))
        return FlowFailures::request_code;
    hardware_.program(kind, np, bytes);
    return 0;
}

// --- add --------------------------------------------------------------------------------------

uint32_t FlowModel::add(uint64_t key, uint32_t np, uint32_t with_stats, const FlowInfo &info,
                        const FlowFailures &failures)
{
    if (contains(key))
        return 17;
    note({FlowEvent::allocate, 0, 304, ""});
    if (failures.window_is_full)
        return rules_.code_of_failed_allocation;
    Record record(record_bytes, '\0');
    put(record, flow_key_at, little_endian(key));
    record[state_at] = 1;
    put(record, flags_at,
        little_endian((np == 0xFFFFFFFF ? on_all_nps : 0) | (with_stats != 0 ? has_stats : 0)));
    record[np_at] = static_cast<char>(np == 0xFFFFFFFF ? 0 : np);
    note({FlowEvent::encode_user_data, 0, 0, ""});
    put(record, user_data_at, info.user_data, 131);
    note({FlowEvent::encode_key, 0, 0, ""});
    if (info.key.size() > rules_.longest_key) {
        note({FlowEvent::release, 0, 0, ""});
        return 22;
    }
    put(record, key_at, info.key);
    record[key_len_at] = static_cast<char>(info.key.size());
    note({FlowEvent::encode_result, 0, 0, ""});
    put(record, result_at, info.result, 36);
    record[result_len_at] = 32;
    note({FlowEvent::ask_policer, 0, 0, ""});
    const uint32_t code = program_add(record, info.policer, failures);
    if (code != 0) {
        note({FlowEvent::release, 0, 0, ""});
        return code;
    }
    flows_[key] = record;
    if (rules_.newest_first)
        chain_of(key).push_front(key);
    else
        chain_of(key).push_back(key);
    return 0;
}

uint32_t FlowModel::program_add(Record &record, uint32_t policer, const FlowFailures &failures)
{
    const auto [first, end] = range_of(record);
    uint32_t code = 22;
    std::string address; // as the NP before this one got it, for want of an own one
    for (uint32_t np = first; np < end; ++np) {
        if ((word(record, flags_at) & has_stats) != 0) {
            code = take_counters(record, np, policer, failures);
            if (code != 0)
                return code;
            const uint32_t counter = word(record, counter_at + 4 * np);
            note({FlowEvent::find_address, 0, counter, ""});
            address = little_endian(FlowHardware::address_of(counter)).substr(0, 3);
            std::reverse(address.begin(), address.end());
        }
        const std::string bytes =
            request(record, FlowEvent::add_row, np, address, rules_.address_at);
        code = send(FlowEvent::add_row, np, bytes, failures);
        if (code != 0 && !rules_.goes_on_after_a_refusal)
            break;
    }
    return code;
}

uint32_t FlowModel::take_counters(Record &record, uint32_t np, uint32_t policer,
                                  const FlowFailures &failures)
{
    if (np >= rules_.nps_with_counters)
        return 22;
    note({FlowEvent::find_table, np, 0, ""});
    if (fails(failures.without_table, np))
        return 22;
    const uint32_t length = policer == 1 ? rules_.counters_with_policer : 1;
    note({FlowEvent::take_run, np, length, ""});
    if (fails(failures.without_counters, np))
        return 12;
    const uint32_t counter = hardware_.take(np, length);
    put(record, counter_at + 4 * np, little_endian(counter));
    if (policer == 1)
        put(record, drop_counter_at + 4 * np, little_endian(counter + 1));
    return 0;
}

// --- modify, lookup, delete -------------------------------------------------------------------

namespace {

uint32_t stored_counter(const std::string &record, uint32_t np)
{
    return np < 8 ? word(record, counter_at + 4 * np) : 0;
}

// What a modify and a delete write into a result.
std::string stored_bytes(const std::string &record, uint32_t np)
{
    if ((word(record, flags_at) & has_stats) == 0)
        return {};
    return little_endian(stored_counter(record, np)).substr(1);
}

} // namespace

uint32_t FlowModel::modify(uint64_t key, const std::string &result, const FlowFailures &failures)
{
    Record &record = flows_.at(key);
    put(record, result_at, result, 36);
    uint32_t code = 22;
    const auto [first, end] = range_of(record);
    for (uint32_t np = first; np < end; ++np) {
        const std::string bytes =
            request(record, FlowEvent::modify_row, np, stored_bytes(record, np), rules_.counter_at);
        code = send(FlowEvent::modify_row, np, bytes, failures);
    }
    return code;
}

uint32_t FlowModel::lookup(uint64_t key)
{
    if (!contains(key))
        return 2;
    note({FlowEvent::fill_info, 0, 2, record(key).substr(user_data_at, 131)});
    return 0;
}

uint32_t FlowModel::remove(uint64_t key, const FlowFailures &failures)
{
    if (!contains(key))
        return 0;
    const uint32_t code = program_delete(record(key), failures);
    if (code != 0 && !rules_.deletes_whatever_prm_says)
        return code;
    std::deque<uint64_t> &chain = chain_of(key);
    chain.erase(std::find(chain.begin(), chain.end(), key));
    flows_.erase(key);
    note({FlowEvent::release, 0, 0, ""});
    return code;
}

uint32_t FlowModel::program_delete(const Record &record, const FlowFailures &failures)
{
    const auto [first, end] = range_of(record);
    uint32_t code = 22;
    for (uint32_t np = first; np < end; ++np) {
        const std::string bytes =
            request(record, FlowEvent::delete_row, np, stored_bytes(record, np), rules_.counter_at);
        send(FlowEvent::delete_row, np, bytes, failures);
        code = 0;
        if ((word(record, flags_at) & has_stats) == 0 && !rules_.gives_back_without_statistics)
            continue;
        note({FlowEvent::find_table, np, 0, ""});
        if (fails(failures.without_table, np))
            return 22;
        const uint32_t counter = stored_counter(record, np);
        note({FlowEvent::give_back, np, counter, ""});
        code = fails(failures.keeping, np) ? FlowFailures::give_back_code
                                           : hardware_.give_back(np, counter);
    }
    return code;
}

uint32_t FlowModel::remove_with_stats(uint64_t key, const FlowFailures &failures,
                                      uint64_t (&counts)[2])
{
    counts[0] = counts[1] = 0;
    if (!contains(key))
        return 0;
    const Record known = record(key);
    if (rules_.reads_before_it_deletes)
        read_stats(known, failures, counts);
    const uint32_t code = remove(key, failures);
    if (!rules_.reads_before_it_deletes)
        read_stats(known, failures, counts);
    return code;
}

void FlowModel::read_stats(const Record &record, const FlowFailures &failures,
                           uint64_t (&counts)[2])
{
    if ((word(record, flags_at) & has_stats) == 0)
        return;
    const auto [first, end] = range_of(record);
    for (uint32_t np = first; np < end; ++np) {
        const uint32_t counter = stored_counter(record, np);
        if (counter == 0)
            continue;
        note({FlowEvent::read_counter, np, counter, ""});
        if (fails(failures.unreadable, np))
            continue;
        const auto count = FlowHardware::count_of(np, counter);
        counts[0] += count[0];
        counts[1] += count[1];
    }
}

// --- the two walks ----------------------------------------------------------------------------

void FlowModel::hand_over(FlowEvent::Kind kind, uint32_t last, std::string *keys)
{
    note({kind, 0, last, *keys});
    keys->clear();
}

void FlowModel::walk()
{
    if (count() == 0)
        return;
    if (pause_ > 0) {
        --pause_;
        return;
    }
    const uint32_t slice = std::max(count() / rules_.calls_in_period + 1, rules_.smallest_slice);
    const uint32_t first = cursor_;
    uint32_t visited = 0;
    std::string keys;
    do {
        for (const uint64_t key : chains_[cursor_]) {
            keys += little_endian(key);
            ++visited;
            if (keys.size() == rules_.scan_batch * sizeof key)
                hand_over(FlowEvent::scan, 0, &keys);
        }
        cursor_ = (cursor_ + 1) % buckets();
    } while (visited < slice && cursor_ != first);
    if (!keys.empty())
        hand_over(FlowEvent::scan, 0, &keys);
    if (visited == count())
        pause_ = rules_.calls_in_period - 1;
}

uint32_t FlowModel::read_all(uint32_t batch)
{
    const uint32_t usable = batch == 0 || batch > 256 ? 256 : batch;
    uint32_t calls = 1;
    std::string keys;
    for (const std::deque<uint64_t> &chain : chains_) {
        for (const uint64_t key : chain) {
            keys += little_endian(key);
            if (keys.size() == usable * sizeof key) {
                hand_over(FlowEvent::read_all, 0, &keys);
                ++calls;
            }
        }
    }
    hand_over(FlowEvent::read_all, 1, &keys);
    return calls;
}

} // namespace test
