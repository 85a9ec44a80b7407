// `inlinectl inject` as a person meets it: the frame that it shows is the one that leaves.
#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "injection_console.h"
#include "started_host.h"
#include "tool_process.h"

using namespace test;
using nlohmann::json;

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

constexpr const char *state = "/tmp/state";

Outcome tool(Words arguments)
{
    return run_program({.program = INLINECTL, .arguments = std::move(arguments)});
}

Words inject_udp(const Words &more, const std::string &text = "hello")
{
    Words words = {"inject",    "udp",   "--tag",        "0x1234", "--src",
                   "192.0.2.1", "--dst", "198.51.100.7", "--text", text};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

json report_of(Words arguments, int exit_code = 0)
{
    arguments.emplace_back("--json");
    const Outcome outcome = tool(arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.err;
    return json::parse(outcome.out, nullptr, false);
}

// The frames of a port's file, in hexadecimal digits; what stands in front of each is of 16 bytes.
Words frames_in(const fs::path &file)
{
    const std::string bytes = file_text(file);
    Words frames;
    for (size_t at = 24; at + 16 <= bytes.size();) {
        uint32_t length = 0;
        memcpy(&length, bytes.data() + at + 8, sizeof length);
        std::string digits;
        char two[4];
        for (size_t i = 0; i < length; ++i) {
            snprintf(two, sizeof two, "%02x", static_cast<uint8_t>(bytes[at + 16 + i]));
            digits += (digits.empty() ? "" : " ") + std::string(two);
        }
        frames.push_back(digits);
        at += 16 + length;
    }
    return frames;
}

// Of a report, range by range; they must follow one another without a gap.
std::string bytes_of(const json &report)
{
    std::string bytes;
    size_t end = 0;
    for (const json &range : report.at("ranges")) {
        EXPECT_EQ(range.at("offset"), end);
        end += range.at("length").get<size_t>();
        bytes += (bytes.empty() ? "" : " ") + range.at("bytes").get<std::string>();
    }
    EXPECT_EQ(end, report.at("length"));
    return bytes;
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

class InjectCommand : public ::testing::Test {
protected:
    static void expect_refusal(const Words &arguments, const std::string &why)
    {
        const Outcome outcome = tool(arguments);
        EXPECT_EQ(outcome.exit_code, 2) << why;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "inlinectl: " + why + "\n");
    }
};

// ---- what it shows -----------------------------------------------------------------------------

TEST_F(InjectCommand, AFrameIsShownRangeByRange)
{
    const Outcome outcome = tool(inject_udp({}));
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out,
              "Frame of 105 bytes for CPU port 16, to NP 0\n"
              "\n"
              "offset  bytes                    part       what it is\n"
              "     0  00 65 7a 00 00           prefix     destination address, up to the NP\n"
              "     5  00                       prefix     destination address: NP 0\n"
              "     6  50 4c 4d 50 4e 54        prefix     source address\n"
              "    12  81 00                    prefix     802.1Q tag follows: 0x8100\n"
              "    14  05 02                    prefix     tag control: priority 0, VLAN 1282\n"
              "    16  82 34                    NP header  flag and tag 0x234\n"
              "    18  00 00 00 00              NP header  zero\n"
              "    22  0f 0e                    NP header  fixed, service packet: 0x0F0E\n"
              "    24  00 00 00 00 00 00 00 00  NP header  zero\n"
              "    32  00 00 00 00 00 00 00 00\n"
              "    40  00 00 00 00\n"
              "    44  47 03                    NP header  fixed: 0x4703\n"
              "    46  00                       NP header  zero\n"
              "    47  41 01                    NP header  fixed: 0x4101\n"
              "    49  00 00                    NP header  zero\n"
              "    51  1d                       NP header  fixed: 29\n"
              "    52  00 00 00                 NP header  zero\n"
              "    55  05 00                    NP header  payload length: 5\n"
              "    57  00 00 00 00 00 00 00 00  NP header  zero\n"
              "    65  00 00 00 00 00 00 00\n"
              "    72  45 40                    IPv4       version, header, service: 0x4540\n"
              "    74  00 01                    IPv4       total length, always 1\n"
              "    76  00 00 00 00              IPv4       identification and fragment, zero\n"
              "    80  02                       IPv4       time to live: 2\n"
              "    81  11                       IPv4       protocol: 17\n"
              "    82  00 00                    IPv4       checksum, not computed\n"
              "    84  c0 00 02 01              IPv4       source address 192.0.2.1\n"
              "    88  c6 33 64 07              IPv4       destination address 198.51.100.7\n"
              "    92  15 b3                    UDP        source port: 5555\n"
              "    94  10 04                    UDP        destination port: 4100\n"
              "    96  00 0d                    UDP        length: 13\n"
              "    98  00 00                    UDP        checksum, none\n"
              "   100  68 65 6c 6c 6f           payload    hello\n"
              "\n"
              "The library says spp_prep_bfd_pkt_and_xmt returned OK 0\n"
              "Sent\n");
}

TEST_F(InjectCommand, WhatItShowsIsWhatLeft)
{
    const json udp = report_of(inject_udp({"--state", state}));
    const json ip = report_of({"inject", "ip", "--state", state, "--tag", "0xABCD", "--hex",
                               "45:00 0014 0000 0000 40 3b"
                               " 0000 c0000201 c0000202"});
    EXPECT_EQ(frames_in("/tmp/state/cpu-port16.pcap"), (Words{bytes_of(udp), bytes_of(ip)}));
    for (const json &report : {udp, ip}) {
        EXPECT_EQ(report.at("sent"), true);
        EXPECT_EQ(report.at("port"), 16);
        EXPECT_EQ(report.at("np"), 0);
    }
    EXPECT_EQ(udp.at("said"), json({"spp_prep_bfd_pkt_and_xmt returned OK 0"}));
    EXPECT_EQ(ip.at("said"), json({"pkt sent"}));
}

TEST_F(InjectCommand, TheRangesOfAnIpPacketAreNamed)
{
    const json report = report_of({"inject", "ip", "--tag", "515", "--hex", "450000"});
    std::string told;
    for (const json &range : report.at("ranges"))
        told += range.at("part").get<std::string>() + ": " +
                range.at("meaning").get<std::string>() + "\n";
    EXPECT_EQ(told, "prefix: destination address, up to the NP\n"
                    "prefix: destination address: NP 0\n"
                    "prefix: source address\n"
                    "prefix: 802.1Q tag follows: 0x8100\n"
                    "prefix: tag control: priority 0, VLAN 1282\n"
                    "NP header: zero\n"
                    "NP header: fixed, IP packet: 0x0F8E\n"
                    "NP header: zero\n"
                    "NP header: fixed: 0x4709\n"
                    "NP header: zero\n"
                    "NP header: packet length: 3\n"
                    "NP header: tag: 515\n"
                    "NP header: zero\n"
                    "packet: 3 bytes\n");
}

TEST_F(InjectCommand, EveryLineFitsIntoATerminalOf80Columns)
{
    for (const Words &words :
         {inject_udp({}, std::string(40, 'x')),
          Words{"inject", "ip", "--tag", "65535", "--hex", "4500001400000000403b0000c0000201"}}) {
        for (const std::string &line : lines_of(tool(words).out))
            EXPECT_LE(line.size(), 80u) << line;
    }
}

// ---- where the bytes come from -----------------------------------------------------------------

TEST_F(InjectCommand, APayloadMayComeFromAFile)
{
    write_file("/tmp/payload", std::string("a\0b\xFF", 4));
    const json report = report_of(
        {"inject", "udp", "--src", "1.2.3.4", "--dst", "5.6.7.8", "--file", "/tmp/payload"});
    EXPECT_EQ(report.at("ranges").back().at("bytes"), "61 00 62 ff");
}

TEST_F(InjectCommand, AnEmptyPayloadIsSent)
{
    const json report = report_of(inject_udp({}, ""));
    EXPECT_EQ(report.at("sent"), true);
    EXPECT_EQ(report.at("length"), 100);
}

TEST_F(InjectCommand, TheFirstIpv4PacketOfACaptureIsSentWithoutItsLinkHeader)
{
    const json report =
        report_of({"inject", "ip", "--pcap", CAPTURES "/office-lan.pcap", "--state", state});
    const std::string packet = report.at("ranges").back().at("bytes");
    EXPECT_EQ(packet.substr(0, 2), "45");
    EXPECT_EQ(packet.size() / 3 + 1,
              std::stoul(packet.substr(6, 2) + packet.substr(9, 2), nullptr, 16))
        << "its own total length";
}

// ---- what goes wrong ---------------------------------------------------------------------------

TEST_F(InjectCommand, AnNpWithoutAPortSendsNothingAndSaysWhy)
{
    write_file("/tmp/card.toml", "[[cpu_port]]\nnp = 0\nport = 'none'\n");
    const Outcome outcome = tool(inject_udp({"--card", "/tmp/card.toml"}));
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, "The library says Error getting tsec port\nNot sent\n");
    const json report = report_of(inject_udp({"--card", "/tmp/card.toml"}), 1);
    EXPECT_EQ(report.at("sent"), false);
    EXPECT_FALSE(report.contains("ranges"));
}

