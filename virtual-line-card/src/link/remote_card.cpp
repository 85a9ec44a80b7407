#include "remote_card.h"

#include <cerrno>

#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr size_t batch_bytes = size_t{128} << 10;

} // namespace

RemoteCard::RemoteCard(const CardLink &link, Ask ask, std::function<uint64_t()> announced)
    : link_(link), ask_(std::move(ask)), announced_(std::move(announced))
{
    traffic_.totals.nps.resize(link.card().config.num_nps);
}

Payload RemoteCard::look(FrameKind kind, Payload payload,
                         const std::function<void(const Payload &)> &on_part)
{
    CardLink::Reply reply = ask_(kind, payload, on_part);
    if (!reply.arrived)
        throw CardGone(link_.path().string() + ": the connection to the card broke");
    return std::move(reply.payload);
}

void RemoteCard::require_np(uint32_t np) const
{
    if (np >= config().num_nps)
        throw StateError(link_.path().string() + ": its card has no NP " + std::to_string(np));
}

// What the visitor throws is thrown when the reply is complete, so that the connection is good for
// more. Things that cannot be read are thrown as such.
void RemoteCard::look_at_np(FrameKind kind, uint32_t np, WireWriter &request,
                            const std::function<void(WireReader &)> &read)
{
    require_np(np);
    std::vector<Payload> parts;
    look(kind, request.take(), [&parts](const Payload &part) { parts.push_back(part); });
    for (const Payload &part : parts) {
        WireReader reader(part);
        while (reader.has_more())
            read(reader);
    }
}

void RemoteCard::require_fits(const WireReader &reader, const char *what) const
{
    if (!reader.fits())
        throw StateError(link_.path().string() + ": the card sent " + what + " that cannot be");
}

namespace {

WireWriter table_request(uint32_t np, TableKind table)
{
    WireWriter request;
    request.number(np).number(static_cast<uint8_t>(table));
    return request;
}

WireWriter np_request(uint32_t np)
{
    WireWriter request;
    request.number(np);
    return request;
}

} // namespace

void RemoteCard::for_each_row(uint32_t np, TableKind table, const VisitRow &visit)
{
    WireWriter request = table_request(np, table);
    look_at_np(FrameKind::rows, np, request, [&](WireReader &reader) {
        TableRow row;
        get(reader, row);
        require_fits(reader, "a row");
        visit(row);
    });
}

void RemoteCard::for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit)
{
    WireWriter request = table_request(np, table);
    look_at_np(FrameKind::hit_counts, np, request, [&](WireReader &reader) {
        TableRow row;
        PacketCount hits{};
        get(reader, row);
        get(reader, hits);
        require_fits(reader, "a row");
        visit(row, hits);
    });
}

void RemoteCard::for_each_flow(uint32_t np, const VisitFlow &visit)
{
    WireWriter request = np_request(np);
    look_at_np(FrameKind::flows, np, request, [&](WireReader &reader) {
        TableRow row;
        FlowActivity activity{};
        get(reader, row);
        get(reader, activity);
        require_fits(reader, "a flow");
        visit(row, activity);
    });
}

std::optional<FlowActivity> RemoteCard::flow_activity(uint32_t np, Bytes key)
{
    require_np(np);
    const Payload reply = look(FrameKind::flow_activity, WireWriter().number(np).bytes(key).take());
    WireReader reader(reply);
    const bool is_there = reader.number<uint8_t>() != 0;
    FlowActivity activity{};
    get(reader, activity);
    require_fits(reader, "a flow's activity");
    return is_there ? std::optional(activity) : std::nullopt;
}

void RemoteCard::for_each_counter_run(uint32_t np, const VisitRun &visit)
{
    WireWriter request = np_request(np);
    look_at_np(FrameKind::dynamic_counters, np, request, [&](WireReader &reader) {
        CounterRun run{};
        get(reader, run);
        require_fits(reader, "a run of counters");
        visit(run);
    });
}

void RemoteCard::for_each_unread_answer(const VisitAnswer &visit)
{
    std::vector<Payload> parts;
    look(FrameKind::answers, {}, [&parts](const Payload &part) { parts.push_back(part); });
    for (const Payload &part : parts) {
        WireReader reader(part);
        while (reader.has_more()) {
            const auto handle = reader.number<uint32_t>();
            StoredAnswer answer;
            get(reader, answer);
            require_fits(reader, "an answer");
            visit(handle, answer);
        }
    }
}

PacketCount RemoteCard::counter(uint32_t np, uint32_t place)
{
    if (np >= config().num_nps || place >= CounterBank::count)
        throw StateError(link_.path().string() + ": its card has no NP " + std::to_string(np) +
                         " with a counter " + std::to_string(place));
    const Payload reply = look(FrameKind::counter, WireWriter().number(np).number(place).take());
    WireReader reader(reply);
    const auto packets = reader.number<uint64_t>();
    const auto bytes = reader.number<uint64_t>();
    return {packets, bytes};
}

std::vector<PacketCount> RemoteCard::counters(uint32_t np)
{
    std::vector<PacketCount> counts;
    WireWriter request = np_request(np);
    look_at_np(FrameKind::counters, np, request,
               [&](WireReader &reader) { get(reader, counts.emplace_back()); });
    if (counts.size() != CounterBank::count)
        throw StateError(link_.path().string() + ": the card sent a bank of " +
                         std::to_string(counts.size()) + " counters, which cannot be");
    return counts;
}

