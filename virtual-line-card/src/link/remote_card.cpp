#include "remote_card.h"

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

// What the visitor throws is thrown when the reply is complete, so that the connection is good for
// more. Things that cannot be read are thrown as such.
void RemoteCard::look_at_table(FrameKind kind, uint32_t np, TableKind table,
                               const std::function<void(WireReader &, const TableRow &)> &read)
{
    if (np >= config().num_nps)
        throw StateError(link_.path().string() + ": its card has no NP " + std::to_string(np));
    std::vector<Payload> parts;
    look(kind, WireWriter().number(np).number(static_cast<uint8_t>(table)).take(),
         [&parts](const Payload &part) { parts.push_back(part); });
    for (const Payload &part : parts) {
        WireReader reader(part);
        while (reader.has_more()) {
            TableRow row;
            get(reader, row);
            read(reader, row);
        }
    }
}

void RemoteCard::require_fits(const WireReader &reader, const char *what) const
{
    if (!reader.fits())
        throw StateError(link_.path().string() + ": the card sent " + what + " that cannot be");
}

void RemoteCard::for_each_row(uint32_t np, TableKind table, const VisitRow &visit)
{
    look_at_table(FrameKind::rows, np, table, [&](WireReader &reader, const TableRow &row) {
        require_fits(reader, "a row");
        visit(row);
    });
}

void RemoteCard::for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit)
{
    look_at_table(FrameKind::hit_counts, np, table, [&](WireReader &reader, const TableRow &row) {
        PacketCount hits{};
        get(reader, hits);
        require_fits(reader, "a row");
        visit(row, hits);
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

void RemoteCard::on_output(Output output)
{
    send_packets(); // those of before go where they went
    output_ = std::move(output);
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

bool RemoteCard::process(const CapturedPacket &packet)
{
    if (waiting_packets_ == 0)
        waiting_.number(static_cast<uint8_t>(output_ ? 1 : 0));
    put(waiting_, packet);
    ++waiting_packets_;
    return waiting_.size() < batch_bytes || send_packets();
}

bool RemoteCard::send_packets()
{
    if (waiting_packets_ == 0)
        return true;
    std::vector<Payload> parts;
    const CardLink::Reply reply = ask_(FrameKind::packets, waiting_.take(),
                                       [&parts](const Payload &part) { parts.push_back(part); });
    waiting_ = {};
    DataPlaneTotals totals;
    WireReader reader(reply.payload);
    get(reader, totals);
    const bool arrived = reply.arrived && reader.is_whole();
    if (arrived)
        traffic_.totals.add(totals);
    else
        traffic_.undelivered += waiting_packets_;
    waiting_packets_ = 0;
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
    void for_each_unread_answer(const VisitAnswer &visit) override
    {
        card_.for_each_unread_answer(visit);
    }
    PacketCount counter(uint32_t np, uint32_t place) override { return card_.counter(np, place); }

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
