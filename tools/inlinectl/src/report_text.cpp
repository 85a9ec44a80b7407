// The report for a person: 80 columns, the same for the same captures.
#include "run_report.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "entry_names.h"
#include "numbers.h"
#include "text_columns.h"

namespace inlinectl {
namespace {

using services::MeterCount;
using services::MeterEntry;
using services::MeterTable;

constexpr size_t screen_columns = 80;
constexpr size_t shown_destinations = 20;
constexpr size_t shown_addresses = 10;
constexpr size_t label_columns = 10;
constexpr std::string_view gap = "  ";

std::string percent(double share)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%5.1f%%", share * 100);
    return text.data();
}

// "0-2-": NPs 0 and 2 of four have counted.
std::string nps_text(uint32_t nps, uint32_t of)
{
    std::string text;
    for (uint32_t np = 0; np < of; ++np)
        text += (nps >> np & 1) != 0 ? std::to_string(np) : "-";
    return text;
}

class TextReport {
public:
    TextReport(std::ostream &out, const RunReport &report, const Style &style)
        : out_(out), report_(report), style_(style)
    {
    }

    void write()
    {
        write_head();
        write_ranking("Destinations", "destination", report_.destinations, shown_destinations);
        write_ranking("Addresses", "address", report_.addresses, shown_addresses);
        write_flows();
        write_sums();
        write_answers();
        write_failures();
        if (report_.faults) {
            out_ << "\n";
            write_fault_text(out_, *report_.faults, style_);
        }
    }

private:
    struct Row {
        std::string entry;
        std::string nps;
        std::string packets;
        std::string bytes;
        double share = 0;
    };

    void line(const std::string &label, const std::string &text)
    {
        out_ << left(label, label_columns) << text << "\n";
    }

    void write_head()
    {
        std::array<char, 16> type{};
        std::snprintf(type.data(), type.size(), "0x%X", report_.card.card_type);
        line("Card", report_.card.name + ", " + counted(report_.card.num_nps, "NP", "NPs") +
                         ", type " + type.data());
        if (shares_counters(report_.card))
            line("", "its NPs count on the first of each 256 counters: entries share them");
        for (const std::string &done : report_.settlement.done)
            line("Settled", done);
        const EntryCounts entries = count_entries(report_);
        line("Entries", counted(report_.destinations.size(), "destination", "destinations") + ", " +
                            counted(report_.addresses.size(), "address", "addresses") + ": " +
                            grouped(entries.found) + " found, " + grouped(entries.made) + " new");
        line("Requests", requests_text());
        line("Replayed", counted(report_.traffic.packets, "packet", "packets") + ", " +
                             counted(report_.traffic.bytes, "byte", "bytes") + " of " +
                             counted(report_.captures, "capture", "captures") +
                             (report_.interrupted ? ", interrupted" : ""));
    }

    std::string requests_text() const
    {
        uint64_t sent = 0;
        for (const auto &table : report_.requests.requests) {
            for (const uint64_t operation : table)
                sent += operation;
        }
        return grouped(sent) + " to the hardware, " + grouped(report_.failures.count()) + " failed";
    }

    // ---- the entries that counted most

    void write_ranking(const char *title, const char *column,
                       const std::vector<MeterEntry> &entries, size_t most)
    {
        const std::vector<Row> rows = rows_of(entries, most);
        if (rows.empty())
            return;
        out_ << "\n"
             << style_.bold(std::string(title) + " by bytes" +
                            (report_.replayed() ? "" : " since they were programmed") + ", " +
                            grouped(rows.size()) + " of " + grouped(entries.size()))
             << "\n";
        write_rows({column, "NPs", "packets", "bytes", 0}, rows);
    }

