// An audit for a person: what there is, then the differences, counted and with the first of each.
#include "audit_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "numbers.h"

namespace inlinectl {
namespace {

using services::AuditReport;
using services::Finding;
using services::FindingKind;

constexpr size_t examples_of_a_kind = 3;
constexpr size_t gap = 2;

// Columns as wide as their widest cell; the first stands left, the others right.
class Table {
public:
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    void write(std::ostream &out) const
    {
        std::vector<size_t> widths;
        for (const auto &row : rows_) {
            widths.resize(std::max(widths.size(), row.size()));
            for (size_t i = 0; i < row.size(); ++i)
                widths[i] = std::max(widths[i], row[i].size());
        }
        for (const auto &row : rows_) {
            for (size_t i = 0; i < row.size(); ++i) {
                const std::string blanks(widths[i] - row[i].size() + (i == 0 ? 0 : gap), ' ');
                const bool is_last = i + 1 == row.size();
                if (i == 0)
                    out << row[i] << (is_last ? "" : blanks);
                else
                    out << blanks << row[i];
            }
            out << "\n";
        }
    }

private:
    std::vector<std::vector<std::string>> rows_;
};

class AuditText {
public:
    AuditText(std::ostream &out, const AuditOutcome &outcome, const Style &style)
        : out_(out), outcome_(outcome), report_(outcome.report), style_(style)
    {
    }

    void write()
    {
        std::array<char, 16> type{};
        std::snprintf(type.data(), type.size(), "0x%X", outcome_.card.card_type);
        out_ << "State      " << outcome_.state_directory.string() << "\n"
             << "Card       " << outcome_.card.name << ", "
             << counted(outcome_.card.num_nps, "NP", "NPs") << ", type " << type.data() << "\n"
             << "Shadow DB  " << counted(report_.entries, "key", "keys") << "\n"
             << "In flight  "
             << (report_.in_flight.empty()
                     ? "nothing"
                     : counted(report_.in_flight.size(), "answer", "answers") +
                           " that no host has read")
             << "\n\n";
        write_totals();
        write_differences();
    }

private:
    void write_totals()
    {
        Table table;
        table.add({"", "service config", "ext conf", "counters in use"});
        table.add({"shadow DB", grouped(report_.nodes[0]), grouped(report_.nodes[1])});
        for (size_t np = 0; np < report_.nps.size(); ++np) {
            const AuditReport::Np &totals = report_.nps[np];
            table.add({"NP " + std::to_string(np), grouped(totals.rows[0]), grouped(totals.rows[1]),
                       grouped(totals.counters_in_use)});
        }
        table.write(out_);
        if (has_flows())
            write_flow_totals();
    }

    bool has_flows() const
    {
        return report_.flows > 0 || std::ranges::any_of(report_.nps, [](const AuditReport::Np &np) {
                   return np.flow_rows > 0 || np.flow_counters_in_use > 0;
               });
    }

    void write_flow_totals()
    {
        Table table;
        table.add({"", "flows", "dynamic counters in use"});
        table.add({"flow table", grouped(report_.flows)});
        for (size_t np = 0; np < report_.nps.size(); ++np)
            table.add({"NP " + std::to_string(np), grouped(report_.nps[np].flow_rows),
                       grouped(report_.nps[np].flow_counters_in_use)});
        out_ << "\n";
        table.write(out_);
    }

    void write_differences()
    {
        if (report_.clean()) {
            out_ << "\nDifferences: none\n";
            return;
        }
        out_ << "\n" << style_.red("Differences: " + grouped(report_.findings.size())) << "\n";
        write_counts();
        size_t shown = 0;
        FindingKind kind{};
        for (const Finding &finding : report_.findings) {
            if (finding.kind != kind || shown == 0) {
                kind = finding.kind;
                shown = 0;
                out_ << "\n" << style_.bold(words_of(kind)) << "\n";
            }
            if (++shown <= examples_of_a_kind)
                out_ << "  " << finding.text << "\n";
            else if (&finding == &report_.findings.back() || (&finding + 1)->kind != kind)
                out_ << "  and " << grouped(shown - examples_of_a_kind) << " more\n";
        }
    }

    // Kinds down, NPs across; what is no NP's stands in the shadow DB's column.
    void write_counts()
    {
        const size_t nps = report_.nps.size();
        std::vector<std::vector<uint64_t>> counts(services::finding_kinds,
                                                  std::vector<uint64_t>(nps + 1));
        for (const Finding &finding : report_.findings)
            ++counts[static_cast<size_t>(finding.kind)][std::min<size_t>(finding.np, nps)];
        Table table;
        std::vector<std::string> head = {""};
        for (size_t np = 0; np < nps; ++np)
            head.push_back("NP " + std::to_string(np));
        head.emplace_back("shadow DB");
        table.add(head);
        const auto totals = report_.count();
        for (size_t kind = 0; kind < services::finding_kinds; ++kind) {
            if (totals[kind] == 0)
                continue;
            std::vector<std::string> row = {words_of(static_cast<FindingKind>(kind))};
            for (const uint64_t count : counts[kind])
                row.push_back(count == 0 ? "-" : grouped(count));
            table.add(row);
        }
        table.write(out_);
    }

    std::ostream &out_;
    const AuditOutcome &outcome_;
    const AuditReport &report_;
    const Style &style_;
};

} // namespace

void write_text(std::ostream &out, const AuditOutcome &outcome, const Style &style)
{
    AuditText(out, outcome, style).write();
}

} // namespace inlinectl
