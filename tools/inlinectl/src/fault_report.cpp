#include "fault_report.h"

#include <algorithm>
#include <array>

#include <nlohmann/json.hpp>

#include "numbers.h"
#include "text_columns.h"

namespace inlinectl {
namespace {

constexpr size_t columns = 6; // the last is as wide as it is
constexpr size_t number_columns = 3;
using Row = std::array<std::string, columns>;

} // namespace

FaultReport fault_report(const vlc::Faults &faults)
{
    return {faults.plan(), faults.counts()};
}

void write_fault_text(std::ostream &out, const FaultReport &report, const Style &style)
{
    std::vector<Row> rows{{"line", "matched", "fired", "action", "trigger", "service"}};
    for (size_t i = 0; i < report.counts.size(); ++i) {
        const vlc::FaultRule &rule = report.plan.rules[i];
        rows.push_back({std::to_string(rule.line), grouped(report.counts[i].matched),
                        grouped(report.counts[i].fired), action_text(rule), trigger_text(rule),
                        service_text(rule)});
    }
    std::array<size_t, columns> widths{};
    for (const Row &row : rows) {
        for (size_t i = 0; i < columns; ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    out << style.bold("Faults of " + report.plan.file + ", seed " +
                      std::to_string(report.plan.seed))
        << "\n";
    for (size_t i = 0; i < rows.size(); ++i) {
        std::string line;
        for (size_t column = 0; column + 1 < columns; ++column)
            line += (column < number_columns ? right(rows[i][column], widths[column])
                                             : left(rows[i][column], widths[column])) +
                    "  ";
        out << line << rows[i].back();
        if (i > 0 && report.counts[i - 1].matched == 0)
            out << "  " << style.red("never matched");
        out << "\n";
    }
}

nlohmann::ordered_json fault_json(const FaultReport &report)
{
    nlohmann::ordered_json rules = nlohmann::ordered_json::array();
    for (size_t i = 0; i < report.counts.size(); ++i) {
        const vlc::FaultRule &rule = report.plan.rules[i];
        rules.push_back({{"line", rule.line},
                         {"service", service_text(rule)},
                         {"action", action_text(rule)},
                         {"trigger", trigger_text(rule)},
                         {"matched", report.counts[i].matched},
                         {"fired", report.counts[i].fired}});
    }
    return {{"file", report.plan.file}, {"seed", report.plan.seed}, {"rules", rules}};
}

} // namespace inlinectl
