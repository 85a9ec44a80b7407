// The host that follows on a killed one. What the step that was cut off had come to is looked up;
// of an entry in flight there are two possible ends, and everything else follows from it.
#include <algorithm>

#include "kill_life.h"
#include "settled_model.h"

namespace test {
namespace {

uint64_t blocks_in_use(ScenarioHost &host)
{
    return host.card().window().usage().blocks_in_use;
}

class Resumption {
public:
    Resumption(const KillLife &life, ScenarioHost &host)
        : life_(life), host_(host), scenario_(host, life.steps, life.progress.step)
    {
    }

    const std::vector<std::string> &run()
    {
        for (size_t i = 0; i < scenario_.cut_step(); ++i)
            scenario_.model_step(life_.steps[i]);
        require(host_.carry_out(life_.steps[0]).code == 0, "the host does not start again");
        scenario_.settle();
        if (const Step *cut = scenario_.cut_change())
            see_what_was_done(*cut);
        restart_model();
        scenario_.carry_out(life_.steps[1], "the services register again");
        take_over_what_may_be();
        scenario_.compare("after the settlement");
        if (!scenario_.differences().empty())
            return scenario_.differences();
        if (scenario_.cut_change() != nullptr)
            scenario_.make_up_for_cut_step();
        scenario_.go_on(std::max<size_t>(2, scenario_.next_step()));
        return scenario_.differences();
    }

private:
    void require(bool holds, const std::string &otherwise)
    {
        if (!holds)
            scenario_.say(otherwise);
    }

    ReferenceModel &model() { return scenario_.model().reference(); }

    void restart_model()
    {
        model().card.up = true; // a card in a process of its own was told to come up
        scenario_.model_step(life_.steps[0]);
        settle(model(), life_.setting.card.type == unswapped_card);
    }

    // ---- the step that was cut off, when it changes entries

    // A request for each entry, in the order in which the library takes them.
    std::vector<EntryRequest> requests_of(const Step &step)
    {
        std::vector<EntryRequest> requests;
        for (const EntryRequest &request : step.requests) {
            if (request.action == SHADOW_DB_CREATE || model().stored(step.key, request.entry_id))
                requests.push_back(request);
        }
        if (step.kind != StepKind::clear_key)
            return requests;
        for (const ModelTable &table : model().entries.at(step.key).tables) {
            for (const NodePointer &node : table.listed) {
                const app_node &content = node->content;
                requests.push_back({SHADOW_DB_DELETE,
                                    content.entry_id,
                                    content.table_type,
                                    content.hw_index,
                                    {reinterpret_cast<const char *>(content.key), content.key_len},
                                    {}});
            }
        }
        return requests;
    }

    bool is_done(uint16_t key, const EntryRequest &request) const
    {
        const shmem_node *node = host_.stored(key, request.entry_id);
        if (request.action != SHADOW_DB_MODIFY)
            return (node != nullptr) == (request.action == SHADOW_DB_CREATE);
        if (node == nullptr)
            return false;
        const app_node &content = node->app_node;
        return std::string(reinterpret_cast<const char *>(content.result), content.result_len) ==
               request.result;
    }

    void see_what_was_done(const Step &cut)
    {
        const std::vector<EntryRequest> requests = requests_of(cut);
        const auto left = std::ranges::find_if_not(
            requests, [&](const EntryRequest &request) { return is_done(cut.key, request); });
        const auto done = static_cast<size_t>(left - requests.begin());
        require(
            std::none_of(left, requests.end(),
                         [&](const EntryRequest &request) { return is_done(cut.key, request); }),
            "a later entry of the batch is done before an earlier one");
        require_possible(requests, done);
        carry_out_in_model(cut, {requests.begin(), left});
        if (left != requests.end())
            take_over_action(cut.key, *left);
    }

    // Killed before a request, an entry is created when the request is for the next one, and
    // changed or deleted when it is its own. At an instant, one more or less.
    void require_possible(const std::vector<EntryRequest> &requests, size_t done)
    {
        const uint64_t begun = life_.progress.requests_of_step;
        const size_t at = begun == 0 ? 0 : (begun - 1) / life_.setting.num_nps;
        size_t least = at;
        size_t most = at + (begun == 0 ? 1 : 2);
        if (life_.setting.kind.instant == Instant::before_request) {
            const bool is_created = at < requests.size() && requests[at].action == SHADOW_DB_CREATE;
            least = most = at + (is_created ? 0 : 1);
        }
        require(done >= least && done <= most,
                std::to_string(done) + " entries are done, where it can be " +
                    std::to_string(least) + " to " + std::to_string(most));
    }

