// A host whose card is killed: the batch fails, the library clears its key as far as it can, and
// follows the card that comes. The host settles, and its services program what is lost.
#include <sstream>

#include "kill_life.h"
#include "settled_model.h"

namespace test {
namespace {

// What became of the request at which the card was killed.
struct LastRequest {
    uint64_t nth;
    bool is_carried_out; // and the host has not heard so
};

class Survival {
public:
    Survival(const KillLife &life, const KillPoint &point, ScenarioHost &host)
        : life_(life), point_(point), host_(host)
    {
    }

    std::vector<std::string> run()
    {
        size_t cut = 0;
        StepResult found;
        while (cut < life_.steps.size()) {
            life_.progress.step = cut;
            found = host_.carry_out(life_.steps[cut]);
            if (host_.card().card_is_away())
                break;
            ++cut;
        }
        if (cut == life_.steps.size())
            return {"the host came to the end, and its card was not killed"};
        follow();
        CutScenario scenario(host_, life_.steps, cut);
        predict(scenario, found);
        if (scenario.differences().empty())
            go_on(scenario);
        return scenario.differences();
    }

private:
    bool is_registered()
    {
        return !host_.card().card_is_away() && (host_.root()->conn_state & SHADOW_DB_READY) != 0;
    }

    // First the library hears that its card went, then it registers with the one that came.
    void follow()
    {
        host_.card().events().run_until([this] { return is_registered(); });
        host_.let_time_pass();
    }

    // The first of the possible ends that agrees with everything; when none does, the first.
    void predict(CutScenario &scenario, const StepResult &found)
    {
        std::vector<std::string> first;
        for (const LastRequest &last : possible_ends()) {
            const std::vector<std::string> differences = differences_from(scenario, last, found);
            if (differences.empty())
                return;
            if (first.empty())
                first = differences;
        }
        for (const std::string &line : first)
            scenario.say("after the card's restart: " + line);
    }

    std::vector<LastRequest> possible_ends() const
    {
        switch (life_.setting.kind.instant) {
        case Instant::before_request:
            return {{point_.nth, false}};
        case Instant::behind_request:
            return {{point_.nth, true}};
        case Instant::any:
            break;
        }
        return {{point_.nth, false}, {point_.nth, true}, {point_.nth + 1, false}};
    }

    std::vector<std::string> differences_from(CutScenario &scenario, const LastRequest &last,
                                              const StepResult &found)
    {
        scenario.begin_model();
        ReferenceModel &model = scenario.model().reference();
        model.set_rule([&model, last, count = uint64_t{0}](Service service, uint32_t) mutable {
            if (is_request(service) && ++count == last.nth) {
                model.card.loses_next_reply = last.is_carried_out;
                model.card.up = last.is_carried_out;
            }
            return std::optional<uint64_t>();
        });
        StepResult expected;
        for (size_t i = 0; i <= scenario.cut_step(); ++i)
            expected = scenario.model_step(life_.steps[i]);
        model.set_rule({});
        model.prm_goes_down();
        model.prm_comes_up();
        model.read_answers();
        // What a clear that failed took off its list is in nobody's hands; the count still has it.
        for (auto &[key, entry] : model.entries) {
            for (ModelTable &table : entry.tables)
                table.lost.clear();
        }
        std::vector<std::string> lines = scenario.state_differences();
        if (!(found == expected)) {
            std::ostringstream line;
            line << describe(life_.steps[scenario.cut_step()], scenario.cut_step()) << ": " << found
                 << " instead of " << expected;
            lines.push_back(line.str());
        }
        return lines;
    }

    static bool is_request(Service service)
    {
        return service >= Service::prm_srh_service_config_add &&
               service <= Service::prm_srh_ext_service_db_del;
    }

    void go_on(CutScenario &scenario)
    {
        scenario.settle();
        settle(scenario.model().reference(), life_.setting.card.type == unswapped_card);
        scenario.compare("after the settlement");
        if (!scenario.differences().empty())
            return;
        scenario.make_up_for_cut_step();
        scenario.go_on(scenario.next_step());
    }

    const KillLife &life_;
    const KillPoint &point_;
    ScenarioHost &host_;
};

} // namespace

void live_through(const KillLife &life, const KillPoint &point)
{
    const std::unique_ptr<ScenarioHost> host = host_of(life);
    say_verdict(Survival(life, point, *host).run(), life.progress);
}

} // namespace test
