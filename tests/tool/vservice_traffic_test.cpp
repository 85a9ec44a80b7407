// Packets of interfaces whose virtual services are programmed: what leaves, and what the rows
// count.
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>

#include "vservice_tool.h"

namespace test {
namespace {

struct Count {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    bool operator==(const Count &) const = default;
};
using Counts = std::map<uint32_t, Count>; // of services that got packets

std::ostream &operator<<(std::ostream &out, const Count &count)
{
    return out << count.packets << " packets, " << count.bytes << " bytes";
}

class VserviceOutput : public VserviceTool {
protected:
    // What another program reads of the output, that finds nothing wrong with it.
    static Counts sent()
    {
        constexpr const char *fields =
            " -T fields -E occurrence=f -E separator=' ' -e frame.len -e udp.srcport -e ip.dst "
            "-e ip.checksum.status -e udp.checksum.status -e udp.length -e ip.len";
        FILE *pipe = popen((std::string(tshark) + fields + " 2>/tmp/tshark.err").c_str(), "r");
        Counts counts;
        char destination[32];
        unsigned length = 0, port = 0, ip_status = 0, udp_status = 0, udp_length = 0, ip_length = 0;
        while (fscanf(pipe, "%u %u %31s %u %u %u %u", &length, &port, destination, &ip_status,
                      &udp_status, &udp_length, &ip_length) == 7) {
            const uint32_t service = port - 40000;
            Count &count = counts[service];
            ++count.packets;
            count.bytes += length;
            EXPECT_EQ(destination,
                      is_local(service) ? "127.0.0.1" : "203.0.113." + std::to_string(service));
            EXPECT_EQ(ip_status, good);
            EXPECT_TRUE(udp_status == good || udp_status == none) << udp_status;
            EXPECT_EQ(ip_length, length);
            EXPECT_EQ(udp_length + 20, ip_length);
        }
        EXPECT_EQ(pclose(pipe), 0);
        expect_no_complaint();
        return counts;
    }

    static json run_traffic(const std::vector<std::string> &card)
    {
        std::vector<std::string> arguments{"run",        "--state",  state, "--pcap",
                                           real_capture, "--output", output};
        arguments.insert(arguments.end(), card.begin(), card.end());
        return report_of(arguments);
    }

    static uint64_t encapsulated(const json &run)
    {
        uint64_t packets = 0;
        for (const json &np : run["replayed"]["nps"])
            packets += np["encapsulated"]["packets"].get<uint64_t>();
        return packets;
    }

    static Counts hits(const json &shown)
    {
        Counts counts;
        for (const json &one : shown) {
            const Count all = count_of(one["hits"]);
            Count of_nps;
            for (const json &np : one["nps"]) {
                of_nps.packets += count_of(np["hits"]).packets;
                of_nps.bytes += count_of(np["hits"]).bytes;
            }
            EXPECT_EQ(of_nps, all) << one;
            if (all.packets > 0)
                counts[one["index"]] = all;
        }
        return counts;
    }

    static uint64_t packets(const Counts &counts)
    {
        uint64_t sum = 0;
        for (const auto &[service, count] : counts)
            sum += count.packets;
        return sum;
    }

private:
    static constexpr const char *tshark =
        "tshark -n -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -r /tmp/out.pcap";
    static constexpr unsigned good = 1; // a checksum's status
    static constexpr unsigned none = 3;

    static Count count_of(const json &hits) { return {hits["packets"], hits["bytes"]}; }