    void write_rows(const Row &head, const std::vector<Row> &rows)
    {
        Row widths = head;
        for (const Row &row : rows)
            widen(widths, row);
        const size_t fixed = widths.entry.size() + widths.nps.size() + widths.packets.size() +
                             widths.bytes.size() + (widths.nps.empty() ? 3 : 4) * gap.size() + 1 +
                             percent(1).size();
        const size_t cells =
            std::clamp<size_t>(screen_columns - std::min(screen_columns, fixed), 4, 24);
        out_ << cells_of(head, widths) << gap << "share\n";
        for (const Row &row : rows)
            out_ << cells_of(row, widths) << gap
                 << style_.cyan(bar(row.share, cells, style_.unicode)) << " " << percent(row.share)
                 << "\n";
    }

    std::vector<Row> rows_of(const std::vector<MeterEntry> &entries, size_t most) const
    {
        const MeterCount sum = report_.replayed() ? sum_of_run(entries) : sum_of_totals(entries);
        std::vector<Row> rows;
        for (const MeterEntry &entry : entries) {
            const MeterCount &count = report_.shown(entry);
            if (rows.size() == most || count.packets == 0)
                break;
            rows.push_back({entry_name(entry.table, entry.destination),
                            nps_text(report_.shown_nps(entry), report_.card.num_nps),
                            grouped(count.packets), grouped(count.bytes),
                            sum.bytes == 0 ? 0.0
                                           : static_cast<double>(count.bytes) /
                                                 static_cast<double>(sum.bytes)});
        }
        return rows;
    }

    static void widen(Row &widths, const Row &row)
    {
        const auto widen_one = [](std::string &width, const std::string &text) {
            width.resize(std::max(width.size(), text.size()));
        };
        widen_one(widths.entry, row.entry);
        widen_one(widths.nps, row.nps);
        widen_one(widths.packets, row.packets);
        widen_one(widths.bytes, row.bytes);
    }

    static std::string cells_of(const Row &row, const Row &widths)
    {
        std::string text = left(row.entry, widths.entry.size());
        if (!widths.nps.empty())
            text.append(gap).append(left(row.nps, widths.nps.size()));
        text.append(gap).append(right(row.packets, widths.packets.size()));
        text.append(gap).append(right(row.bytes, widths.bytes.size()));
        return text;
    }

    // ---- flows

    void write_flows()
    {
        if (!report_.flows)
            return;
        const FlowReport &flows = *report_.flows;
        out_ << "\n"
             << style_.bold("Flows by bytes, " + grouped(flows.top.size()) + " of " +
                            grouped(flows.active + flows.sums.ended))
             << "\n";
        const uint64_t all_bytes = flows.passed.bytes + flows.dropped.bytes;
        std::vector<Row> rows;
        for (const services::FlowAccount &flow : flows.top) {
            const uint64_t bytes = flow.bytes + flow.dropped_bytes;
            const double share =
                all_bytes == 0 ? 0.0 : static_cast<double>(bytes) / static_cast<double>(all_bytes);
            rows.push_back({flow_name(flow.tuple), "", grouped(flow.packets + flow.dropped_packets),
                            grouped(bytes), share});
        }
        if (!rows.empty())
            write_rows({"flow", "", "packets", "bytes", 0}, rows);
        out_ << grouped(flows.sums.found) << " found, " << grouped(flows.sums.added) << " added, "
             << grouped(flows.sums.ended) << " ended idle, " << grouped(flows.active) << " go on\n";
    }

    // ---- sums

