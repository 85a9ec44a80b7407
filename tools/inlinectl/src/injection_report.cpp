#include "injection_report.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <span>

#include <nlohmann/json.hpp>

#include "inline_service_packet.h"
#include "numbers.h"
#include "text_table.h"

namespace inlinectl {
namespace {

using injection_layout::Range;
using nlohmann::ordered_json;
using Bytes = std::span<const uint8_t>;

constexpr size_t bytes_in_line = 8;

std::string hexadecimal(Bytes bytes)
{
    std::string text;
    char two[4];
    for (const uint8_t byte : bytes) {
        std::snprintf(two, sizeof two, "%02x", byte);
        text += (text.empty() ? "" : " ") + std::string(two);
    }
    return text;
}

// What is no letter shows as a point.
std::string letters(Bytes bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        text += byte < 0x80 && std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
    return text;
}

bool is_callers(const Range &range)
{
    const std::string_view part = range.part;
    return part == "payload" || part == "packet";
}

// A range of many bytes takes several lines; of the caller's bytes each shows its letters.
void add_range(TextTable &table, const Range &range, Bytes frame)
{
    const Bytes bytes = frame.subspan(range.offset, range.length);
    for (size_t at = 0; at < bytes.size(); at += bytes_in_line) {
        const Bytes line = bytes.subspan(at, std::min(bytes_in_line, bytes.size() - at));
        std::string meaning = at == 0 ? range.meaning : "";
        if (is_callers(range))
            meaning = letters(line);
        table.add({std::to_string(range.offset + at), hexadecimal(line), at == 0 ? range.part : "",
                   meaning});
    }
}

std::string place_of(const InjectionReport::Frame &frame)
{
    return "CPU port " + std::to_string(frame.port) + ", to NP " +
           (frame.bytes.size() > INJECTED_PREFIX_NP
                ? std::to_string(frame.bytes[INJECTED_PREFIX_NP])
                : "?");
}

} // namespace

void write_text(std::ostream &out, const InjectionReport &report, const Style &style)
{
    using Align = TextTable::Align;
    if (report.frame) {
        const InjectionReport::Frame &frame = *report.frame;
        out << style.bold("Frame") << " of " << counted(frame.bytes.size(), "byte", "bytes")
            << " for " << place_of(frame) << "\n\n";
        TextTable table({Align::right, Align::left, Align::left, Align::left});
        table.add({"offset", "bytes", "part", "what it is"});
        for (const Range &range : injection_layout::ranges_of(report.kind, frame.bytes))
            add_range(table, range, frame.bytes);
        table.write(out);
        out << "\n";
    }
    for (const std::string &text : report.said)
        out << style.bold("The library says") << " " << text << "\n";
    out << (report.is_sent ? "Sent" : style.red("Not sent")) << "\n";
}

void write_json(std::ostream &out, const InjectionReport &report)
{
    ordered_json object{{"sent", report.is_sent}, {"said", report.said}};
    if (report.frame) {
        const InjectionReport::Frame &frame = *report.frame;
        object["port"] = frame.port;
        if (frame.bytes.size() > INJECTED_PREFIX_NP)
            object["np"] = frame.bytes[INJECTED_PREFIX_NP];
        object["length"] = frame.bytes.size();
        ordered_json ranges = ordered_json::array();
        for (const Range &range : injection_layout::ranges_of(report.kind, frame.bytes))
            ranges.push_back(
                {{"offset", range.offset},
                 {"length", range.length},
                 {"bytes", hexadecimal(Bytes(frame.bytes).subspan(range.offset, range.length))},
                 {"part", range.part},
                 {"meaning", range.meaning}});
        object["ranges"] = ranges;
    }
    out << object.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
}

} // namespace inlinectl
