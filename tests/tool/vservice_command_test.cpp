// `inlinectl vservice`: services in, and what is said of each.
#include <filesystem>

#include "vservice_tool.h"

namespace test {
namespace {

class VserviceCommand : public VserviceTool {
protected:
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
    expect_refusal({"vservice", "lod", services_file},
                   "unknown command 'lod'; did you mean 'load'?");
    expect_refusal({"vservice", "foo"},
                   "unknown command 'foo'; say add, delete, delete-all or load");
    expect_refusal({"vservice", "load"}, "file is required");
    expect_refusal({"vservice", "load", services_file}, "no card: give --state");
    expect_refusal({"vservice", "load", services_file, "another"}, "unexpected argument 'another'");
    expect_refusal({"vservice", "load", services_file, "--stat", state},
                   "unknown option '--stat'; did you mean '--state'?");
    expect_refusal({"vservice", "--state", state, "load", services_file},
                   "option '--state' belongs to load and stands behind it: "
                   "'inlinectl vservice load --state'");
    expect_refusal({"vservice", "delete", "-1", "--state", state},
                   "index: Value -1 not in range 0 to 4294967295");
    expect_refusal({"vservice", "delete", "all", "--state", state},
                   "index: Value all not in range 0 to 4294967295");
    expect_refusal({"vservice", "load", services_file, "--connect", "/tmp/none", "--state", state},
                   "/tmp/none: no card listens there: No such file or directory");
    std::vector<std::string> arguments = an_add(1);
    arguments.insert(arguments.end(), {"--encapsulation", "udp-locl"});
    expect_refusal(arguments, "unknown encapsulation 'udp-locl'; did you mean 'udp-local'?");
    arguments = an_add(1);
    arguments.insert(arguments.end(), {"--user", "x"});
    expect_refusal(arguments, "--user: Value x not in range 0 to 4294967295");
    arguments = an_add(1);
    arguments[9] = "65536";
    expect_refusal(arguments, "--source-port: Value 65536 not in range 0 to 65535");
    expect_refusal(an_add(1, ""), "--destination is needed; only udp-local does without");
    expect_refusal(an_add(1, "here"), "--destination is an IPv4 address such as 192.0.2.1");
    EXPECT_FALSE(std::filesystem::exists(state));
}

TEST_F(VserviceCommand, AFileThatIsNoneOrHasNoEndIsRefused)
{
    const auto refusal = [](const std::string &file, const std::string &why) {
        expect_refusal({"vservice", "load", file, "--state", state}, file + ": " + why);
    };
    refusal("/tmp/none.toml", "No such file or directory");
    refusal("/tmp", "is a directory");
    refusal("/dev/zero", "is longer than 64 MiB");
    EXPECT_FALSE(std::filesystem::exists(state));
}

TEST_F(VserviceCommand, AReportThatCannotBeWrittenIsAFailure)
{
    const Outcome outcome =
        run_program({.program = INLINECTL, .arguments = an_add(1), .out_file = "/dev/full"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: the report could not be written\n");
}

TEST_F(VserviceCommand, AFileThatIsBrokenIsRefusedWithItsPlaceAndNothingIsMade)
{
    expect_file_refusal("[[vservice]]\nindx = 1\n",
                        ":2:1: unknown key 'indx'; did you mean 'index'?");
    expect_file_refusal("[[vservice]]\nindex = -1\n",
                        ":2:9: 'index' is -1, and must be 0 to 4294967295");
    expect_file_refusal("[[vservice]]\nsource_port = 65536\n",
                        ":2:15: 'source_port' is 65536, and must be 0 to 65535");
    expect_file_refusal("[[vservice]]\nencapsulation = 'upd'\n",
                        ":2:17: unknown encapsulation 'upd'; did you mean 'udp'?");
    expect_file_refusal("[[vservice]]\nencapsulation = true\n",
                        ":2:17: 'encapsulation' is \"udp\", \"udp-local\" or a whole number");
    expect_file_refusal("[[vservice]]\nsource = 'x'\n",
                        ":2:10: 'source' is an IPv4 address such as \"192.0.2.1\"");
    expect_file_refusal("[[vservice]]\nindex = 1\n", ":1:1: a vservice without 'source'");
    expect_file_refusal("[[vservice]]\nindex = 1.5\n",
                        ":2:9: 'index' is a whole number, 0 to 4294967295");
    expect_file_refusal("[[vservice]]\nsource = 3\n",
                        ":2:10: 'source' is a text that is not empty");
    expect_file_refusal("[[vservice]]\nindex = 1\nindex = 2\n",
                        ":3:9: Error while parsing key-value pair: cannot redefine existing "
                        "integer 'index'");
    expect_file_refusal("[vservice]\nindex = 1\n",
                        ":1:1: 'vservice' is a list of tables, each written as [[vservice]]");
    expect_file_refusal("vservice = [1]\n",
                        ":1:12: 'vservice' is a list of tables, each written as [[vservice]]");
    expect_file_refusal("[[vservices]]\n",
                        ":1:3: unknown key 'vservices'; did you mean 'vservice'?");
    expect_file_refusal("x = 1\n", ":1:1: unknown key 'x'");
    expect_file_refusal("", ": no [[vservice]] in it");
}

} // namespace
} // namespace test