    void carry_out_in_model(const Step &cut, std::vector<EntryRequest> requests)
    {
        const ModelEntry before =
            model().entries.contains(cut.key) ? model().entries[cut.key] : ModelEntry();
        Step part = cut;
        part.kind = StepKind::apply_batch;
        part.missing = Missing::is_left_out;
        part.requests = std::move(requests);
        if (cut.kind == StepKind::clear_key)
            part.version = before.version;
        if (!part.requests.empty())
            scenario_.model_step(part);
        take_over_words(cut, before);
    }

    // ---- what may be either of two, and does no harm

    template <typename Value, typename Found>
    static void take_over(Value &value, const Found &found, std::initializer_list<Value> possible)
    {
        if (std::ranges::find(possible, static_cast<Value>(found)) != possible.end())
            value = static_cast<Value>(found);
    }

    // Of the key: some are written when a batch begins, others when it ends.
    void take_over_words(const Step &cut, const ModelEntry &before)
    {
        const main_entry *main = host_.root()->main_table[cut.key];
        const auto entry = model().entries.find(cut.key);
        if (main == nullptr || entry == model().entries.end())
            return;
        const bool clears = cut.kind == StepKind::clear_key;
        const uint32_t version = clears ? before.version : cut.version;
        take_over(entry->second.version, main->entry_version, {before.version, version});
        take_over(entry->second.tag, main->entry_tag, {before.tag, static_cast<uint16_t>(version)});
        take_over(entry->second.timestamp, main->timestamp, {before.timestamp, 1u});
    }

    // Of an entry that is as before, though its change had begun.
    void take_over_action(uint16_t key, const EntryRequest &request)
    {
        const shmem_node *found = host_.stored(key, request.entry_id);
        const NodePointer node = model().stored(key, request.entry_id);
        if (found != nullptr && node != nullptr)
            take_over(node->content.action, found->app_node.action,
                      {node->content.action, uint32_t{SHADOW_DB_MODIFY}});
    }

    void take_over_what_may_be()
    {
        const size_t cut = scenario_.cut_step();
        const StepKind kind =
            cut < life_.steps.size() ? life_.steps[cut].kind : StepKind::read_answers;
        if (kind == StepKind::collect_statistics)
            take_over_rounds();
        if (kind == StepKind::pass_traffic)
            take_over_counts();
        // What was taken of the window and is in nobody's hands yet, or is off its list already.
        const uint64_t more = blocks_in_use(host_) - model().blocks;
        const uint64_t most = kind == StepKind::start_host        ? life_.setting.num_nps
                              : scenario_.cut_change() != nullptr ? 1
                                                                  : 0;
        if (more <= most)
            model().blocks += more;
    }

    void take_over_rounds()
    {
        for (auto &[key, entry] : model().entries) {
            if (const main_entry *main = host_.root()->main_table[key])
                take_over(entry.stat_round, main->stat_round,
                          {entry.stat_round, static_cast<uint16_t>(entry.stat_round + 1)});
        }
    }

    void take_over_counts()
    {
        for (uint32_t np = 0; np < life_.setting.num_nps; ++np) {
            for (uint32_t place = 0; place < places_with_traffic; ++place)
                take_over_count(np, place);
        }
    }

    void take_over_count(uint32_t np, uint32_t place)
    {
        std::vector<ModelCount> &counts = model().card.counts[np];
        if (counts.size() <= place)
            counts.resize(place + 1);
        const ModelCount whole = traffic_on(np, place);
        const vlc::PacketCount found = host_.card().access().counter(np, place);
        const uint64_t packets = found.packets - counts[place].packets;
        const uint64_t bytes = found.bytes - counts[place].bytes;
        require(packets <= whole.packets && bytes == packets * (whole.bytes / whole.packets),
                "NP " + std::to_string(np) + " counted wrongly on place " + std::to_string(place));
        counts[place] = {found.packets, found.bytes};
    }

    const KillLife &life_;
    ScenarioHost &host_;
    CutScenario scenario_;
};

} // namespace

void live_on_what_is_left(const KillLife &life)
{
    const std::unique_ptr<ScenarioHost> host = host_of(life);
    Resumption resumption(life, *host);
    say_verdict(resumption.run(), life.progress);
}

} // namespace test
