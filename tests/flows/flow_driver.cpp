#include "flow_driver.h"

#include <algorithm>
#include <cstring>

#include "inline_service_hash.h"

namespace test {

FlowDriver::FlowDriver(uint32_t seed, const FlowModel::Rules &rules)
    : random_(seed), host_(nps, buckets, uint64_t{16} << 20), model_(nps, buckets, rules),
      blocks_without_flows_(host_.usage().blocks_in_use)
{
    host_.forget_events();
}

// --- what to do ---------------------------------------------------------------------------------

// Keys of one bucket differ in their high bits too.
uint64_t FlowDriver::draw_key()
{
    const uint64_t number = below(keys);
    return number | (number * 0x9E3779B9) << 32;
}

FlowInfo FlowDriver::draw_info(uint64_t key)
{
    const size_t too_long = one_in(2) ? 33 : 33 + below(200);
    const size_t key_length = one_in(50) ? too_long : 1 + below(32);
    FlowInfo info = {std::string(key_length, '\0'), std::string(below(65), '\0'),
                     std::string(below(257), '\0'), one_in(3) ? below(3) : 0};
    for (std::string *bytes : {&info.result, &info.user_data})
        std::generate(bytes->begin(), bytes->end(),
                      [this] { return static_cast<char>(random_()); });
    for (size_t i = 0; i < key_length; ++i)
        info.key[i] = static_cast<char>(key >> (i % 8 * 8));
    return info;
}

uint32_t FlowDriver::draw_nps_that_fail(uint32_t one_in_times)
{
    return one_in(one_in_times) ? static_cast<uint32_t>(random_()) : 0;
}

FlowFailures FlowDriver::draw_failures()
{
    if (!one_in(4))
        return {};
    FlowFailures failures;
    failures.refusing = draw_nps_that_fail(3);
    failures.without_table = draw_nps_that_fail(10);
    failures.without_counters = draw_nps_that_fail(5);
    failures.unreadable = draw_nps_that_fail(3);
    failures.keeping = draw_nps_that_fail(10);
    failures.window_is_full = one_in(15);
    return failures;
}

// Times of many adds and of many deletes take turns, so that a visit of the walker sees a part of
// the table and all of it.
std::string FlowDriver::step()
{
    const bool grows = steps_ / steps_of_one_time % 2 == 0;
    const uint64_t key = draw_key();
    const uint32_t die = below(1000);
    host_.set_failures({});
    if (die < 40)
        walk();
    else if (die < 42)
        read_all();
    else if (die == 42 && one_in(10))
        restart();
    else if (die < 180)
        modify(key);
    else if (die < 320)
        lookup(key);
    else if (die < (grows ? 920 : 330))
        add(key);
    else if (die % 2 == 0)
        remove(key);
    else
        remove_with_stats(key);
    compare_step(key);
    made_.most_flows = std::max(made_.most_flows, model_.count());
    if (++steps_ % steps_between_whole_comparisons == 0)
        compare_everything();
    return difference_;
}

std::string FlowDriver::clear()
{
    host_.set_failures({});
    for (uint32_t bucket = 0; bucket < buckets; ++bucket) {
        while (difference_.empty() && !model_.chain(bucket).empty()) {
            const uint64_t key = model_.chain(bucket).back();
            remove(key);
            compare_step(key);
        }
    }
    compare_everything();
    if (host_.usage().blocks_in_use != blocks_without_flows_)
        note_difference("blocks are left in the window");
    return difference_;
}

// --- doing it -----------------------------------------------------------------------------------

void FlowDriver::add(uint64_t key)
{
    FlowInfo info = draw_info(key);
    const uint32_t np = one_in(2) ? 0xFFFFFFFF : below(10) | (one_in(9) ? 0x100 : 0);
    const uint32_t with_stats = one_in(3) ? 0 : 1 + below(9);
    const FlowFailures failures = draw_failures();
    what_ = "add";
    host_.set_failures(failures);
    const uint32_t expected = model_.add(key, np, with_stats, info, failures);
    expect_code(dpss_flow_add_modify(key, np, with_stats, &info), expected);
    ++(expected == 0 ? made_.added : expected == 17 ? made_.existing : made_.refused);
}

// As an owner does: the record's result is changed in its place, then the hardware's.
void FlowDriver::modify(uint64_t key)
{
    what_ = "modify";
    flow_record *record = flowdb_lookup(host_.table(), key);
    if ((record != nullptr) != model_.contains(key))
        return note_difference("flow found or not found");
    if (record == nullptr)
        return;
    const std::string result(36, static_cast<char>(random_()));
    const FlowFailures failures = draw_failures();
    host_.set_failures(failures);
    memcpy(record->result, result.data(), sizeof record->result);
    expect_code(flowdb_modify(host_.table(), record), model_.modify(key, result, failures));
    ++made_.modified;
}

void FlowDriver::lookup(uint64_t key)
{
    what_ = "lookup";
    const std::string untouched(FLOW_USER_DATA_BYTES, 'x');
    std::string out = untouched;
    const uint32_t code = dpss_flow_lookup(key, out.data());
    expect_code(code, model_.lookup(key));
    ++(code == 0 ? made_.found : made_.not_found);
    if (code != 0 && out != untouched)
        note_difference("output of a lookup that found nothing");
}

void FlowDriver::remove(uint64_t key)
{
    what_ = "delete";
    const FlowFailures failures = draw_failures();
    host_.set_failures(failures);
    made_.deleted += model_.contains(key);
    const uint32_t expected = model_.remove(key, failures);
    expect_code(dpss_flow_delete(key), expected);
}

void FlowDriver::remove_with_stats(uint64_t key)
{
    what_ = "delete with statistics";
    const FlowFailures failures = draw_failures();
    host_.set_failures(failures);
    made_.deleted += model_.contains(key);
    uint64_t expected_counts[2] = {};
    uint64_t counts[2] = {77, 77};
    const uint32_t expected = model_.remove_with_stats(key, failures, expected_counts);
    expect_code(dpss_flow_delete_with_stats_read(key, &counts[0], &counts[1]), expected);
    if (!std::equal(counts, counts + 2, expected_counts))
        note_difference("counts");
}

void FlowDriver::walk()
{
    what_ = "walk";
    model_.walk();
    in_hash_periodic_walker(host_.table());
    ++made_.walks;
    made_.slices += !host_.events().empty();
}

void FlowDriver::read_all()
{
    constexpr uint32_t batches[] = {1, 20, 255, 256, 0, 257, 100000};
    what_ = "read of all";
    const uint32_t batch = batches[below(std::size(batches))];
    host_.begin_read();
    expect_code(flowdb_read_all(host_.table(), FlowHost::keep_read, batch), model_.read_all(batch));
    ++made_.reads;
}

void FlowDriver::restart()
{
    what_ = "restart";
    host_.start();
    model_.restart();
    ++made_.restarts;
}

// --- what must hold -----------------------------------------------------------------------------

void FlowDriver::note_difference(const std::string &text)
{
    if (difference_.empty())
        difference_ = "step " + std::to_string(steps_) + ", " + what_ + ": " + text;
}

void FlowDriver::expect_code(uint32_t got, uint32_t expected)
{
    if (got != expected)
        note_difference("returned " + std::to_string(got) + " and not " + std::to_string(expected));
}

void FlowDriver::compare_step(uint64_t key)
{
    if (host_.events() != model_.events())
        note_difference("platform calls or callbacks");
    host_.forget_events();
    model_.forget_events();
    if (host_.table()->count != model_.count())
        note_difference("count of the table");
    if (host_.table()->scan_cursor != model_.cursor())
        note_difference("cursor of the walker");
    if (host_.usage().blocks_in_use != blocks_without_flows_ + model_.count())
        note_difference("blocks of the window");
    compare_chain(static_cast<uint32_t>(key % buckets));
}

void FlowDriver::compare_chain(uint32_t bucket)
{
    const auto *const *heads = reinterpret_cast<flow_record *const *>(host_.table() + 1);
    const flow_record *record = heads[bucket];
    for (const uint64_t key : model_.chain(bucket)) {
        if (record == nullptr || record->flow_key != key)
            return note_difference("chain of bucket " + std::to_string(bucket));
        compare_record(*record, key);
        record = record->next;
    }
    if (record != nullptr)
        note_difference("chain of bucket " + std::to_string(bucket) + " is longer");
}

void FlowDriver::compare_record(const flow_record &record, uint64_t key)
{
    const std::string &expected = model_.record(key);
    if (memcmp(&record.flow_key, expected.data(), expected.size()) != 0)
        note_difference("record of flow " + std::to_string(key));
}

void FlowDriver::compare_everything()
{
    for (uint32_t bucket = 0; bucket < buckets; ++bucket)
        compare_chain(bucket);
    if (host_.hardware() != model_.hardware())
        note_difference("rows or counters of the NPs");
    ++made_.whole_comparisons;
}

} // namespace test
