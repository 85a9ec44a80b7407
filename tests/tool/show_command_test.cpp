// `inlinectl show`: what a window and its card hold, told by a process that is no host.
#include <cstring>
#include <filesystem>

#include "host_on_card.h"
#include "inline_service_attributes.h"
#include "lookup_keys.h"
#include "vservice_feeder.h"
#include "vservice_tool.h"

namespace test {
namespace {

class ShowCommand : public VserviceTool {
protected:
    static std::string shown(const std::vector<std::string> &view)
    {
        std::vector<std::string> arguments{"show"};
        arguments.insert(arguments.end(), view.begin(), view.end());
        arguments.insert(arguments.end(), {"--state", state});
        const Outcome outcome = inlinectl(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.out;
    }
    // Three of the file, one of them skipped.
    static void load_three()
    {
        write_file(services_file, text_of_service(2) + text_of_service(3) + text_of_service(5));
        load();
    }
};

// ---- text

TEST_F(ShowCommand, TellsServicesWithTheirStateAndHits)
{
    load_three();
    EXPECT_EQ(shown({"vservices"}),
              "index  encap      user  source              destination        state       packets  "
              "bytes\n"
              "    2  udp           2  198.51.100.1:40002  203.0.113.2:14789  programmed        0  "
              "    0\n"
              "    3  2             3  198.51.100.1:40003  203.0.113.3:14789  configured        0  "
              "    0\n"
              "    5  udp-local     0  198.51.100.1:40005  127.0.0.1:14789    programmed        0  "
              "    0\n"
              "                                                                                 0  "
              "    0\n"
              "\n"
              "2 services are programmed; 0 got packets\n"
              "Programmed and without packets: 2 5\n");
}

TEST_F(ShowCommand, TellsAnEntryWithEachNpsRow)
{
    load_three();
    EXPECT_EQ(shown({"entry", "773"}),
              "Key      773 (vservice 5), application type 4, id 5\n"
              "Version  0x0, tag 0, application ID 0\n"
              "Entries  1\n"
              "\n"
              "entry       0\n"
              "  table     service config\n"
              "  key       13 03 05 (vservice 5)\n"
              "  result    00 00 00 00 02 11 01 01 00 00 00 00 c6 33 64 01 7f 00 00 01 9c 45 39 c5 "
              "00 00 00 00 00 00 00 00\n"
              "            encapsulates in udp from 198.51.100.1:40005 to 127.0.0.1:14789\n"
              "  hw index  0xffffffff\n"
              "  NP 0      as stored, hit by 0 packets, 0 bytes\n"
              "  NP 1      as stored, hit by 0 packets, 0 bytes\n");
}

TEST_F(ShowCommand, SaysThatNothingIsThere)
{
    write_file(card_file, "");
    write_file(services_file, text_of_service(256));
    load();
    EXPECT_EQ(shown({"attributes"}), "No interface has attributes.\n");
    EXPECT_EQ(shown({"vservices"}), "No virtual service is configured.\n");
    for (const char *view : {"attributes", "vservices"})
        EXPECT_EQ(report_of({"show", view, "--state", state})[view], json::array());
}

// ---- JSON

TEST_F(ShowCommand, TellsProgramsTheSame)
{
    load_three();
    const json shown = shown_services();
    ASSERT_EQ(shown.size(), 3u);
    const json row = json::parse(R"({"np": 0, "row": true, "as_stored": true,
                                     "hits": {"packets": 0, "bytes": 0}})");
    EXPECT_EQ(shown[0]["nps"][0], row);
    EXPECT_EQ(shown[0]["programmed"], true);
    EXPECT_EQ(shown[0]["takes_traffic"], true);
    EXPECT_EQ(shown[1]["programmed"], false);
    EXPECT_EQ(shown[1]["encapsulation"], "2");
    EXPECT_EQ(shown[2]["destination"], "127.0.0.1:14789");
    const json entry = report_of({"show", "entry", "773", "--state", state});
    EXPECT_EQ(entry["application_type"], 4);
    EXPECT_EQ(entry["application_id"], 5);
    EXPECT_EQ(entry["entries"][0]["nps"][0], row);
    EXPECT_EQ(entry["entries"][0]["encapsulation"],
              json::parse(R"({"protocol": "udp", "source": "198.51.100.1:40005",
                              "destination": "127.0.0.1:14789"})"));
}

TEST_F(ShowCommand, TellsTheCardFilesInterfacesWithoutAttributesToo)
{
    load_three();
    const json attributes = report_of({"show", "attributes", "--state", state})["attributes"];
    ASSERT_EQ(attributes.size(), services);
    EXPECT_EQ(attributes[9]["uidb"], 9);
    EXPECT_EQ(attributes[9]["app_type"], 0);
    EXPECT_EQ(attributes[9]["interface"], json::parse(R"({"handle": 4105, "pic": 7})"));
}

// ---- beside a host that is up

class ShowBesideAHost : public HostOnCard {
protected:
    ShowBesideAHost()
    {
        open_card();
        start_host();
    }
    static std::string shown(std::vector<std::string> view)
    {
        view.insert(view.begin(), "show");
        view.insert(view.end(), {"--state", card_directory});
        const Outcome outcome = run_program({.program = INLINECTL, .arguments = view});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.out;
    }
    void program_service_7()
    {
        vservice_config service{};
        service.vs_index = 7;
        service.encap = VSERVICE_ENCAP_UDP;
        services::VserviceFeeder().add(service);
        run_events();
    }
    vlc::NpTable &rows_of_np_1() { return card->nps()[1].table(vlc::TableKind::service_config); }