TEST_F(InjectCommand, ACardThatSaysTheNpIsObeyed)
{
    write_file("/tmp/card.toml", "[card]\ntype = 0x280251\n[nps]\ninject_np = 1\n");
    const json udp = report_of(inject_udp({"--card", "/tmp/card.toml"}));
    const json ip = report_of({"inject", "ip", "--hex", "45", "--card", "/tmp/card.toml"});
    for (const json &report : {udp, ip}) {
        EXPECT_EQ(report.at("np"), 1);
        EXPECT_EQ(report.at("port"), 17);
    }
}

TEST_F(InjectCommand, ADeviceThatIsNotThereIsSaidBeforeAnythingIsMade)
{
    write_file("/tmp/card.toml", "[[cpu_port]]\nnp = 0\ndevice = 'nowhere0'\n");
    expect_refusal(inject_udp({"--card", "/tmp/card.toml", "--state", state}),
                   "CPU port 16: the device 'nowhere0' is not there");
    EXPECT_FALSE(fs::exists(state));
}

TEST_F(InjectCommand, WhatCannotBeIsRefused)
{
    expect_refusal({"inject"}, "nothing to do: say udp or ip");
    expect_refusal({"inject", "tcp"}, "unknown command 'tcp'; did you mean 'udp'?");
    expect_refusal({"inject", "udp", "--src", "1.2.3.4", "--dst", "5.6.7.8"},
                   "no bytes to send: give --text, --hex or --file");
    expect_refusal({"inject", "ip"}, "no bytes to send: give --hex, --file or --pcap");
    expect_refusal({"inject", "ip", "--hex", "45", "--file", "x"},
                   "give one of --hex, --file or --pcap, not several");
    expect_refusal({"inject", "udp", "--src", "1.2.3", "--dst", "5.6.7.8", "--text", "x"},
                   "--source is an IPv4 address such as 192.0.2.1");
    expect_refusal({"inject", "udp", "--src", "1.2.3.4", "--dst", "nobody", "--text", "x"},
                   "--destination is an IPv4 address such as 192.0.2.1");
    expect_refusal({"inject", "ip", "--hex", "45 0"},
                   "--hex is pairs of hexadecimal digits, and at its character 4 is none");
    expect_refusal({"inject", "ip", "--hex", "4g"},
                   "--hex is pairs of hexadecimal digits, and at its character 1 is none");
    expect_refusal({"inject", "ip", "--file", "/tmp/nothing"},
                   "/tmp/nothing: cannot be read: No such file or directory");
    expect_refusal(inject_udp({"--connect", "/tmp/socket"}),
                   "no place for the host: give --state beside --connect");
}

