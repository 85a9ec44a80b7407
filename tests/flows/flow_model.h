// A small reference of flows: what each call returns, asks of the platform and leaves behind. It
// knows nothing of the library's code, only its rules.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "flow_hardware.h"

namespace test {

class FlowModel {
public:
    // The rules in figures; a test alters one and looks whether that is found.
    struct Rules {
        uint32_t counters_with_policer = 2;
        uint32_t nps_with_counters = 8;
        uint32_t longest_key = 32;
        uint32_t address_at = 3; // in the result of an add
        uint32_t counter_at = 1; // in that of a modify or delete
        uint32_t smallest_slice = 256;
        uint32_t calls_in_period = 15;
        uint32_t scan_batch = 20;
        uint32_t code_of_failed_allocation = 12;
        bool newest_first = true;
        bool goes_on_after_a_refusal = true;
        bool deletes_whatever_prm_says = true;
        bool gives_back_without_statistics = true;
        bool reads_before_it_deletes = true;
    };

    FlowModel(uint32_t nps, uint32_t buckets, const Rules &rules)
        : rules_(rules), nps_(nps), chains_(buckets)
    {
    }

    // ---- the calls

    uint32_t add(uint64_t key, uint32_t np, uint32_t with_stats, const FlowInfo &info,
                 const FlowFailures &failures);
    uint32_t modify(uint64_t key, const std::string &result, const FlowFailures &failures);
    uint32_t lookup(uint64_t key);
    uint32_t remove(uint64_t key, const FlowFailures &failures);
    uint32_t remove_with_stats(uint64_t key, const FlowFailures &failures, uint64_t (&counts)[2]);
    void walk();
    uint32_t read_all(uint32_t batch); // the callback returns which call it was, from 1
    void restart() { cursor_ = 0; }

    // ---- what is there

    bool contains(uint64_t key) const { return flows_.count(key) != 0; }
    // A record behind its link, byte for byte.
    const std::string &record(uint64_t key) const { return flows_.at(key); }
    const std::deque<uint64_t> &chain(uint32_t bucket) const { return chains_.at(bucket); }
    uint32_t buckets() const { return static_cast<uint32_t>(chains_.size()); }
    uint32_t count() const { return static_cast<uint32_t>(flows_.size()); }
    uint32_t cursor() const { return cursor_; }
    const FlowHardware &hardware() const { return hardware_; }
    const FlowEvents &events() const { return events_; }
    void forget_events() { events_.clear(); }

private:
    using Record = std::string;
    std::deque<uint64_t> &chain_of(uint64_t key) { return chains_[key % chains_.size()]; }
    std::pair<uint32_t, uint32_t> range_of(const Record &record) const; // first, one past the last
    std::string request(const Record &record, FlowEvent::Kind kind, uint32_t np,
                        const std::string &written, uint32_t at) const;
    uint32_t send(FlowEvent::Kind kind, uint32_t np, const std::string &bytes,
                  const FlowFailures &failures);
    uint32_t program_add(Record &record, uint32_t policer, const FlowFailures &failures);
    uint32_t take_counters(Record &record, uint32_t np, uint32_t policer,
                           const FlowFailures &failures);
    uint32_t program_delete(const Record &record, const FlowFailures &failures);
    void read_stats(const Record &record, const FlowFailures &failures, uint64_t (&counts)[2]);
    void note(FlowEvent event) { events_.push_back(std::move(event)); }
    void hand_over(FlowEvent::Kind kind, uint32_t last, std::string *keys);

    Rules rules_;
    uint32_t nps_;
    std::map<uint64_t, Record> flows_;
    std::vector<std::deque<uint64_t>> chains_;
    uint32_t cursor_ = 0;
    uint32_t pause_ = 0;
    FlowHardware hardware_;
    FlowEvents events_;
};

} // namespace test