    static constexpr auto key_of_service_7 =
        lookup_keys::service_key(lookup_keys::shadow_key_of_vservice(7));
};

TEST_F(ShowBesideAHost, TellsEachAttributeAsItIsSet)
{
    inline_api_set_uidb_to_app(3, 4095, 0xFFFF);
    inline_api_set_slot_iftype(4095, 7, 0x80000001);
    inline_api_set_dirty_bit(4095);
    inline_api_set_uidb_to_vqi(10, 12);
    EXPECT_EQ(shown({"attributes"}),
              "uidb  app type  app ID  vqi  slot      iftype  dirty  handle  PIC\n"
              "  10         0       0   12     0           0      0       -    -\n"
              "4095         3   65535    0     7  2147483649      1       -    -\n");
    inline_api_reset_dirty_bit(4095);
    inline_api_set_uidb_to_app(3, 4095, 0);
    inline_api_set_uidb_to_vqi(10, 0);
    const auto report = nlohmann::json::parse(shown({"attributes", "--json"}));
    EXPECT_EQ(report, nlohmann::json::parse(R"({"attributes": [
        {"uidb": 4095, "app_type": 0, "app_ID": 0, "vqi": 0, "slot": 7, "iftype": 2147483649,
         "dirty": 0, "interface": null}]})"));
}

TEST_F(ShowBesideAHost, SaysWhichNpHasNoRow)
{
    program_service_7();
    ASSERT_EQ(rows_of_np_1().remove(key_of_service_7), vlc::TableOutcome::done);
    const std::string text = shown({"entry", "775"});
    EXPECT_NE(text.find("  NP 0      as stored, hit"), std::string::npos) << text;
    EXPECT_NE(text.find("  NP 1      no row, hit by 0 packets"), std::string::npos) << text;
}

TEST_F(ShowBesideAHost, SaysWhichNpsRowDiffers)
{
    program_service_7();
    constexpr uint8_t other[] = {1, 2, 3, 4};
    ASSERT_EQ(rows_of_np_1().modify(key_of_service_7, other), vlc::TableOutcome::done);
    const std::string text = shown({"entry", "775"});
    EXPECT_NE(text.find("  NP 0      as stored, hit"), std::string::npos) << text;
    EXPECT_NE(text.find("  NP 1      differs, hit"), std::string::npos) << text;
}

TEST_F(ShowBesideAHost, RefusesAShadowDbThatCannotBeFollowed)
{
    program_service_7();
    host->root()->main_table[775]->table_array[0].first = reinterpret_cast<list_link *>(0x1000);
    const Outcome outcome = run_program(
        {.program = INLINECTL, .arguments = {"show", "vservices", "--state", card_directory}});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err,
              "inlinectl: /tmp/card: the shadow DB is damaged; see 'inlinectl audit'\n");
}

