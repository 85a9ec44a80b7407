#include "card_requests.h"

#include <iterator>

#include "platform_packet_path.h"

namespace vlc {

namespace {

constexpr size_t part_bytes = longest_payload / 2; // left when one thing more is put into it

bool is_table(TableKind table)
{
    return static_cast<uint32_t>(table) < table_kinds;
}

// Collects what is put into parts of a reply.
class Parts {
public:
    explicit Parts(const CardRequests::Part &send) : send_(send) {}
    template <typename... Things>
    void add(const Things &...things)
    {
        (put_one(things), ...);
        if (writer_.size() >= part_bytes)
            send_(writer_.take());
    }
    void finish()
    {
        if (writer_.size() > 0)
            send_(writer_.take());
    }

private:
    void put_one(uint32_t number) { writer_.number(number); }
    template <typename Thing>
    void put_one(const Thing &thing)
    {
        put(writer_, thing);
    }

    const CardRequests::Part &send_;
    WireWriter writer_;
};

} // namespace

struct CardRequests::Handler {
    FrameKind kind;
    bool is_for_readers; // changes nothing
    void (CardRequests::*handle)(WireReader &in, WireWriter &out, const Part &part);
};

constexpr CardRequests::Handler CardRequests::handlers[] = {
    {FrameKind::find_handle, true, &CardRequests::find_handle},
    {FrameKind::register_handle, false, &CardRequests::register_handle},
    {FrameKind::reregister, false, &CardRequests::reregister},
    {FrameKind::set_name, false, &CardRequests::set_name},
    {FrameKind::request, false, &CardRequests::request},
    {FrameKind::read_answer, false, &CardRequests::read_answer},
    {FrameKind::unread, true, &CardRequests::unread},
    {FrameKind::is_handle, true, &CardRequests::is_handle},
    {FrameKind::read_counter, false, &CardRequests::read_counter},
    {FrameKind::packets, false, &CardRequests::packets},
    {FrameKind::rows, true, &CardRequests::rows},
    {FrameKind::hit_counts, true, &CardRequests::hit_counts},
    {FrameKind::take_counters, false, &CardRequests::take_counters},
    {FrameKind::give_counters_back, false, &CardRequests::give_counters_back},
    {FrameKind::go_on, false, &CardRequests::go_on},
    {FrameKind::cpu_frame, false, &CardRequests::cpu_frame},
    {FrameKind::flows, true, &CardRequests::flows},
    {FrameKind::flow_activity, true, &CardRequests::flow_activity},
    {FrameKind::dynamic_counters, true, &CardRequests::counter_runs},
    {FrameKind::answers, true, &CardRequests::answers},
    {FrameKind::counter, true, &CardRequests::counter},
    {FrameKind::counters, true, &CardRequests::counters},
    {FrameKind::np_totals, true, &CardRequests::np_totals},
};

CardRequests::CardRequests(Hardware &hardware)
    : hardware_(hardware), plane_(hardware.nps(), hardware.config())
{
    traffic_.nps.resize(hardware.nps().size());
}

std::optional<Payload> CardRequests::answer(const Frame &frame, PeerRole role, const Part &part)
{
    const auto *handler = std::find_if(std::begin(handlers), std::end(handlers),
                                       [&](const Handler &one) { return one.kind == frame.kind; });
    if (handler == std::end(handlers) || (role == PeerRole::reader && !handler->is_for_readers))
        return std::nullopt;
    WireReader in(frame.payload);
    WireWriter out;
    (this->*handler->handle)(in, out, part);
    if (!in.is_whole())
        return std::nullopt;
    return out.take();
}

// Each handler reads all of its request before it does anything, and does nothing when the request
// is not whole.

void CardRequests::find_handle(WireReader &in, WireWriter &out, const Part &)
{
    const std::string name = in.text();
    uint32_t handle = 0;
    if (in.is_whole())
        out.number(hardware_.prm().find_handle(name.c_str(), &handle)).number(handle);
}

void CardRequests::register_handle(WireReader &in, WireWriter &out, const Part &)
{
    uint32_t handle = 0;
    if (in.is_whole())
        out.number(hardware_.prm().register_handle(&handle)).number(handle);
}

void CardRequests::reregister(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    if (in.is_whole())
        out.number(hardware_.prm().reregister(handle));
}

void CardRequests::set_name(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    const std::string name = in.text();
    if (in.is_whole())
        out.number(hardware_.prm().set_name(handle, name.c_str()));
}

void CardRequests::request(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    const auto table = static_cast<TableKind>(in.number<uint8_t>());
    const auto operation = in.number<uint32_t>();
    prm_config_record record;
    get(in, record);
    if (!in.is_whole())
        return;
    out.number(is_table(table) ? hardware_.prm().request(handle, table, operation, record)
                               : uint32_t{prm_bad_record});
}

void CardRequests::read_answer(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    if (!in.is_whole())
        return;
    prm_async_response response;
    const uint32_t code = hardware_.prm().read_answer(handle, &response);
    out.number(code);
    if (code == 0)
        put(out, response);
}

void CardRequests::unread(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    if (in.is_whole())
        out.number(hardware_.prm().unread(handle));
}

void CardRequests::is_handle(WireReader &in, WireWriter &out, const Part &)
{
    const auto handle = in.number<uint32_t>();
    if (in.is_whole())
        out.number(static_cast<uint8_t>(hardware_.prm().is_handle(handle)));
}

void CardRequests::read_counter(WireReader &in, WireWriter &out, const Part &)
{
    const auto np = in.number<uint32_t>();
    const auto counter = in.number<uint32_t>();
    const auto option = in.number<uint32_t>();
    uint64_t words[2] = {};
    if (!in.is_whole())
        return;
    out.number(hardware_.prm().read_counter(np, counter, option, words));
    out.number(words[0]).number(words[1]);
}

// Packets are carried through one after the other. Where the host wants to hear of misses, the
// first packet whose flow no NP has ends the reply, and waits with those behind it until the host
// says that they go on.
void CardRequests::packets(WireReader &in, WireWriter &out, const Part &part)
{
    Waiting given;
    get(in, given.wishes);
    const std::span<const uint8_t> rest = in.take_rest();
    given.bytes.assign(rest.begin(), rest.end());
    WireReader packets(given.bytes);
    while (packets.has_more()) {
        CapturedPacket packet{};
        get(packets, packet);
        if (packet.link != LinkType::ethernet && packet.link != LinkType::linux_sll)
            packets.refuse(); // nobody knows how to read it
        given.packets.push_back(packet);
    }
    if (!packets.is_whole())
        in.refuse();
    if (!in.is_whole())
        return;
    waiting_ = std::move(given);
    process_waiting(false, out, part);
}

void CardRequests::cpu_frame(WireReader &in, WireWriter &out, const Part &)
{
    const auto port = in.number<uint32_t>();
    const std::span<const uint8_t> frame = in.take_rest();
    if (frame.size() > SPP_LONGEST_FRAME)
        in.refuse();
    if (!in.is_whole())
        return;
    const FrameOutcome outcome = hardware_.send_frame(port, frame);
    out.number(outcome.code).number(outcome.retcode);
}

void CardRequests::go_on(WireReader &in, WireWriter &out, const Part &part)
{
    if (waiting_.next == waiting_.packets.size())
        in.refuse(); // nothing waits
    if (in.is_whole())
        process_waiting(true, out, part);
}

void CardRequests::process_waiting(bool is_first_known, WireWriter &out, const Part &part)
{
    Parts parts(part);
    if (waiting_.wishes.output)
        plane_.on_output([&parts](const EncapsulatedPacket &packet) { parts.add(packet); });
    plane_.start_over();
    std::optional<FlowMiss> miss;
    const size_t first = waiting_.next;
    for (; waiting_.next < waiting_.packets.size(); ++waiting_.next) {
        const CapturedPacket &packet = waiting_.packets[waiting_.next];
        const bool is_known = is_first_known && waiting_.next == first;
        if (waiting_.wishes.flow_misses && !is_known && (miss = plane_.flow_miss(packet)))
            break;
        plane_.process(packet);
    }
    plane_.on_output({});
    parts.finish();
    traffic_.add(plane_.totals());
    put(out, plane_.totals());
    out.number(static_cast<uint32_t>(waiting_.next - first));
    out.number(static_cast<uint8_t>(miss ? 1 : 0));
    if (miss)
        put(out, *miss);
    else
        waiting_ = {};
}

void CardRequests::rows(WireReader &in, WireWriter &, const Part &part)
{
    const auto np = in.number<uint32_t>();
    const auto table = static_cast<TableKind>(in.number<uint8_t>());
    if (np >= hardware_.nps().size() || !is_table(table))
        in.refuse();
    if (!in.is_whole())
        return;
    Parts parts(part);
    hardware_.nps()[np].table(table).for_each([&parts](const TableRow &row) { parts.add(row); });
    parts.finish();
}

void CardRequests::hit_counts(WireReader &in, WireWriter &, const Part &part)
{
    const auto np = in.number<uint32_t>();
    const auto kind = static_cast<TableKind>(in.number<uint8_t>());
    if (np >= hardware_.nps().size() || !is_table(kind))
        in.refuse();
    if (!in.is_whole())
        return;
    Parts parts(part);
    const NpTable &table = hardware_.nps()[np].table(kind);
    table.for_each([&](const TableRow &row) { parts.add(row, table.hits(row)); });
    parts.finish();
}

void CardRequests::answers(WireReader &in, WireWriter &, const Part &part)
{
    if (!in.is_whole())
        return;
    Parts parts(part);
    hardware_.prm_store().for_each_unread(
        [&parts](uint32_t handle, const StoredAnswer &answer) { parts.add(handle, answer); });
    parts.finish();
}

void CardRequests::counter(WireReader &in, WireWriter &out, const Part &)
{
    const auto np = in.number<uint32_t>();
    const auto place = in.number<uint32_t>();
    if (np >= hardware_.nps().size() || place >= CounterBank::count)
        in.refuse();
    if (!in.is_whole())
        return;
    const PacketCount count = hardware_.nps()[np].counters().read(place);
    out.number(count.packets).number(count.bytes);
}

// The NP that a request names; null, and refused, when there is none.
const Np *CardRequests::np_in(WireReader &in) const
{
    const auto np = in.number<uint32_t>();
    if (np < hardware_.nps().size())
        return &hardware_.nps()[np];
    in.refuse();
    return nullptr;
}

void CardRequests::flows(WireReader &in, WireWriter &, const Part &part)
{
    const Np *np = np_in(in);
    if (!in.is_whole())
        return;
    Parts parts(part);
    for_each_flow(*np, [&parts](const TableRow &row, const FlowActivity &activity) {
        parts.add(row, activity);
    });
    parts.finish();
}

void CardRequests::flow_activity(WireReader &in, WireWriter &out, const Part &)
{
    const Np *np = np_in(in);
    const std::span<const uint8_t> key = in.take_rest();
    if (!in.is_whole())
        return;
    const std::optional<FlowActivity> activity = vlc::flow_activity(*np, key);
    out.number(static_cast<uint8_t>(activity ? 1 : 0));
    put(out, activity.value_or(FlowActivity{}));
}

void CardRequests::counter_runs(WireReader &in, WireWriter &, const Part &part)
{
    const Np *np = np_in(in);
    if (!in.is_whole())
        return;
    Parts parts(part);
    for_each_counter_run(*np, [&parts](const CounterRun &run) { parts.add(run); });
    parts.finish();
}

void CardRequests::counters(WireReader &in, WireWriter &, const Part &part)
{
    const Np *np = np_in(in);
    if (!in.is_whole())
        return;
    Parts parts(part);
    for (const PacketCount &count : np->counters().read_all())
        parts.add(count);
    parts.finish();
}

void CardRequests::np_totals(WireReader &in, WireWriter &out, const Part &)
{
    const Np *np = np_in(in);
    if (in.is_whole())
        put(out, np->totals().read());
}

void CardRequests::take_counters(WireReader &in, WireWriter &out, const Part &)
{
    const auto np = in.number<uint32_t>();
    const auto length = in.number<uint32_t>();
    uint32_t first = 0;
    if (in.is_whole())
        out.number(hardware_.prm().take_counters(np, length, &first)).number(first);
}

void CardRequests::give_counters_back(WireReader &in, WireWriter &out, const Part &)
{
    const auto np = in.number<uint32_t>();
    const auto first = in.number<uint32_t>();
    if (in.is_whole())
        out.number(hardware_.prm().give_counters_back(np, first));
}

} // namespace vlc