TEST_F(InjectCommand, MoreThanAFrameHoldsIsRefused)
{
    write_file("/tmp/long", std::string(65536 - 100, 'x'));
    EXPECT_EQ(tool({"inject", "udp", "--src", "1.2.3.4", "--dst", "5.6.7.8", "--file", "/tmp/long"})
                  .exit_code,
              0);
    write_file("/tmp/long", std::string(65536 - 99, 'x'));
    expect_refusal({"inject", "ip", "--file", "/tmp/long"},
                   "more than 65,436 bytes fit into no frame");
}

// ---- other deployments -------------------------------------------------------------------------

TEST_F(InjectCommand, ACardInAProcessOfItsOwnSendsTheFrame)
{
    const CardChild card;
    const json report =
        report_of(inject_udp({"--connect", CardChild::socket, "--state", "/tmp/host"}));
    EXPECT_EQ(report.at("sent"), true);
    EXPECT_EQ(frames_in(std::string(CardChild::state) + "/cpu-port16.pcap"),
              Words{bytes_of(report)});
    EXPECT_FALSE(fs::exists("/tmp/host/cpu-port16.pcap"));
}

// A host in a process of its own, which serves its console until it is killed.
class RunningHost {
public:
    RunningHost()
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        child_ = fork();
        if (child_ == 0)
            serve(ready[1]);
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~RunningHost()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    RunningHost(const RunningHost &) = delete;
    RunningHost &operator=(const RunningHost &) = delete;

private:
    [[noreturn]] static void serve(int ready)
    {
        vlc::CardClock::set_mode(vlc::ClockMode::real);
        inlinectl::StartedHost host(
            std::make_unique<vlc::VirtualLineCard>(vlc::CardConfig{}, state), state);
        inlinectl::offer_injections(host.card().console());
        if (write(ready, "r", 1) != 1)
            _exit(1);
        vlc::EventManager &events = host.card().events();
        events.after(std::chrono::hours(1), [] {}); // a console alone keeps no host going
        events.run_until([] { return false; });
        _exit(0);
    }
    pid_t child_ = -1;
};

TEST_F(InjectCommand, AHostThatRunsInTheDirectoryIsAsked)
{
    json report;
    {
        const RunningHost host;
        report = report_of(inject_udp({"--state", state}));
        EXPECT_EQ(report.at("sent"), true);
        EXPECT_EQ(tool(inject_udp({"--state", state})).out, tool(inject_udp({})).out);
    }
    EXPECT_EQ(frames_in("/tmp/state/cpu-port16.pcap"), Words(2, bytes_of(report)));
}

TEST_F(InjectCommand, AHostRefusesWhatIsNoRequest)
{
    const RunningHost host;
    vlc::ConsoleClient client(state);
    for (const char *request :
         {"", "{}", "[]", "no json",
          R"({"kind":"tcp","tag":0,"source":0,"destination":0,"bytes":""})",
          R"({"kind":"udp","tag":0,"source":0,"destination":0,"bytes":"0"})",
          R"({"kind":"udp","tag":"x","source":0,"destination":0,"bytes":""})"}) {
        const vlc::ConsoleAnswer answer = client.ask("inject", request);
        EXPECT_EQ(answer.status, 2u) << request;
        EXPECT_NE(answer.text, "");
    }
    EXPECT_FALSE(fs::exists("/tmp/state/cpu-port16.pcap"));
}

} // namespace
