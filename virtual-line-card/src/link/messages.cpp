#include "messages.h"

#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr size_t most_nps = 8;

// Every number of the totals, in one order for both directions.
template <typename Totals, typename Visit>
void for_each_number_of_np(Totals &np, const Visit &visit)
{
    visit(np.packets);
    visit(np.bytes);
    for (auto &hits : np.hits)
        visit(hits);
    for (auto *number :
         {&np.uncounted_hits, &np.missed_packets, &np.missed_bytes, &np.encapsulated_packets,
          &np.encapsulated_bytes, &np.too_long_packets, &np.policed_packets, &np.policed_bytes})
        visit(*number);
}

template <typename Totals, typename Visit>
void for_each_number(Totals &totals, const Visit &visit)
{
    for (auto *number :
         {&totals.packets, &totals.bytes, &totals.missed_packets, &totals.missed_bytes})
        visit(*number);
    for (auto &number : totals.unreadable)
        visit(number);
    for (auto &np : totals.nps)
        for_each_number_of_np(np, visit);
}

std::span<const uint8_t> bytes_of(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

} // namespace

void put_greeting(WireWriter &writer)
{
    writer.bytes(bytes_of(link_magic)).number(link_version);
}

std::string wrong_with_greeting(WireReader &reader)
{
    const auto magic = reader.take(link_magic.size());
    const auto version = reader.number<uint32_t>();
    if (!reader.fits() || !std::ranges::equal(magic, bytes_of(link_magic)))
        return "speaks no protocol of a virtual line card";
    if (version != link_version)
        return "speaks version " + std::to_string(version) + ", and this program speaks version " +
               std::to_string(link_version);
    return "";
}

void put(WireWriter &writer, const CardConfig &config)
{
    writer.text(text_of(config));
}

void get(WireReader &reader, CardConfig &config)
{
    try {
        config = card_of_text(reader.text(), "the card's text");
    } catch (const StateError &) {
        reader.refuse();
    }
}

void put(WireWriter &writer, const prm_config_record &record)
{
    writer.number(record.np).number(record.kind).number(record.refnum).number(record.key_len);
    writer.number(record.reserved).bytes(record.key).number(record.result_len);
    writer.bytes(record.result);
}

void get(WireReader &reader, prm_config_record &record)
{
    for (uint32_t *field :
         {&record.np, &record.kind, &record.refnum, &record.key_len, &record.reserved})
        reader.into(*field);
    reader.into(record.key);
    reader.into(record.result_len);
    reader.into(record.result);
}

void put(WireWriter &writer, const prm_async_response &response)
{
    writer.number(response.np).number(response.flags).number(response.status);
    writer.number(response.refnum).number(response.vrf_id).number(response.key_size);
    writer.bytes(response.key).number(response.result_size);
    writer.bytes({response.result, sizeof(StoredAnswer::result)}); // the rest is zero
}

void get(WireReader &reader, prm_async_response &response)
{
    response = {};
    for (uint32_t *field : {&response.np, &response.flags, &response.status, &response.refnum,
                            &response.vrf_id, &response.key_size})
        reader.into(*field);
    reader.into(response.key);
    reader.into(response.result_size);
    reader.into(response.result, sizeof(StoredAnswer::result));
}

void put(WireWriter &writer, const TableRow &row)
{
    writer.number(row.hash).number(row.key_len).number(row.result_len);
    writer.bytes(row.key_span()).bytes(row.result_span());
}

void get(WireReader &reader, TableRow &row)
{
    row = {};
    reader.into(row.hash);
    reader.into(row.key_len);
    reader.into(row.result_len);
    reader.into(row.key, row.key_len);
    reader.into(row.result, row.result_len);
}

void put(WireWriter &writer, const PacketCount &count)
{
    writer.number(count.packets).number(count.bytes);
}

void get(WireReader &reader, PacketCount &count)
{
    reader.into(count.packets);
    reader.into(count.bytes);
}

void put(WireWriter &writer, const FlowActivity &activity)
{
    put(writer, activity.hits);
    writer.number(activity.last_packet);
}

void get(WireReader &reader, FlowActivity &activity)
{
    get(reader, activity.hits);
    reader.into(activity.last_packet);
}

void put(WireWriter &writer, const CounterRun &run)
{
    writer.number(run.first).number(run.length);
    for (const PacketCount &count : run.counts)
        put(writer, count);
}

