// A packet of a real capture through the data plane of an embedded card, against a bare loop that
// reads the same packets and counts them.
#include <cstdio>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_card.h"
#include "packets_in_memory.h"
#include "paired.h"
#include "traffic_meter.h"

namespace {

constexpr uint32_t nps = 8;
constexpr size_t destinations = 500; // an entry of each for itself, and one for its address

// Those of the packets first, as far as there is room.
std::vector<services::Destination> entries_for(const bench::PacketsInMemory &packets)
{
    std::vector<services::Destination> wanted = packets.destinations();
    if (wanted.size() > destinations)
        wanted.resize(destinations);
    for (uint32_t other = 0x0A000001; wanted.size() < destinations; ++other)
        wanted.push_back({17, other, 53});
    return wanted;
}

// The least that does the same: the packet is read by the same parser, and counted on the entries
// that it meets on its NP, in one table of words that is inlined here and written for nothing else.
class BareLoop {
public:
    BareLoop(const std::vector<vlc::CapturedPacket> &packets,
             const std::vector<services::Destination> &entries)
        : packets_(packets), tables_(nps)
    {
        for (Table &table : tables_)
            for (const services::Destination &entry : entries) {
                table.add(key_of(entry.protocol, entry.address, entry.port));
                table.add(key_of(entry.address));
            }
    }

    void operator()(size_t operations)
    {
        for (size_t i = 0; i < operations; ++i) {
            count(packets_[place_]);
            place_ = place_ + 1 == packets_.size() ? 0 : place_ + 1;
        }
    }

private:
    struct Entry {
        uint64_t key;
        uint64_t packets;
        uint64_t bytes;
    };
    class Table {
    public:
        void add(uint64_t key) { place(key).key = key; }
        void count(uint64_t key, uint32_t bytes)
        {
            Entry &entry = place(key);
            if (entry.key == key) {
                ++entry.packets;
                entry.bytes += bytes;
            }
        }

    private:
        Entry &place(uint64_t key)
        {
            size_t slot = key * 0x9E3779B97F4A7C15 >> 53;
            while (entries_[slot].key != 0 && entries_[slot].key != key)
                slot = (slot + 1) % entries_.size();
            return entries_[slot];
        }
        std::vector<Entry> entries_ = std::vector<Entry>(2048);
    };

    static uint64_t key_of(uint8_t protocol, uint32_t address, uint16_t port)
    {
        return uint64_t{1} << 56 | uint64_t{protocol} << 48 | uint64_t{port} << 32 | address;
    }
    static uint64_t key_of(uint32_t address) { return uint64_t{2} << 56 | address; }

    void count(const vlc::CapturedPacket &packet)
    {
        const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
        if (parsed.unreadable != vlc::Unreadable::none)
            return;
        const vlc::FiveTuple &tuple = parsed.tuple;
        const uint32_t ports = uint32_t{tuple.source_port} << 16 | tuple.destination_port;
        const uint32_t hash =
            (tuple.source ^ ports ^ tuple.protocol) * 0x9E3779B9U ^ tuple.destination * 0x85EBCA6BU;
        Table &table = tables_[(hash >> 16) % nps];
        table.count(key_of(tuple.protocol, tuple.destination, tuple.destination_port),
                    packet.wire_length);
        table.count(key_of(tuple.destination), packet.wire_length);
    }

    const std::vector<vlc::CapturedPacket> &packets_;
    std::vector<Table> tables_;
    size_t place_ = 0;
};

vlc::CardConfig card_of_eight()
{
    vlc::CardConfig config;
    config.num_nps = nps;
    return config;
}

} // namespace

// data_plane_bench CAPTURE [options of the benchmarks]
int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: data_plane_bench CAPTURE [--benchmark_...]\n");
        return 2;
    }
    const bench::PacketsInMemory capture(argv[1]);
    bench::BenchCard card(card_of_eight());
    services::TrafficMeter meter;
    const std::vector<services::Destination> wanted = entries_for(capture);
    const auto programmed = meter.program(wanted, [&card](size_t, size_t) {
        card.run_events();
        return true;
    });
    if (!programmed.failure.empty()) {
        std::fprintf(stderr, "data_plane_bench: %s\n", programmed.failure.c_str());
        return 1;
    }
    card.run_events();

    const std::vector<vlc::CapturedPacket> &packets = capture.all();
    vlc::RunningCard &access = card.card().access();
    size_t place = 0;
    BareLoop bare(packets, wanted);
    bench::add_pair({.what = "packet through the data plane",
                     .reference = "parse and count",
                     .ours =
                         [&](size_t operations) {
                             for (size_t i = 0; i < operations; ++i) {
                                 access.process(packets[place]);
                                 place = place + 1 == packets.size() ? 0 : place + 1;
                             }
                         },
                     .other = [&bare](size_t operations) { bare(operations); },
                     .operations = 20000,
                     .gate = 3,
                     .aim = 2});
    argv[1] = argv[0];
    --argc;
    ++argv;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
