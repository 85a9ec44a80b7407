#include "trace_report.h"

#include <nlohmann/json.hpp>

#include "text_columns.h"
#include "utc_time.h"

namespace inlinectl {
namespace {

using Json = nlohmann::ordered_json;
using Kind = vlc::EventArgument::Kind;

// What stands before the text, in columns.
struct Columns {
    std::string site;
    std::string function;
};

Columns columns_of(const DecodedEvent &event)
{
    if (!event.site)
        return {"?", "?"};
    return {site_place(*event.site), printable(event.site->function)};
}

std::string arguments_text(const DecodedEvent &event)
{
    std::string text;
    for (const DecodedArgument &argument : event.arguments)
        text += (text.empty() ? "  [" : " ") + printable(argument.name) + "=" + argument.shown;
    return text.empty() ? text : text + "]";
}

Json value_of(const DecodedArgument &argument)
{
    if (argument.value.kind == Kind::text)
        return argument.text;
    if (argument.value.kind == Kind::signed_number)
        return static_cast<int64_t>(argument.value.number);
    return argument.value.number;
}

Json json_of(const DecodedEvent &event)
{
    Json json{{"time", utc_text(event.record.nanoseconds)},
              {"nanoseconds", event.record.nanoseconds},
              {"component", event.component},
              {"buffer", event.buffer},
              {"number", event.number()}};
    if (event.is_traced())
        json["sequence"] = event.sequence();
    if (event.site) {
        json["level"] = event.site->level;
        json["file"] = event.site->file;
        json["line"] = event.site->line;
        json["function"] = event.site->function;
    }
    json["text"] = event.text;
    json["arguments"] = Json::object();
    for (const DecodedArgument &argument : event.arguments)
        json["arguments"][argument.name] = value_of(argument);
    return json;
}

} // namespace

void write_text(std::ostream &out, const std::vector<DecodedEvent> &events, const Style &style)
{
    size_t site_width = 0;
    size_t function_width = 0;
    for (const DecodedEvent &event : events) {
        const Columns columns = columns_of(event);
        site_width = std::max(site_width, columns.site.size());
        function_width = std::max(function_width, columns.function.size());
    }
    for (const DecodedEvent &event : events) {
        const Columns columns = columns_of(event);
        const bool failure = event.buffer == "error";
        out << utc_text(event.record.nanoseconds) << "  "
            << (failure ? style.red(event.buffer) : event.buffer) << " "
            << (event.site ? std::to_string(event.site->level) : "?") << "  "
            << left(columns.site, site_width) << "  " << left(columns.function, function_width)
            << "  " << style.bold(event.text) << style.cyan(arguments_text(event)) << "\n";
    }
}

void write_json(std::ostream &out, const std::vector<DecodedEvent> &events)
{
    for (const DecodedEvent &event : events)
        out << json_of(event).dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
}

} // namespace inlinectl