TEST_F(ShowBesideAHost, RefusesATableThatLeadsOutOfTheWindow)
{
    host->root()->uidb_attr_table = reinterpret_cast<uidb_attribute *>(0x1000);
    const Outcome outcome = run_program(
        {.program = INLINECTL, .arguments = {"show", "attributes", "--state", card_directory}});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err,
              "inlinectl: /tmp/card: the window's table of attributes leads out of it\n");
}

// ---- what cannot be shown

TEST_F(ShowCommand, RefusesBadWords)
{
    expect_refusal({"show"}, "nothing to show: say attributes, vservices, flows, entry, shadow, "
                             "counters, sites or trace");
    expect_refusal({"show", "vservice"}, "unknown command 'vservice'; did you mean 'vservices'?");
    expect_refusal({"show", "tables"}, "unknown command 'tables'; say attributes, vservices, "
                                       "flows, entry, shadow, counters, sites or trace");
    expect_refusal({"show", "vservices"}, "nothing to look into: give --state");
    expect_refusal({"show", "entry", "--state", state}, "key is required");
    expect_refusal({"show", "entry", "1024", "--state", state},
                   "key: Value 1024 not in range 0 to 1023");
    expect_refusal({"show", "entry", "5", "6", "--state", state}, "unexpected argument '6'");
    expect_refusal({"show", "vservices", "--state", state, "--connect", "a", "--card-state", "b"},
                   "--card-state and --connect are two places of one card: give one");
}

TEST_F(ShowCommand, RefusesWhatIsNoState)
{
    expect_refusal({"show", "vservices", "--state", state},
                   "/tmp/state: cannot be opened: No such file or directory");
    std::filesystem::create_directory(state);
    expect_refusal({"show", "vservices", "--state", state},
                   "/tmp/state: is not the state of a virtual line card: it has no file "
                   "'virtual-line-card'");
    expect_refusal({"show", "vservices", "--state", card_file}, "/tmp/card.toml: is no directory");
}

TEST_F(ShowCommand, RefusesACardsStateAndAnotherCardsHost)
{
    const CardChild card({"--nps", "4"});
    load_three();
    expect_refusal({"show", "vservices", "--state", state, "--connect", CardChild::socket},
                   "/tmp/state: is the host of another card");
    const Outcome outcome = inlinectl({"show", "vservices", "--state", CardChild::state});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_NE(outcome.err.find("/tmp/card-state: "), std::string::npos) << outcome.err;
}

TEST_F(ShowCommand, WantsToKnowWhereTheCardOfAHostIs)
{
    const CardChild card({"--card", card_file});
    EXPECT_EQ(inlinectl({"vservice", "load", services_file, "--connect", CardChild::socket,
                         "--state", state})
                  .exit_code,
              1); // some are skipped
    expect_refusal({"show", "vservices", "--state", state},
                   "/tmp/state: is a host's alone; say where its card is with --card-state or "
                   "--connect");
    const json shown = report_of(
        {"show", "vservices", "--state", state, "--connect", CardChild::socket})["vservices"];
    EXPECT_EQ(shown.size(), services);
    EXPECT_EQ(report_of({"show", "vservices", "--state", state, "--card-state",
                         CardChild::state})["vservices"],
              shown);
}

TEST_F(ShowCommand, SaysThatAKeyHasNoEntry)
{
    load_three();
    const Outcome outcome = inlinectl({"show", "entry", "5", "--state", state});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: nothing is stored under key 5\n");
    EXPECT_EQ(outcome.out, "");
}

TEST_F(ShowCommand, FailsWhenItsReportCannotBeWritten)
{
    load_three();
    const Outcome outcome = run_program({.program = INLINECTL,
                                         .arguments = {"show", "vservices", "--state", state},
                                         .out_file = "/dev/full"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_NE(outcome.err.find("the report could not be written"), std::string::npos);
}

TEST_F(ShowCommand, ChangesNothing)
{
    load_three();
    const auto mark = std::filesystem::last_write_time(std::string(state) + "/virtual-line-card");
    const std::string before = file_text(std::string(state) + "/window");
    for (const char *view : {"attributes", "vservices"})
        shown({view});
    EXPECT_EQ(file_text(std::string(state) + "/window"), before);
    EXPECT_EQ(std::filesystem::last_write_time(std::string(state) + "/virtual-line-card"), mark);
}

} // namespace
} // namespace test
