#include "flow_audit.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_map>

#include "flow_walk.h"
#include "shadow_walk.h"

namespace services {
namespace {

std::string_view as_text(ByteSpan bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

using Result = std::array<uint8_t, FLOW_RESULT_BYTES>;

Result stored_result(const StoredFlow &flow)
{
    Result result;
    std::copy_n(flow.content.result, result.size(), result.begin());
    return result;
}

// What an add leaves in a row: its counter's address.
Result result_of_add(const StoredFlow &flow, uint32_t address)
{
    Result result = stored_result(flow);
    for (int i = 0; i < 3; ++i)
        result[3 + static_cast<size_t>(i)] = static_cast<uint8_t>(address >> (8 * (2 - i)));
    return result;
}

// What a modify leaves there: the upper three bytes of its number, as they lie in memory.
Result result_of_modify(const StoredFlow &flow, uint32_t counter)
{
    Result result = stored_result(flow);
    for (size_t i = 1; i < sizeof counter; ++i)
        result[i] = static_cast<uint8_t>(counter >> (8 * i));
    return result;
}

class NpFlows {
public:
    NpFlows(const AuditInput &input, uint32_t np, const std::vector<StoredFlow> &flows,
            AuditReport &report)
        : hardware_(*input.hardware), np_(np), flows_(flows), report_(report)
    {
    }

    void run()
    {
        for (size_t i = 0; i < flows_.size(); ++i) {
            const StoredFlow &flow = flows_[i];
            if (flow.has_row() && flow.is_on(np_))
                by_key_.emplace(as_text(ByteSpan(flow.content.key, flow.content.key_len)), i);
        }
        compare_rows();
        compare_counters();
    }

private:
    Finding &say(FindingKind kind, const std::string &text)
    {
        Finding &finding = report_.findings.emplace_back();
        finding.kind = kind;
        finding.np = np_;
        finding.table = flow_table;
        finding.text = "NP " + std::to_string(np_) + ": " + text;
        return finding;
    }
    Finding &say(FindingKind kind, const StoredFlow &flow, const std::string &text)
    {
        Finding &finding = say(kind, text_of(flow) + text);
        finding.flow = flow.address;
        if (flow.has_row())
            finding.key.assign(flow.content.key, flow.content.key + flow.content.key_len);
        return finding;
    }
    Finding &say_counter(FindingKind kind, const StoredFlow &flow, uint32_t counter,
                         const std::string &text)
    {
        Finding &finding = say(kind, flow, text);
        finding.counter = counter;
        return finding;
    }

    void compare_rows()
    {
        std::vector<bool> found(flows_.size());
        hardware_.for_each_row(np_, flow_table, [&](ByteSpan key, ByteSpan result) {
            ++report_.nps[np_].flow_rows;
            const auto [first, last] = by_key_.equal_range(as_text(key));
            if (first == last)
                say(FindingKind::entry_stale, "no flow has the row " + hexadecimal(key))
                    .key.assign(key.begin(), key.end());
            for (auto place = first; place != last; ++place) {
                found[place->second] = true;
                compare_row(flows_[place->second], result);
            }
        });
        for (size_t i = 0; i < flows_.size(); ++i) {
            if (flows_[i].is_on(np_) && !found[i])
                say(FindingKind::entry_missing, flows_[i], " has no row");
        }
    }

    void compare_row(const StoredFlow &flow, ByteSpan result)
    {
        const size_t length = flow.content.result_len;
        const auto is_row = [&](const Result &wanted) {
            return std::ranges::equal(ByteSpan(wanted.data(), length), result);
        };
        const uint32_t counter = flow.content.counter[np_];
        const Result wanted = flow.has_stats()
                                  ? result_of_add(flow, hardware_.address_of_counter(counter))
                                  : stored_result(flow);
        if (is_row(wanted) || (flow.has_stats() && is_row(result_of_modify(flow, counter))))
            return;
        say(FindingKind::entry_differs, flow,
            " should be " + hexadecimal(ByteSpan(wanted.data(), length)) + " and is " +
                hexadecimal(result));
    }

    void compare_counters()
    {
        hardware_.for_each_counter_run(np_, [this](uint32_t first, uint32_t count) {
            runs_.emplace(first, Run{count, nullptr});
            report_.nps[np_].flow_counters_in_use += count;
        });
        for (const StoredFlow &flow : flows_)
            compare_counter(flow);
        for (const auto &[first, run] : runs_) {
            if (run.holder == nullptr)
                say(FindingKind::counter_leaked,
                    "dynamic counter " + hexadecimal(first) + " is in use and no flow holds it")
                    .counter = first;
        }
    }

    void compare_counter(const StoredFlow &flow)
    {
        const uint32_t counter = flow.content.counter[np_];
        const uint32_t drop = flow.content.drop_counter[np_];
        if (!flow.has_stats() || !flow.is_on(np_)) {
            if (counter != 0 || drop != 0)
                say_counter(FindingKind::counter_invalid, flow, counter != 0 ? counter : drop,
                            " takes no counters and holds one");
            return;
        }
        if (counter == 0) {
            say(FindingKind::counter_invalid, flow, " has no counter");
            return;
        }
        const std::string holds = " holds counter " + hexadecimal(counter);
        const auto place = runs_.find(counter);
        if (place == runs_.end()) {
            say_counter(FindingKind::counter_free, flow, counter, holds + ", which is free");
            return;
        }
        Run &run = place->second;
        if (run.holder != nullptr)
            say_counter(FindingKind::counter_shared, flow, counter,
                        holds + ", which " + text_of(*run.holder) + " holds");
        else
            run.holder = &flow;
        if (drop != (run.count == 2 ? counter + 1 : 0))
            say_counter(FindingKind::counter_invalid, flow, drop,
                        holds + " of a run of " + std::to_string(run.count) + " and " +
                            hexadecimal(drop) + " for what is dropped");
    }

    struct Run {
        uint32_t count;
        const StoredFlow *holder;
    };

    const HardwareView &hardware_;
    const uint32_t np_;
    const std::vector<StoredFlow> &flows_;
    AuditReport &report_;
    std::unordered_multimap<std::string_view, size_t> by_key_;
    std::unordered_map<uint32_t, Run> runs_;
};

} // namespace

void audit_flows(const AuditInput &input, AuditReport &report)
{
    const std::vector<StoredFlow> flows = FlowWalk(input, report).run();
    report.flows = flows.size();
    report.nps.resize(std::min<uint32_t>(input.num_nps, SHADOW_DB_MAX_NPS));
    if (input.hardware != nullptr) {
        const auto nps = std::min(static_cast<uint32_t>(report.nps.size()), input.hardware->nps());
        for (uint32_t np = 0; np < nps; ++np)
            NpFlows(input, np, flows, report).run();
    }
    sort_findings(report);
}

} // namespace services