NpTotals RemoteCard::totals(uint32_t np)
{
    require_np(np);
    const Payload reply = look(FrameKind::np_totals, np_request(np).take());
    WireReader reader(reply);
    NpTotals totals;
    get(reader, totals);
    require_fits(reader, "an NP's totals");
    return totals;
}

void RemoteCard::on_output(Output output)
{
    send_packets(); // those of before go where they went
    output_ = std::move(output);
}

void RemoteCard::on_flow_miss(FlowMissHandler handler)
{
    send_packets();
    flow_miss_ = std::move(handler);
}

void RemoteCard::give_out(const Payload &part)
{
    WireReader reader(part);
    while (output_ && reader.has_more()) {
        EncapsulatedPacket packet{};
        get(reader, packet);
        if (reader.fits())
            output_(packet);
    }
}

FrameOutcome RemoteCard::send_frame(uint32_t port, Bytes frame)
{
    const CardLink::Reply reply =
        ask_(FrameKind::cpu_frame, WireWriter().number(port).bytes(frame).take(), {});
    WireReader reader(reply.payload);
    FrameOutcome outcome;
    reader.into(outcome.code);
    reader.into(outcome.retcode);
    if (!reply.arrived || !reader.is_whole())
        return {ENOTCONN, ENOTCONN}; // whether it left, nobody knows
    return outcome;
}

bool RemoteCard::process(const CapturedPacket &packet)
{
    if (waiting_packets_ == 0)
        put(waiting_, PacketWishes{.output = static_cast<bool>(output_),
                                   .flow_misses = static_cast<bool>(flow_miss_)});
    put(waiting_, packet);
    ++waiting_packets_;
    return waiting_.size() < batch_bytes || send_packets();
}

// A flow that the card misses ends its reply, so that the requests which the handler makes reach it
// before the packet goes on.
bool RemoteCard::send_packets()
{
    if (waiting_packets_ == 0)
        return true;
    std::optional<FlowMiss> miss;
    Payload packets = waiting_.take();
    waiting_ = {};
    bool arrived = carry_through(FrameKind::packets, std::move(packets), miss);
    while (arrived && miss) {
        if (flow_miss_)
            flow_miss_(*miss);
        arrived = carry_through(FrameKind::go_on, {}, miss);
    }
    traffic_.undelivered += waiting_packets_;
    waiting_packets_ = 0;
    return arrived;
}

bool RemoteCard::carry_through(FrameKind kind, Payload payload, std::optional<FlowMiss> &miss)
{
    std::vector<Payload> parts;
    const CardLink::Reply reply =
        ask_(kind, payload, [&parts](const Payload &part) { parts.push_back(part); });
    DataPlaneTotals totals;
    WireReader reader(reply.payload);
    get(reader, totals);
    const auto carried = reader.number<uint32_t>();
    miss.reset();
    if (reader.number<uint8_t>() != 0) {
        miss.emplace();
        get(reader, *miss);
    }
    const bool moved_on = kind == FrameKind::packets || carried > 0;
    const bool arrived =
        reply.arrived && reader.is_whole() && carried <= waiting_packets_ && moved_on;
    if (arrived) {
        traffic_.totals.add(totals);
        waiting_packets_ -= carried;
    }
    // What the card sent of them has left it, also when the connection broke behind it.
    for (const Payload &part : parts)
        give_out(part);
    return arrived;
}

RunningCard::Traffic RemoteCard::traffic()
{
    send_packets();
    return traffic_;
}

bool RemoteCard::settle()
{
    send_packets();
    ask_(FrameKind::settle, {}, {});
    const uint64_t announced = announced_();
    const bool is_more = announced != settled_;
    settled_ = announced;
    return is_more;
}

namespace {

// A connection of its own, that a card takes beside its host's.
class CardLook final : public CardAccess {
public:
    explicit CardLook(const std::filesystem::path &socket)
        : link_(socket, PeerRole::reader),
          card_(
              connected(link_),
              [this](FrameKind kind, const Payload &payload, const auto &on_part) {
                  return link_.ask(kind, payload, on_part);
              },
              [] { return uint64_t{0}; })
    {
    }

    const CardConfig &config() const override { return card_.config(); }
    void for_each_row(uint32_t np, TableKind table, const VisitRow &visit) override
    {
        card_.for_each_row(np, table, visit);
    }
    void for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit) override
    {
        card_.for_each_hit_count(np, table, visit);
    }
    void for_each_flow(uint32_t np, const VisitFlow &visit) override
    {
        card_.for_each_flow(np, visit);
    }
    std::optional<FlowActivity> flow_activity(uint32_t np, Bytes key) override
    {
        return card_.flow_activity(np, key);
    }
    void for_each_counter_run(uint32_t np, const VisitRun &visit) override
    {
        card_.for_each_counter_run(np, visit);
    }
    void for_each_unread_answer(const VisitAnswer &visit) override
    {
        card_.for_each_unread_answer(visit);
    }
    PacketCount counter(uint32_t np, uint32_t place) override { return card_.counter(np, place); }
    std::vector<PacketCount> counters(uint32_t np) override { return card_.counters(np); }
    NpTotals totals(uint32_t np) override { return card_.totals(np); }

private:
    static const CardLink &connected(CardLink &link)
    {
        if (link.connect() != CardLink::Attempt::connected)
            throw StateError(link.why());
        return link;
    }

    CardLink link_;
    RemoteCard card_;
};

} // namespace

std::unique_ptr<CardAccess> look_into_card(const std::filesystem::path &socket)
{
    return std::make_unique<CardLook>(socket);
}

} // namespace vlc