    // Neither of the file nor of a packet. The first line says who runs it.
    static void expect_no_complaint()
    {
        for (const std::string &line : lines_of(file_text("/tmp/tshark.err")))
            EXPECT_NE(line.find("Running as user"), std::string::npos) << line;
        const std::string command =
            std::string(tshark) +
            " -Y '_ws.malformed || _ws.expert.severity >= 0x600000' > /tmp/complaints 2>&1";
        EXPECT_EQ(system(command.c_str()), 0);
        const std::string complaints = file_text("/tmp/complaints");
        EXPECT_EQ(complaints.find("UDP"), std::string::npos) << complaints;
    }
};

struct CardForm {
    uint32_t nps;
    bool is_apart; // in a process of its own
};

class VserviceTraffic : public VserviceOutput, public testing::WithParamInterface<CardForm> {};

TEST_P(VserviceTraffic, OfARealCaptureLeavesAsTheRowsCountItOverTwoHundredServices)
{
    const bool is_apart = GetParam().is_apart;
    write_card(GetParam().nps);
    std::optional<CardChild> card;
    std::vector<std::string> card_options = {"--card", card_file};
    if (is_apart) {
        card.emplace(card_options);
        card_options = {"--connect", CardChild::socket};
    }
    const auto load_again = [&] {
        std::vector<std::string> arguments{"vservice", "load", services_file, "--state", state};
        arguments.insert(arguments.end(), card_options.begin(), card_options.end());
        return report_of(arguments, 1);
    };
    const auto shown = [is_apart] {
        std::vector<std::string> arguments{"show", "vservices", "--state", state};
        if (is_apart)
            arguments.insert(arguments.end(), {"--connect", CardChild::socket});
        return report_of(arguments)["vservices"];
    };
    EXPECT_EQ(load_again()["programmed"], supported);
    const json run = run_traffic(card_options);
    const Counts sent = this->sent();
    EXPECT_GE(sent.size(), 200u);
    EXPECT_EQ(encapsulated(run), packets(sent));
    EXPECT_EQ(hits(shown()), sent);
    // The counts stay through modifies, and go with their rows.
    EXPECT_EQ(load_again()["modified"], supported);
    EXPECT_EQ(hits(shown()), sent);
    std::vector<std::string> deleting{"vservice", "delete", "12", "--state", state};
    if (is_apart)
        deleting.insert(deleting.end(), card_options.begin(), card_options.end());
    EXPECT_EQ(report_of(deleting)["deleted"], 1);
    EXPECT_EQ(load_again()["programmed"], 1);
    Counts without_12 = sent;
    EXPECT_EQ(without_12.erase(12), 1u);
    EXPECT_EQ(hits(shown()), without_12);
}
INSTANTIATE_TEST_SUITE_P(Cards, VserviceTraffic,
                         testing::Values(CardForm{1, false}, CardForm{2, false}, CardForm{8, false},
                                         CardForm{1, true}, CardForm{2, true}, CardForm{8, true}),
                         [](const auto &form) {
                             return std::to_string(form.param.nps) + "Nps" +
                                    (form.param.is_apart ? "Apart" : "Embedded");
                         });

TEST_F(VserviceOutput, LeavesServicesWithoutPacketsThatTheToolNames)
{
    load();
    run_traffic({});
    const Counts sent = this->sent();
    std::string without;
    for (uint32_t i = 0; i < services; ++i) {
        if (!is_unsupported(i) && !sent.contains(i))
            without += " " + std::to_string(i);
    }
    EXPECT_EQ(without.rfind(" 0 1 2 4 5 6 7 8 9 10 241 ", 0), 0u) << without;
    const std::string text = inlinectl({"show", "vservices", "--state", state}).out;
    EXPECT_NE(text.find("\nProgrammed and without packets:" + without + "\n"), std::string::npos)
        << text;
    expect_clean_audit();
}

TEST_F(VserviceOutput, IsThereWithTheFilesToStartFrom)
{
    report_of({"vservice", "load", EXAMPLES "/vservices/example.toml", "--state", state, "--card",
               EXAMPLES "/cards/vservices.toml"});
    for (const char *capture : {"many-sources.pcap", "tagged-link.pcapng"})
        report_of({"run", "--state", state, "--pcap", std::string(CAPTURES "/") + capture});
    const json shown = shown_services();
    ASSERT_EQ(shown.size(), 2u);
    for (const json &one : shown)
        EXPECT_GT(one["hits"]["packets"], 100) << one;
}

TEST_F(VserviceOutput, GoesOnWithTheInterfacesOfAnotherCardFile)
{
    write_file(card_file, "[card]\nname = 'none yet'\n");
    load();
    run_traffic({});
    EXPECT_EQ(packets(sent()), 0u);
    write_card(2);
    load();
    run_traffic({});
    EXPECT_GT(packets(sent()), 500u);
}

TEST_F(VserviceOutput, ThatCannotBeIsRefusedBeforeAnythingIsMade)
{
    expect_refusal({"run", "--pcap", real_capture, "--output", "/no/such/out.pcap"},
                   "/no/such/out.pcap: cannot be written: No such file or directory");
    expect_refusal({"run", "--state", state, "--output", output},
                   "nothing goes out without traffic: give --pcap beside --output");
    expect_refusal({"run", "--pcap", real_capture, "--output", real_capture},
                   std::string("--output would overwrite the capture ") + real_capture);
    EXPECT_FALSE(std::filesystem::exists(state));
}

} // namespace
} // namespace test
