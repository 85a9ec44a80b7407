#include "vlc/hardware.h"

#include <cinttypes>
#include <cstdio>
#include <string>

#include "vlc/event_manager.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

std::string hexadecimal(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%" PRIX32, value);
    return text;
}

const StateDirectory &of_type(const StateDirectory &directory, const CardConfig &config)
{
    require_same_type(directory, config);
    return directory;
}

} // namespace

void require_same_type(const StateDirectory &directory, const CardConfig &config)
{
    if (directory.card() && directory.card()->card_type != config.card_type) {
        throw StateError(directory.path().string() + ": was made for a card of type " +
                         hexadecimal(directory.card()->card_type) + ", and " +
                         hexadecimal(config.card_type) + " is asked for");
    }
}

Hardware::Hardware(const CardConfig &config, const StateDirectory &directory)
    : config_(config), nps_(of_type(directory, config), config), prm_store_(directory),
      prm_(nps_, prm_store_), cpu_ports_(config, directory)
{
}

void Hardware::power_on()
{
    cpu_ports_.mend();
    prm_.power_on();
}

FrameOutcome Hardware::send_frame(uint32_t port, Bytes frame)
{
    return cpu_ports_.send(port, frame, CardClock::now().count());
}

HardwareAccess::HardwareAccess(Hardware &hardware)
    : hardware_(hardware), plane_(hardware.nps(), hardware.config())
{
}

Np &HardwareAccess::np(uint32_t number) const
{
    if (number >= hardware_.nps().size())
        throw StateError("the card has no NP " + std::to_string(number));
    return hardware_.nps()[number];
}

void HardwareAccess::for_each_row(uint32_t np_number, TableKind table, const VisitRow &visit)
{
    np(np_number).table(table).for_each(visit);
}

void HardwareAccess::for_each_hit_count(uint32_t np_number, TableKind table, const VisitHits &visit)
{
    const NpTable &rows = np(np_number).table(table);
    rows.for_each([&](const TableRow &row) { visit(row, rows.hits(row)); });
}

void HardwareAccess::for_each_flow(uint32_t np_number, const VisitFlow &visit)
{
    vlc::for_each_flow(np(np_number), visit);
}

std::optional<FlowActivity> HardwareAccess::flow_activity(uint32_t np_number, Bytes key)
{
    return vlc::flow_activity(np(np_number), key);
}

void HardwareAccess::for_each_counter_run(uint32_t np_number, const VisitRun &visit)
{
    vlc::for_each_counter_run(np(np_number), visit);
}

void HardwareAccess::for_each_unread_answer(const VisitAnswer &visit)
{
    hardware_.prm_store().for_each_unread(visit);
}

PacketCount HardwareAccess::counter(uint32_t np_number, uint32_t place)
{
    if (np_number >= hardware_.nps().size() || place >= CounterBank::count)
        throw StateError("the card has no NP " + std::to_string(np_number) + " with a counter " +
                         std::to_string(place));
    return np(np_number).counters().read(place);
}

bool HardwareAccess::process(const CapturedPacket &packet)
{
    plane_.process(packet);
    return true;
}

} // namespace vlc