void get(WireReader &reader, CounterRun &run)
{
    reader.into(run.first);
    reader.into(run.length);
    for (PacketCount &count : run.counts)
        get(reader, count);
    if (run.length == 0 || run.length > DynamicCounters::longest_run)
        reader.refuse();
}

void put(WireWriter &writer, const FlowMiss &miss)
{
    const FiveTuple &tuple = miss.tuple;
    writer.number(tuple.source).number(tuple.destination).number(tuple.source_port);
    writer.number(tuple.destination_port).number(tuple.protocol);
    writer.number(miss.np).number(miss.wire_length).number(miss.nanoseconds);
}

void get(WireReader &reader, FlowMiss &miss)
{
    FiveTuple &tuple = miss.tuple;
    reader.into(tuple.source);
    reader.into(tuple.destination);
    reader.into(tuple.source_port);
    reader.into(tuple.destination_port);
    reader.into(tuple.protocol);
    reader.into(miss.np);
    reader.into(miss.wire_length);
    reader.into(miss.nanoseconds);
}

void put(WireWriter &writer, const PacketWishes &wishes)
{
    writer.number(static_cast<uint8_t>(wishes.output ? 1 : 0));
    writer.number(static_cast<uint8_t>(wishes.flow_misses ? 1 : 0));
}

void get(WireReader &reader, PacketWishes &wishes)
{
    wishes.output = reader.number<uint8_t>() != 0;
    wishes.flow_misses = reader.number<uint8_t>() != 0;
}

void put(WireWriter &writer, const StoredAnswer &answer)
{
    writer.number(answer.np).number(answer.flags).number(answer.status).number(answer.refnum);
    writer.number(answer.vrf_id).number(answer.key_len).number(answer.result_len);
    writer.bytes({answer.key, answer.key_len}).bytes({answer.result, answer.result_len});
}

void get(WireReader &reader, StoredAnswer &answer)
{
    answer = {};
    for (uint32_t *field :
         {&answer.np, &answer.flags, &answer.status, &answer.refnum, &answer.vrf_id})
        reader.into(*field);
    reader.into(answer.key_len);
    reader.into(answer.result_len);
    reader.into(answer.key, answer.key_len);
    reader.into(answer.result, answer.result_len);
}

void put(WireWriter &writer, const NpTotals &totals)
{
    for_each_number_of_np(totals, [&writer](uint64_t number) { writer.number(number); });
}

void get(WireReader &reader, NpTotals &totals)
{
    for_each_number_of_np(totals, [&reader](uint64_t &number) { reader.into(number); });
}

void put(WireWriter &writer, const DataPlaneTotals &totals)
{
    writer.number(static_cast<uint8_t>(totals.nps.size()));
    for_each_number(totals, [&writer](uint64_t number) { writer.number(number); });
}

void get(WireReader &reader, DataPlaneTotals &totals)
{
    totals = {};
    totals.nps.resize(std::min<size_t>(reader.number<uint8_t>(), most_nps));
    for_each_number(totals, [&reader](uint64_t &number) { reader.into(number); });
}

void put(WireWriter &writer, const CapturedPacket &packet)
{
    writer.number(static_cast<uint8_t>(packet.link)).number(packet.wire_length);
    writer.number(packet.nanoseconds).number(static_cast<uint32_t>(packet.bytes.size()));
    writer.bytes(packet.bytes).text(packet.capture);
}

void get(WireReader &reader, CapturedPacket &packet)
{
    packet.link = static_cast<LinkType>(reader.number<uint8_t>());
    reader.into(packet.wire_length);
    reader.into(packet.nanoseconds);
    packet.bytes = reader.take(reader.number<uint32_t>());
    const std::span<const uint8_t> name = reader.take(reader.number<uint32_t>());
    packet.capture = {reinterpret_cast<const char *>(name.data()), name.size()};
}

void put(WireWriter &writer, const EncapsulatedPacket &packet)
{
    writer.bytes(packet.headers).number(static_cast<uint32_t>(packet.inner.size()));
    writer.bytes(packet.inner).number(packet.wire_length).number(packet.nanoseconds);
}

void get(WireReader &reader, EncapsulatedPacket &packet)
{
    const std::span<const uint8_t> headers = reader.take(packet.headers.size());
    std::copy(headers.begin(), headers.end(), packet.headers.begin());
    packet.inner = reader.take(reader.number<uint32_t>());
    reader.into(packet.wire_length);
    reader.into(packet.nanoseconds);
}

} // namespace vlc
