// `inlinectl vservice` and `inlinectl show`: services in, packets out, and what is seen of them.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "tool_process.h"

namespace {

using nlohmann::json;
using test::CardChild;
using test::Outcome;

constexpr const char *state = "/tmp/state";
constexpr const char *card_file = "/tmp/card.toml";
constexpr const char *services_file = "/tmp/services.toml";
constexpr const char *output = "/tmp/out.pcap";
constexpr const char *real_capture = CAPTURES "/many-sources.pcap";

constexpr uint32_t services = 256;
constexpr uint32_t records = services + 2; // two that cannot be
bool is_unsupported(uint32_t index)
{
    return index % 16 == 3;
}
bool is_local(uint32_t index)
{
    return index % 16 == 5;
}
constexpr uint32_t unsupported = services / 16;
constexpr uint32_t supported = services - unsupported;

void write_file(const char *path, const std::string &text)
{
    std::ofstream(path) << text;
}

// Each service takes the packets of one address of the captured network.
void write_card(uint32_t nps)
{
    std::string text = "[nps]\ncount = " + std::to_string(nps) + "\n";
    for (uint32_t i = 0; i < services; ++i) {
        const std::string number = std::to_string(i);
        text += "[[interface]]\nhandle = " + std::to_string(0x1000 + i) + "\nuidb = " + number +
                "\npic = 7\nsource = '198.18.100." + number + "'\nvservice = " + number + "\n";
    }
    write_file(card_file, text);
}

void write_services()
{
    std::string text;
    for (uint32_t i = 0; i < records; ++i) {
        const std::string number = std::to_string(i);
        const char *encapsulation = is_unsupported(i) ? "2" : is_local(i) ? "'udp-local'" : "'udp'";
        text += "[[vservice]]\nindex = " + number + "\nencapsulation = " + encapsulation +
                "\nuser = " + std::to_string(i % 5) +
                "\nsource = '198.51.100.1'\ndestination = " + "'203.0.113." +
                std::to_string(i % 256) + "'\nsource_port = " + std::to_string(40000 + i) +
                "\ndestination_port = 14789\n";
    }
    write_file(services_file, text);
}

Outcome inlinectl(std::vector<std::string> arguments)
{
    return test::run_program({.program = INLINECTL, .arguments = std::move(arguments)});
}

json report_of(std::vector<std::string> arguments, int exit_code = 0)
{
    arguments.emplace_back("--json");
    const Outcome outcome = inlinectl(arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.err;
    return json::parse(outcome.out);
}

json load(int exit_code = 1)
{
    return report_of({"vservice", "load", services_file, "--state", state, "--card", card_file},
                     exit_code);
}

std::vector<std::string> an_add(uint32_t index, const std::string &destination = "203.0.113.9")
{
    return {"vservice",
            "add",
            "--state",
            state,
            "--index",
            std::to_string(index),
            "--source",
            "198.51.100.1",
            "--source-port",
            "4000",
            "--destination",
            destination,
            "--destination-port",
            "4789"};
}

json shown_services()
{
    return report_of({"show", "vservices", "--state", state})["vservices"];
}

class VserviceCommand : public ::testing::Test {
protected:
    VserviceCommand()
    {
        for (const char *path : {state, output, CardChild::state, CardChild::socket})
            std::filesystem::remove_all(path);
        write_card(2);
        write_services();
    }
    static void expect_clean_audit()
    {
        const Outcome audit = inlinectl({"audit", "--state", state});
        EXPECT_EQ(audit.exit_code, 0) << audit.out << audit.err;
    }
    static void expect_refusal(const std::vector<std::string> &arguments, const std::string &why)
    {
        const Outcome outcome = inlinectl(arguments);
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.err, "inlinectl: " + why + "\n");
        EXPECT_EQ(outcome.out, "");
    }
    static void expect_file_refusal(const std::string &text, const std::string &why)
    {
        write_file(services_file, text);
        expect_refusal({"vservice", "load", services_file, "--state", state}, services_file + why);
        EXPECT_FALSE(std::filesystem::exists(state));
    }
};

// ---- feeding

TEST_F(VserviceCommand, ALoadProgramsWhatIsSupportedAndSaysWhyItSkipsTheRest)
{
    const json report = load();
    EXPECT_EQ(report["programmed"], supported);
    EXPECT_EQ(report["modified"], 0);
    EXPECT_EQ(report["programmed_now"], supported);
    ASSERT_EQ(report["vservices"].size(), records);
    for (uint32_t i = 0; i < records; ++i) {
        const json &one = report["vservices"][i];
        const json said = i >= services       ? json{"invalid index " + std::to_string(i)}
                          : is_unsupported(i) ? json{"vmsg:unsupported encap"}
                                              : json::array();
        EXPECT_EQ(one["index"], i);
        EXPECT_EQ(one["came"], said.empty() ? "programmed" : "skipped");
        EXPECT_EQ(one["said"], said);
    }
    expect_clean_audit();
}

TEST_F(VserviceCommand, ASecondLoadModifiesOnly)
{
    load();
    const json report = load();
    EXPECT_EQ(report["programmed"], 0);
    EXPECT_EQ(report["modified"], supported);
    expect_clean_audit();
}

TEST_F(VserviceCommand, ALoadOfGoodRecordsAloneIsFine)
{
    write_file(services_file, "[[vservice]]\nindex = 1\nsource = '192.0.2.1'\n"
                              "destination = '192.0.2.2'\nsource_port = 1\ndestination_port = 2\n");
    const json report = load(0);
    EXPECT_EQ(report["vservices"][0]["encapsulation"], "udp");
    EXPECT_EQ(report["vservices"][0]["user"], 1);
    EXPECT_EQ(report["vservices"][0]["destination"], "192.0.2.2:2");
}

TEST_F(VserviceCommand, ADeleteLeavesNoEntryAndItsOwnServiceAlone)
{
    load();
    json report = report_of({"vservice", "delete", "0", "1", "3", "--state", state});
    EXPECT_EQ(report["deleted"], 2); // 3 was never programmed
    EXPECT_EQ(report["programmed_now"], supported - 2);
    std::vector<std::string> all{"vservice", "delete", "--state", state};
    for (uint32_t i = 0; i < services; ++i)
        all.push_back(std::to_string(i));
    report = report_of(all);
    EXPECT_EQ(report["deleted"], supported - 2);
    EXPECT_EQ(report["programmed_now"], 0);
    EXPECT_EQ(shown_services(), json::array());
    expect_clean_audit();
}

TEST_F(VserviceCommand, ADeleteOfAnIndexThatCannotBeIsSkippedWithTheReason)
{
    const json report = report_of({"vservice", "delete", "256", "--state", state}, 1);
    EXPECT_EQ(report["vservices"][0]["came"], "skipped");
    EXPECT_EQ(report["vservices"][0]["said"], json{"invalid index 256"});
}

TEST_F(VserviceCommand, DeleteAllIsTakenInAndChangesNothing)
{
    load();
    const json before = shown_services();
    EXPECT_EQ(report_of({"vservice", "delete-all", "--state", state})["programmed_now"], supported);
    EXPECT_EQ(shown_services(), before);
}

TEST_F(VserviceCommand, AnAddWithAnotherUserModifiesTheSameRow)
{
    EXPECT_EQ(inlinectl(an_add(7)).exit_code, 0);
    std::vector<std::string> arguments = an_add(7, "203.0.113.77");
    arguments.insert(arguments.end(), {"--user", "2"});
    const json report = report_of(arguments);
    EXPECT_EQ(report["modified"], 1);
    const json entry = report_of({"show", "entry", "775", "--state", state});
    ASSERT_EQ(entry["entries"].size(), 1u);
    EXPECT_EQ(entry["entries"][0]["encapsulation"]["destination"], "203.0.113.77:4789");
    for (const json &np : entry["entries"][0]["nps"])
        EXPECT_EQ(np["as_stored"], true);
    expect_clean_audit();
}

// ---- bad input

TEST_F(VserviceCommand, BadWordsAreRefusedAndNothingIsMade)
{
    expect_refusal({"vservice"}, "nothing to do: say add, delete, delete-all or load");
    expect_refusal({"vservice", "load", services_file}, "no card: give --state");
    std::vector<std::string> arguments = an_add(1);
    arguments.insert(arguments.end(), {"--encapsulation", "udp-locl"});
    expect_refusal(arguments, "unknown encapsulation 'udp-locl'; did you mean 'udp-local'?");
    expect_refusal(an_add(1, "here"), "--destination is an IPv4 address such as 192.0.2.1");
    expect_refusal({"show"}, "nothing to show: say attributes, vservices or entry");
    expect_refusal({"show", "vservices"}, "nothing to look into: give --state");
    EXPECT_FALSE(std::filesystem::exists(state));
}

TEST_F(VserviceCommand, AFileThatIsBrokenIsRefusedWithItsPlaceAndNothingIsMade)
{
    expect_file_refusal("[[vservice]]\nindx = 1\n",
                        ":2:1: unknown key 'indx'; did you mean 'index'?");
    expect_file_refusal("[[vservice]]\nindex = -1\n",
                        ":2:9: 'index' is a number from 0 to 4294967295");
    expect_file_refusal("[[vservice]]\nsource_port = 65536\n",
                        ":2:15: 'source_port' is a number from 0 to 65535");
    expect_file_refusal("[[vservice]]\nencapsulation = 'upd'\n",
                        ":2:17: unknown encapsulation 'upd'; did you mean 'udp'?");
    expect_file_refusal("[[vservice]]\nsource = 'x'\n",
                        ":2:10: 'source' is an IPv4 address such as \"192.0.2.1\"");
    expect_file_refusal("[[vservice]]\nindex = 1\n", ":1:1: a vservice without 'source'");
    expect_file_refusal("x = 1\n", ":1:1: unknown key 'x'");
    expect_file_refusal("", ": no [[vservice]] in it");
}

// ---- showing

TEST_F(VserviceCommand, AKeyWithoutAnEntryIsSaid)
{
    load();
    const Outcome outcome = inlinectl({"show", "entry", "5", "--state", state});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: nothing is stored under key 5\n");
}

TEST_F(VserviceCommand, ADirectoryWithoutAStateIsRefused)
{
    EXPECT_EQ(inlinectl({"show", "vservices", "--state", "/tmp/none"}).exit_code, 2);
}

TEST_F(VserviceCommand, AttributesAreShownWithTheCardFilesInterfaces)
{
    load();
    const json shown = report_of({"show", "attributes", "--state", state})["attributes"];
    ASSERT_EQ(shown.size(), services);
    EXPECT_EQ(shown[9]["uidb"], 9);
    EXPECT_EQ(shown[9]["app_type"], 0);
    EXPECT_EQ(shown[9]["interface"]["handle"], 0x1009);
    EXPECT_EQ(shown[9]["interface"]["pic"], 7);
}

TEST_F(VserviceCommand, ShowingChangesNothingAndTakesNoLock)
{
    load();
    const auto mark = std::filesystem::last_write_time(std::string(state) + "/virtual-line-card");
    const std::string before = test::file_text(std::string(state) + "/window");
    for (const char *view : {"attributes", "vservices"})
        EXPECT_EQ(inlinectl({"show", view, "--state", state}).exit_code, 0);
    EXPECT_EQ(test::file_text(std::string(state) + "/window"), before);
    EXPECT_EQ(std::filesystem::last_write_time(std::string(state) + "/virtual-line-card"), mark);
}

// ---- traffic

struct Sent {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    std::set<uint32_t> source_ports;
    uint64_t bad = 0;
};

Sent sent_as_tshark_reads_it()
{
    const std::string command =
        "tshark -n -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -r " + std::string(output) +
        " -T fields -E occurrence=f -E separator=' ' -e frame.len -e udp.srcport -e ip.dst "
        "-e ip.checksum.status -e udp.checksum.status 2>/dev/null";
    FILE *pipe = popen(command.c_str(), "r");
    Sent sent;
    char destination[32];
    unsigned length = 0;
    unsigned port = 0;
    unsigned ip_status = 0;
    unsigned udp_status = 0;
    // 1 is good, 3 that there is none.
    while (fscanf(pipe, "%u %u %31s %u %u", &length, &port, destination, &ip_status, &udp_status) ==
           5) {
        ++sent.packets;
        sent.bytes += length;
        sent.source_ports.insert(port);
        const uint32_t service = port - 40000;
        const std::string expected =
            is_local(service) ? "127.0.0.1" : "203.0.113." + std::to_string(service);
        sent.bad += ip_status != 1 || (udp_status != 1 && udp_status != 3) ? 1 : 0;
        EXPECT_EQ(destination, expected);
    }
    EXPECT_EQ(pclose(pipe), 0);
    return sent;
}

void expect_hits_of(const Sent &sent, const json &shown)
{
    Sent hit;
    for (const json &one : shown) {
        hit.packets += one["hits"]["packets"].get<uint64_t>();
        hit.bytes += one["hits"]["bytes"].get<uint64_t>();
        if (one["hits"]["packets"] > 0)
            hit.source_ports.insert(40000 + one["index"].get<uint32_t>());
        uint64_t of_nps = 0;
        for (const json &np : one["nps"])
            of_nps += np["hits"]["packets"].get<uint64_t>();
        EXPECT_EQ(of_nps, one["hits"]["packets"]);
    }
    EXPECT_EQ(hit.packets, sent.packets);
    EXPECT_EQ(hit.bytes, sent.bytes);
    EXPECT_EQ(hit.source_ports, sent.source_ports);
}

class VserviceTraffic : public VserviceCommand, public testing::WithParamInterface<uint32_t> {};

TEST_P(VserviceTraffic, OfARealCaptureLeavesAsTheRowsCountItOverTwoHundredServices)
{
    write_card(GetParam());
    load();
    const json run =
        report_of({"run", "--state", state, "--pcap", real_capture, "--output", output});
    const Sent sent = sent_as_tshark_reads_it();
    EXPECT_EQ(sent.bad, 0u);
    EXPECT_GE(sent.source_ports.size(), 200u);
    uint64_t encapsulated = 0;
    for (const json &np : run["replayed"]["nps"])
        encapsulated += np["encapsulated"]["packets"].get<uint64_t>();
    EXPECT_EQ(encapsulated, sent.packets);
    expect_hits_of(sent, shown_services());
    const Outcome text = inlinectl({"show", "vservices", "--state", state});
    EXPECT_NE(text.out.find("\nProgrammed and without packets: 0 1 2 4 5 6 7 8 9 10 241 "),
              std::string::npos)
        << text.out;
    expect_clean_audit();
    // The counts stay through modifies, and go with their rows.
    load();
    expect_hits_of(sent, shown_services());
    report_of({"vservice", "delete", "12", "--state", state});
    load();
    EXPECT_EQ(report_of({"show", "entry", "780", "--state",
                         state})["entries"][0]["nps"][0]["hits"]["packets"],
              0);
}
INSTANTIATE_TEST_SUITE_P(Nps, VserviceTraffic, testing::Values(1, 2, 8));

TEST_F(VserviceCommand, TheSameLeavesACardInAProcessOfItsOwn)
{
    const CardChild card({"--card", card_file});
    const Outcome loaded = inlinectl(
        {"vservice", "load", services_file, "--connect", CardChild::socket, "--state", state});
    EXPECT_EQ(loaded.exit_code, 1) << loaded.err; // some are skipped
    report_of({"run", "--connect", CardChild::socket, "--state", state, "--pcap", real_capture,
               "--output", output});
    const Sent sent = sent_as_tshark_reads_it();
    EXPECT_EQ(sent.bad, 0u);
    EXPECT_GE(sent.source_ports.size(), 200u);
    const json shown = report_of(
        {"show", "vservices", "--state", state, "--connect", CardChild::socket})["vservices"];
    expect_hits_of(sent, shown);
    EXPECT_EQ(report_of({"show", "vservices", "--state", state, "--card-state",
                         CardChild::state})["vservices"],
              shown);
    expect_refusal({"show", "vservices", "--state", state},
                   std::string(state) + ": is a host's alone; say where its card is with "
                                        "--card-state or --connect");
}

TEST_F(VserviceCommand, AStateGoesOnWithTheInterfacesOfAnotherCardFile)
{
    write_file(card_file, "[card]\nname = 'none yet'\n");
    load();
    report_of({"run", "--state", state, "--pcap", real_capture, "--output", output});
    EXPECT_EQ(sent_as_tshark_reads_it().packets, 0u);
    write_card(2);
    load();
    report_of({"run", "--state", state, "--pcap", real_capture, "--output", output});
    EXPECT_GT(sent_as_tshark_reads_it().packets, 500u);
}

TEST_F(VserviceCommand, AnOutputThatCannotBeIsRefusedBeforeAnythingIsMade)
{
    expect_refusal({"run", "--pcap", real_capture, "--output", "/no/such/out.pcap"},
                   "/no/such/out.pcap: cannot be written: No such file or directory");
    expect_refusal({"run", "--state", state, "--output", output},
                   "nothing goes out without traffic: give --pcap beside --output");
    expect_refusal({"run", "--pcap", real_capture, "--output", real_capture},
                   std::string("--output would overwrite the capture ") + real_capture);
}

} // namespace
