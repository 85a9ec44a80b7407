// `inlinectl vservice` where things go wrong: it is killed or interrupted, its card is, the window
// is full, the hardware refuses, the state is damaged.
#include <csignal>
#include <filesystem>
#include <thread>

#include "host_on_card.h"
#include "inline_service_shadowdb.h"
#include "vlc/card_access.h"
#include "vservice_tool.h"

namespace test {
namespace {

class VserviceTrouble : public VserviceTool {
protected:
    static constexpr uint32_t more_records = 4 * records; // than are fed when something happens

    // Acts when NP 0 has so many rows.
    static auto when(uint32_t rows, std::function<void(pid_t)> act, bool card_is_apart = false)
    {
        return [=](pid_t process) {
            while (rows_of_np_0(card_is_apart) < rows && kill(process, 0) == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            act(process);
        };
    }
    static uint32_t rows_of_np_0(bool card_is_apart)
    {
        uint32_t rows = 0;
        try {
            const auto card = card_is_apart ? vlc::look_into_card(CardChild::socket)
                                            : vlc::look_into_directory(state);
            card->for_each_row(0, vlc::TableKind::service_config,
                               [&rows](const vlc::TableRow &) { ++rows; });
        } catch (const vlc::StateError &) {
            return 0; // it is not there yet
        }
        return rows;
    }
    static auto signalled(int signal)
    {
        return [signal](pid_t process) { kill(process, signal); };
    }
    static std::vector<std::string> loading(const std::vector<std::string> &more = {})
    {
        std::vector<std::string> arguments{"vservice", "load", services_file,
                                           "--state",  state,  "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
};

TEST_F(VserviceTrouble, AKilledLoadIsSettledByTheNextOne)
{
    uint32_t left_to_program = 0;
    for (const uint32_t rows : {1u, 2u, 60u, 100u, 101u, 180u, supported}) {
        std::filesystem::remove_all(state);
        write_services(more_records);
        const Outcome first =
            inlinectl(loading({"--card", card_file}), when(rows, signalled(SIGKILL)));
        EXPECT_EQ(first.exit_code, -SIGKILL);
        write_services();
        const json second = load();
        EXPECT_GE(second["modified"], rows - 1);
        left_to_program += second["programmed"].get<uint32_t>();
        EXPECT_EQ(second["programmed_now"], supported);
        EXPECT_EQ(second["failed"], 0);
        EXPECT_EQ(second["said"], json::array());
        expect_clean_audit();
    }
    EXPECT_GT(left_to_program, 0u);
}

TEST_F(VserviceTrouble, AnInterruptedLoadSaysWhatItDidNotFeed)
{
    write_services(more_records);
    const Outcome outcome = inlinectl(loading({"--card", card_file}), when(50, signalled(SIGINT)));
    EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
    const json report = json::parse(outcome.out);
    EXPECT_EQ(report["interrupted"], true);
    EXPECT_GT(report["not_fed"], 0);
    EXPECT_GE(report["programmed"], 50);
    EXPECT_EQ(report["vservices"].size() + report["not_fed"].get<size_t>(), more_records);
    expect_clean_audit();
}

TEST_F(VserviceTrouble, ACardThatIsKilledMeanwhileFailsTheRestAndALoadMakesUpForIt)
{
    CardChild card({"--card", card_file});
    write_services(more_records);
    const std::vector<std::string> connected{"--connect", CardChild::socket};
    const Outcome outcome =
        inlinectl(loading(connected), when(
                                          50, [&](pid_t) { card.kill(); }, true));
    EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
    const json report = json::parse(outcome.out);
    EXPECT_EQ(report["vservices"].size(), more_records);
    EXPECT_GE(report["programmed"], 49);
    EXPECT_GT(report["failed"].get<uint32_t>() + report["lost"].get<uint32_t>(), 0u);
    card.start({"--card", card_file});
    write_services();
    const Outcome again = inlinectl(loading(connected));
    EXPECT_EQ(again.exit_code, 1) << again.err; // some are skipped
    const json second = json::parse(again.out);
    EXPECT_EQ(second["programmed_now"], supported);
    EXPECT_EQ(second["failed"], 0);
    const Outcome audit = inlinectl({"audit", "--state", state, "--card-state", CardChild::state});
    EXPECT_EQ(audit.exit_code, 0) << audit.out << audit.err;
}

// ---- what a host of before has left

class VserviceOnAHostsState : public VserviceTrouble {
protected:
    // Lets a host in this process do something to the state that the tool then goes on with.
    template <typename Work>
    static void with_host(Work work)
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        vlc::VirtualLineCard card(config(), state);
        services::ServiceHost host(handles_of(card));
        host.start();
        card.events().run_until_idle();
        work(card, *host.root());
    }
    static vlc::CardConfig config()
    {
        vlc::CardConfig config = small_card();
        config.window_bytes = uint64_t{1} << 20;
        return config;
    }
    static void fill(vlc::VirtualLineCard &card, uint64_t but)
    {
        const auto free = [&card] {
            const auto usage = card.window().usage();
            return usage.bytes_total - usage.bytes_in_use;
        };
        void *block = nullptr;
        while (free() > but && inline_svc_shared_mem_alloc(1024) != nullptr)
            continue;
        while (free() > but && card.window().allocate(8, &block) == 0)
            continue;
    }
};

TEST_F(VserviceOnAHostsState, AFullWindowFailsWhatDoesNotFitWithTheReason)
{
    with_host([](vlc::VirtualLineCard &card, shadow_db &) { fill(card, 4096); });
    const Outcome outcome = inlinectl(loading());
    EXPECT_EQ(outcome.exit_code, 1);
    const json report = json::parse(outcome.out);
    EXPECT_GT(report["programmed"], 3);
    EXPECT_LT(report["programmed"], 20);
    EXPECT_EQ(report["programmed"].get<uint32_t>() + report["failed"].get<uint32_t>(), supported);
    EXPECT_EQ(report["programmed_now"], report["programmed"]);
    const json &failed = report["vservices"][200];
    EXPECT_EQ(failed["came"], "failed");
    EXPECT_NE(failed["said"][0].get<std::string>().find("shared memory alloc failed c"),
              std::string::npos)
        << failed;
    expect_clean_audit();
}

TEST_F(VserviceOnAHostsState, AWindowWithoutRoomForTheTableOfServicesIsSaid)
{
    with_host([](vlc::VirtualLineCard &card, shadow_db &root) {
        fill(card, 64);
        root.vservice_db = nullptr;
    });
    const Outcome outcome = inlinectl(loading());
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err,
              "inlinectl: the window has no table of virtual services, and no room for one\n");
}

TEST_F(VserviceOnAHostsState, ADamagedShadowDbIsNotGoneOnWith)
{
    with_host([](vlc::VirtualLineCard &, shadow_db &) {});
    inlinectl(loading());
    with_host([](vlc::VirtualLineCard &, shadow_db &root) {
        root.main_table[775]->table_array[0].first = reinterpret_cast<list_link *>(0x1000);
    });
    const std::string before = file_text(std::string(state) + "/np0");
    const Outcome outcome = inlinectl(loading());
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "inlinectl: /tmp/state: the shadow DB there is damaged and was left as "
                           "it is; see 'inlinectl audit'\n");
    EXPECT_EQ(file_text(std::string(state) + "/np0"), before);
}

TEST_F(VserviceOnAHostsState, AFullHardwareTableFailsWhatDoesNotFit)
{
    write_file(card_file, "[nps]\ncount = 1\nservice_config_rows = 100\n");
    const json report = load();
    EXPECT_EQ(report["programmed"], 100);
    EXPECT_EQ(report["failed"], supported - 100);
    for (const json &one : report["vservices"]) {
        EXPECT_EQ(one["said"].empty(), one["came"] == "programmed") << one;
    }
}

TEST_F(VserviceOnAHostsState, AStateOfAnotherCardIsRefused)
{
    load();
    expect_refusal({"vservice", "load", services_file, "--state", state, "--nps", "3"},
                   "/tmp/state: was made for a card of 2 NPs, type 0xD20001, not of 3 NPs, type "
                   "0xD20001; without --card and --nps it goes on as it is");
}

TEST_F(VserviceOnAHostsState, AStateThatIsInUseIsRefused)
{
    with_host([](vlc::VirtualLineCard &, shadow_db &) {
        const Outcome outcome = inlinectl(loading());
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_NE(outcome.err.find("in use"), std::string::npos) << outcome.err;
    });
}

} // namespace
} // namespace test