    void write_sums()
    {
        struct Sum {
            std::string what;
            std::string packets;
            std::string bytes;
        };
        std::vector<Sum> sums{{"", "packets", "bytes"}};
        const auto add = [&sums](const std::string &what, const MeterCount &count) {
            sums.push_back({what, grouped(count.packets), grouped(count.bytes)});
        };
        if (report_.replayed()) {
            add("counted by destination", sum_of_run(report_.destinations));
            add("counted by address", sum_of_run(report_.addresses));
            if (report_.flows)
                add("counted by flow", report_.flows->passed);
            if (report_.flows && report_.flows->dropped.packets > 0)
                add("dropped by policers", report_.flows->dropped);
            if (const vlc::NpTotals sent = encapsulated(report_); sent.encapsulated_packets > 0)
                add("encapsulated", {sent.encapsulated_packets, sent.encapsulated_bytes});
            add("hit nothing", {report_.traffic.missed_packets, report_.traffic.missed_bytes});
            const auto add_packets = [&sums](const char *what, uint64_t packets) {
                if (packets > 0)
                    sums.push_back({what, grouped(packets), ""});
            };
            add_packets("missed by destination",
                        traffic_of(report_, vlc::TableKind::service_config).misses);
            add_packets("missed by address", traffic_of(report_, vlc::TableKind::ext_conf).misses);
            add_packets("too long to be encapsulated", encapsulated(report_).too_long_packets);
            add_packets("hit and not counted", uncounted_hits(report_));
        }
        if (count_entries(report_).found > 0) {
            add("by destination, with earlier runs", sum_of_totals(report_.destinations));
            add("by address, with earlier runs", sum_of_totals(report_.addresses));
        }
        for (size_t reason = 0; reason < report_.traffic.unreadable.size(); ++reason) {
            if (const uint64_t packets = report_.traffic.unreadable[reason]; packets > 0)
                sums.push_back({std::string("unreadable: ") +
                                    vlc::unreadable_text(static_cast<vlc::Unreadable>(reason)),
                                grouped(packets), ""});
        }
        if (sums.size() == 1)
            return;
        Sum widths;
        for (const Sum &sum : sums) {
            widths.what.resize(std::max(widths.what.size(), sum.what.size()));
            widths.packets.resize(std::max(widths.packets.size(), sum.packets.size()));
            widths.bytes.resize(std::max(widths.bytes.size(), sum.bytes.size()));
        }
        out_ << "\n";
        for (const Sum &sum : sums) {
            out_ << left(sum.what, widths.what.size()) << gap
                 << right(sum.packets, widths.packets.size());
            if (!sum.bytes.empty())
                out_ << gap << right(sum.bytes, widths.bytes.size());
            out_ << "\n";
        }
    }

    // ---- requests that came to another end than one answer each

    void write_answers()
    {
        const vlc::PrmLedger::Sums &requests = report_.requests;
        if (requests.is_clean())
            return;
        const std::pair<const char *, uint64_t> lines[] = {
            {"never answered", requests.unanswered},
            {"sent into a connection that broke", requests.in_doubt},
            {"in flight when a connection broke", requests.in_flight_at_breaks},
            {"answers to nothing asked in this run", requests.unasked},
        };
        out_ << "\n"
             << style_.bold("Requests and answers, " +
                            counted(requests.breaks, "broken connection", "broken connections"))
             << "\n";
        for (const auto &[what, times] : lines)
            out_ << "  " << left(what, 36) << "  " << right(grouped(times), 7) << "\n";
    }

    // ---- failures

    void write_failures()
    {
        const HardwareFailures &failures = report_.failures;
        out_ << "\n";
        if (failures.count() == 0 && failures.missed_messages() == 0) {
            out_ << "Hardware failures: none\n";
            return;
        }
        out_ << style_.red("Hardware failures: " + grouped(failures.count())) << "\n";
        for (const auto &[answer, times] : failures.late_answers())
            out_ << "  NP " << answer.np << "  " << left(table_name(answer.table), 14) << "  "
                 << left(operation_name(answer.operation), 6) << "  " << right(grouped(times), 7)
                 << "  " << answer.reason << "\n";
        for (const auto &[refused, times] : failures.refused_steps())
            out_ << "  at once: " << left(refused.step, 27) << right(grouped(times), 7) << "  "
                 << refused.reason << "\n";
        if (failures.missed_messages() > 0)
            out_ << "  and " << counted(failures.missed_messages(), "message", "messages")
                 << " of the library that were overwritten unread\n";
        if (report_.evidence)
            out_ << "  evidence of the first: " << report_.evidence->string() << "\n";
    }

    std::ostream &out_;
    const RunReport &report_;
    const Style &style_;
};

} // namespace

void write_text(std::ostream &out, const RunReport &report, const Style &style)
{
    TextReport(out, report, style).write();
}

} // namespace inlinectl
