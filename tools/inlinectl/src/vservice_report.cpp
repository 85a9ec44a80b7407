#include "vservice_report.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "numbers.h"
#include "text_table.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

using Came = FedVservice::Came;
using nlohmann::ordered_json;

// In the order of what is counted.
constexpr struct {
    Came came;
    const char *text;
    const char *name; // in JSON
} outcomes[] = {{Came::programmed, "programmed", "programmed"},
                {Came::modified, "modified", "modified"},
                {Came::deleted, "deleted", "deleted"},
                {Came::was_not_there, "was not there", "were_not_there"},
                {Came::skipped, "skipped", "skipped"},
                {Came::failed, "failed", "failed"},
                {Came::lost, "failed and lost", "lost"}};

const char *came_text(const FedVservice &one)
{
    return std::ranges::find(outcomes, one.came, [](const auto &known) { return known.came; })
        ->text;
}

std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : "; ") + text;
    return all;
}

ordered_json json_of(const FedVservice &one)
{
    ordered_json object{{"index", one.index}, {"came", came_text(one)}};
    if (one.config) {
        object["encapsulation"] = encapsulation_name(one.config->encap);
        object["user"] = one.config->user;
        object["source"] = endpoint_text(one.config->src_ip, one.config->sport);
        object["destination"] = endpoint_text(destination_of(*one.config), one.config->dport);
    }
    object["said"] = one.said;
    return object;
}

} // namespace

size_t VserviceReport::count(FedVservice::Came came) const
{
    return static_cast<size_t>(std::ranges::count(fed, came, &FedVservice::came));
}

bool VserviceReport::went_well() const
{
    return said.empty() && !interrupted && not_fed == 0 &&
           std::ranges::all_of(fed, [](const FedVservice &one) {
               return one.said.empty() && one.came < Came::skipped;
           });
}

void write_text(std::ostream &out, const VserviceReport &report, const Style &style)
{
    using Align = TextTable::Align;
    TextTable table({Align::right, Align::left, Align::right, Align::left, Align::left, Align::left,
                     Align::left});
    table.add({"index", "encap", "user", "source", "destination", "came to", "why"});
    for (const FedVservice &one : report.fed) {
        if (one.config)
            table.add({std::to_string(one.index), encapsulation_name(one.config->encap),
                       std::to_string(one.config->user),
                       endpoint_text(one.config->src_ip, one.config->sport),
                       endpoint_text(destination_of(*one.config), one.config->dport),
                       came_text(one), joined(one.said)});
        else
            table.add(
                {std::to_string(one.index), "", "", "", "", came_text(one), joined(one.said)});
    }
    if (!report.fed.empty()) {
        table.write(out);
        out << "\n";
    }
    for (const std::string &text : report.said)
        out << style.bold("The library says") << " " << text << "\n";
    std::string sums;
    for (const auto &[came, text, name] : outcomes) {
        if (report.count(came) > 0)
            sums += (sums.empty() ? "" : ", ") + grouped(report.count(came)) + " " + text;
    }
    out << sums << (sums.empty() ? "" : "; ")
        << counted(report.programmed_now, "service is", "services are") << " programmed now\n";
    if (report.interrupted)
        out << style.bold("Interrupted") << ": "
            << counted(report.not_fed, "service was", "services were") << " not fed\n";
}

void write_json(std::ostream &out, const VserviceReport &report)
{
    ordered_json fed = ordered_json::array();
    for (const FedVservice &one : report.fed)
        fed.push_back(json_of(one));
    ordered_json object{{"vservices", fed}};
    for (const auto &[came, text, name] : outcomes)
        object[name] = report.count(came);
    object["programmed_now"] = report.programmed_now;
    object["interrupted"] = report.interrupted;
    object["not_fed"] = report.not_fed;
    object["said"] = report.said;
    out << object.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
}

} // namespace inlinectl
