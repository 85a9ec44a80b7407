#include "injection.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

#include "inline_service_packet.h"
#include "vlc/event_debug.h"
#include "vlc/service_tap.h"

namespace inlinectl {
namespace {

using injection_layout::Kind;
using nlohmann::json;

constexpr const char *library_component = "inlc";
constexpr uint32_t most_bytes = SPP_LONGEST_FRAME;

InjectionReport::Frame frame_of(const vlc::ServiceCall &call)
{
    InjectionReport::Frame frame;
    frame.port = static_cast<uint32_t>(call.args[1]);
    const auto *pieces = reinterpret_cast<const gather_piece *>(call.args[2]);
    for (uint64_t i = 0; i < call.args[3]; ++i) {
        const auto *bytes = static_cast<const uint8_t *>(pieces[i].data);
        frame.bytes.insert(frame.bytes.end(), bytes, bytes + pieces[i].length);
    }
    return frame;
}

// What the library says in its trace while this lives, and the frame that it hands over. It stands
// before a fault plan, which may answer in the packet path's place.
class Witness {
public:
    explicit Witness(InjectionReport &report)
        : report_(report), tap_([this](const vlc::ServiceCall &call) { return see(call); },
                                vlc::AddedServiceTap::Place::first)
    {
    }

private:
    std::optional<uint64_t> see(const vlc::ServiceCall &call)
    {
        const std::string_view service = call.service;
        if (service == "spp_prep_bfd_pkt_and_xmt")
            report_.frame = frame_of(call);
        else if (service == "_ltrace")
            hear(call);
        return std::nullopt;
    }
    void hear(const vlc::ServiceCall &call);

    InjectionReport &report_;
    vlc::AddedServiceTap tap_;
};

void Witness::hear(const vlc::ServiceCall &call)
{
    constexpr uint64_t number_mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;
    constexpr size_t first_argument = 2;
    const ed_component *library = vlc::EventDebug::instance().component(library_component);
    if (library == nullptr)
        return;
    const uint64_t number = call.args[1] & number_mask;
    for (uint64_t i = 0; i < library->debug_point_count; ++i) {
        const ed_debug_point &point = library->debug_points[i];
        if (point.number != number)
            continue;
        vlc::TraceEvent event{};
        event.point = &point;
        event.args.assign(call.args.begin() + first_argument,
                          call.args.begin() + first_argument + point.arg_count);
        report_.said.push_back(vlc::trace_text(event));
        report_.is_sent = point.level == ED_EVENT_BUFFER; // by the last word, which is the outcome
    }
}

std::string hexadecimal(const std::vector<uint8_t> &bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::vector<uint8_t> bytes_of(const std::string &text)
{
    const auto digit = [](char letter) {
        const size_t place = std::string_view("0123456789abcdef").find(letter);
        if (place == std::string_view::npos)
            throw std::invalid_argument("bytes are pairs of hexadecimal digits");
        return static_cast<uint8_t>(place);
    };
    if (text.size() % 2 != 0)
        throw std::invalid_argument("bytes are pairs of hexadecimal digits");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(digit(text[i]) << 4 | digit(text[i + 1])));
    return bytes;
}

const char *name_of(Kind kind)
{
    return kind == Kind::service ? "udp" : "ip";
}

Kind kind_named(const std::string &name)
{
    if (name != "udp" && name != "ip")
        throw std::invalid_argument("'" + name + "' is no kind of packet");
    return name == "udp" ? Kind::service : Kind::ip;
}

// What a text lacks or has of another type is an error of its sender.
template <typename Read>
auto read_text(std::string_view text, const Read &read)
{
    try {
        return read(json::parse(text));
    } catch (const json::exception &error) {
        throw std::invalid_argument(error.what());
    }
}

} // namespace

InjectionReport inject(const Injection &injection)
{
    InjectionReport report;
    report.kind = injection.kind;
    static constexpr uint8_t nothing = 0;
    const uint8_t *bytes = injection.bytes.empty() ? &nothing : injection.bytes.data();
    const auto length = static_cast<uint32_t>(injection.bytes.size());
    const Witness witness(report);
    plm_inline_spp_client_register({});
    if (injection.kind == Kind::service)
        plm_inline_send_packet_to_service_lc(injection.tag, injection.source, injection.destination,
                                             bytes, length);
    else
        plm_inline_send_ip_packet(static_cast<uint16_t>(injection.tag), bytes, length);
    return report;
}

std::string text_of(const Injection &injection)
{
    return json{{"kind", name_of(injection.kind)},
                {"tag", injection.tag},
                {"source", injection.source},
                {"destination", injection.destination},
                {"bytes", hexadecimal(injection.bytes)}}
        .dump();
}

Injection injection_of(std::string_view text)
{
    return read_text(text, [](const json &object) {
        Injection injection;
        injection.kind = kind_named(object.at("kind"));
        injection.tag = object.at("tag");
        injection.source = object.at("source");
        injection.destination = object.at("destination");
        injection.bytes = bytes_of(object.at("bytes"));
        if (injection.bytes.size() > most_bytes)
            throw std::invalid_argument("a packet has 65,536 bytes at most");
        return injection;
    });
}

std::string text_of(const InjectionReport &report)
{
    json object{{"kind", name_of(report.kind)}, {"sent", report.is_sent}, {"said", report.said}};
    if (report.frame) {
        object["port"] = report.frame->port;
        object["frame"] = hexadecimal(report.frame->bytes);
    }
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

InjectionReport injection_report_of(std::string_view text)
{
    return read_text(text, [](const json &object) {
        InjectionReport report;
        report.kind = kind_named(object.at("kind"));
        report.is_sent = object.at("sent");
        report.said = object.at("said").get<std::vector<std::string>>();
        if (object.contains("frame"))
            report.frame = {object.at("port"), bytes_of(object.at("frame"))};
        return report;
    });
}

} // namespace inlinectl
