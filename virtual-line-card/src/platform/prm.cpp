#include "vlc/prm.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "held_answers.h"
#include "platform_prm_stats.h"

namespace vlc {

namespace {

constexpr uint32_t operations = 3;

uint32_t status_of(TableOutcome outcome)
{
    switch (outcome) {
    case TableOutcome::done:
        return 0;
    case TableOutcome::duplicate:
        return prm_duplicate_key;
    case TableOutcome::missing:
        return prm_key_not_found;
    case TableOutcome::full:
        return prm_table_full;
    case TableOutcome::too_wide:
        return prm_row_too_wide;
    }
    return prm_bad_record;
}

bool is_well_formed(const prm_config_record &record, TableKind table, uint32_t operation,
                    uint32_t nps)
{
    const uint32_t number =
        table == TableKind::service_config ? PRM_TABLE_SERVICE_CONFIG : PRM_TABLE_EXT_CONF;
    const uint32_t named_table = record.refnum & PRM_REFNUM_TABLE_MASK;
    const uint32_t named_operation = (record.refnum >> PRM_REFNUM_OP_SHIFT) & 0xFF;
    return record.np < nps && record.kind == PRM_RECORD_KIND && record.key_len > 0 &&
           record.key_len <= PRM_KEY_BYTES && record.result_len <= PRM_RESULT_BYTES &&
           named_table == number && named_operation == operation;
}

const char *service_of(TableKind table, uint32_t operation)
{
    static constexpr const char *services[table_kinds][operations] = {
        {"prm_srh_service_config_add", "prm_srh_service_config_mod", "prm_srh_service_config_del"},
        {"prm_srh_ext_service_db_add", "prm_srh_ext_service_db_mod", "prm_srh_ext_service_db_del"},
        {"prm_srh_flow_db_add", "prm_srh_flow_db_mod", "prm_srh_flow_db_del"}};
    return services[static_cast<size_t>(table)][operation];
}

StoredAnswer answer_to(TableKind table, const prm_config_record &record, uint32_t status)
{
    StoredAnswer answer{};
    answer.np = record.np;
    answer.flags = table == TableKind::flow ? uint32_t{PRM_ANSWER_OF_FLOW_TABLE} : 0;
    answer.status = status;
    answer.refnum = record.refnum;
    answer.key_len = static_cast<uint16_t>(record.key_len);
    answer.result_len =
        static_cast<uint16_t>(std::min<size_t>(record.result_len, sizeof answer.result));
    std::memcpy(answer.key, record.key, answer.key_len);
    std::memcpy(answer.result, record.result, answer.result_len);
    return answer;
}

// One operation on a table that can be taken back, for a request that turns out not to be
// answerable and so must not have happened.
class TableChange {
public:
    TableChange(NpTable &table, uint32_t operation, const prm_config_record &record)
        : table_(table), operation_(operation), key_(record.key, record.key_len)
    {
        if (const TableRow *row = table.find(key_))
            old_result_.assign(row->result, row->result + row->result_len);
        outcome_ = perform({record.result, record.result_len});
    }
    TableOutcome outcome() const { return outcome_; }

    void undo()
    {
        if (outcome_ != TableOutcome::done)
            return;
        if (operation_ == PRM_OP_ADD)
            table_.remove(key_);
        else if (operation_ == PRM_OP_MODIFY)
            table_.modify(key_, old_result_);
        else
            table_.add(key_, old_result_);
    }

private:
    TableOutcome perform(Bytes result)
    {
        if (operation_ == PRM_OP_ADD)
            return table_.add(key_, result);
        if (operation_ == PRM_OP_MODIFY)
            return table_.modify(key_, result);
        return table_.remove(key_);
    }

    NpTable &table_;
    uint32_t operation_;
    Bytes key_;
    std::vector<uint8_t> old_result_;
    TableOutcome outcome_ = TableOutcome::done;
};

} // namespace

// A call that PRM takes in. The hook is asked before it is carried out; what the hook wants to
// happen to PRM itself happens behind it.
class Prm::Faulted {
public:
    Faulted(Prm &prm, const PrmCall &call)
        : prm_(prm), fault_(prm.fault_hook_ ? prm.fault_hook_(call) : PrmFault{})
    {
    }
    ~Faulted()
    {
        if (fault_.then != PrmFault::Then::nothing)
            prm_.carry_out(fault_);
    }
    Faulted(const Faulted &) = delete;
    Faulted &operator=(const Faulted &) = delete;
    const PrmFault &fault() const { return fault_; }

private:
    Prm &prm_;
    const PrmFault fault_;
};

Prm::Prm(NpStore &nps, PrmStore &store)
    : nps_(nps), store_(store),
      held_(std::make_unique<HeldAnswers>(
          [this](uint32_t handle, const StoredAnswer &answer) { return queue(handle, answer); }))
{
}

Prm::~Prm() = default;

void Prm::set_faults(PrmFaultHook hook, EventManager &events)
{
    fault_hook_ = std::move(hook);
    fault_events_ = &events;
}

void Prm::carry_out(const PrmFault &fault)
{
    if (fault.then == PrmFault::Then::np_reset)
        return np_reset();
    take_down(fault.keep_tables);
    if (fault.down_turns == 0)
        return come_up();
    held_->after_turns(*fault_events_, fault.down_turns, [this] {
        if (!up_) // nobody else brought it up
            come_up();
    });
}

void Prm::announce(PrmEvent event)
{
    if (event_listener_)
        event_listener_(event);
}

void Prm::clear_tables()
{
    for (uint32_t np = 0; np < nps_.size(); np++) {
        for (const TableKind kind :
             {TableKind::service_config, TableKind::ext_conf, TableKind::flow})
            nps_[np].table(kind).clear();
    }
}

void Prm::power_on()
{
    come_up();
}

void Prm::go_down()
{
    up_ = false;
    announce(PrmEvent::connection_down);
}

void Prm::come_up()
{
    up_ = true;
    announce(PrmEvent::connection_up);
}

void Prm::restart(bool keep_tables)
{
    take_down(keep_tables);
    come_up();
}

void Prm::take_down(bool keep_tables)
{
    go_down();
    if (!keep_tables)
        clear_tables();
}

void Prm::report_error()
{
    announce(PrmEvent::connection_error);
}

void Prm::np_reset()
{
    clear_tables();
    announce(PrmEvent::np_running);
}

void Prm::np_warm_boot()
{
    announce(PrmEvent::np_warm_boot);
}

void Prm::on_event(std::function<void(PrmEvent)> listener)
{
    event_listener_ = std::move(listener);
}

void Prm::on_answer(std::function<void(uint32_t handle)> listener)
{
    answer_listener_ = std::move(listener);
}

uint32_t Prm::find_handle(const char *name, uint32_t *handle)
{
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_srh_get_handle"});
    const uint32_t found = store_.find_handle(name);
    if (found == 0)
        return prm_name_unknown;
    *handle = found;
    return 0;
}

uint32_t Prm::register_handle(uint32_t *handle)
{
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_srh_register"});
    const uint32_t made = store_.make_handle();
    if (made == 0)
        return prm_no_handle;
    *handle = made;
    return 0;
}

uint32_t Prm::reregister(uint32_t handle)
{
    if (!store_.is_handle(handle))
        return prm_bad_handle;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_srh_reregister"});
    return 0;
}

uint32_t Prm::set_name(uint32_t handle, const char *name)
{
    if (!store_.is_handle(handle))
        return prm_bad_handle;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_srh_set_name"});
    return store_.set_name(handle, name) ? 0 : uint32_t{EINVAL};
}

uint32_t Prm::request(uint32_t handle, TableKind table, uint32_t operation,
                      const prm_config_record &record)
{
    if (!store_.is_handle(handle))
        return prm_bad_handle;
    if (operation >= operations || !is_well_formed(record, table, operation, nps_.size()))
        return prm_bad_record;
    if (!up_)
        return prm_not_connected;

    const Faulted faulted(*this, {service_of(table, operation), &record, record.np});
    const PrmFault &fault = faulted.fault();
    std::optional<TableChange> change;
    if (fault.answer != PrmFault::Answer::instead)
        change.emplace(nps_[record.np].table(table), operation, record);
    const uint32_t status = change ? status_of(change->outcome()) : fault.status;
    if (!give(handle, answer_to(table, record, status), fault)) {
        if (change)
            change->undo();
        return prm_no_room;
    }
    totals_.requests[static_cast<size_t>(table)][operation]++;
    if (status != 0)
        totals_.failed[static_cast<size_t>(table)][operation]++;
    return 0;
}

// Into the handle's queue, and said so. An answer that waits for this one is queued behind it.
bool Prm::queue(uint32_t handle, const StoredAnswer &answer)
{
    if (!store_.push_answer(handle, answer))
        return false;
    held_->release_behind_next(handle);
    if (answer_listener_)
        answer_listener_(handle);
    return true;
}

bool Prm::give(uint32_t handle, const StoredAnswer &answer, const PrmFault &fault)
{
    switch (fault.answer) {
    case PrmFault::Answer::lost:
        return true;
    case PrmFault::Answer::late:
        held_->hold(*fault_events_, handle, answer, fault.late_turns);
        return true;
    case PrmFault::Answer::behind_the_next:
        if (held_->waits_for_next(handle)) // this is the one that it waits for
            break;
        held_->hold_behind_next(*fault_events_, handle, answer);
        return true;
    case PrmFault::Answer::twice:
        if (!queue(handle, answer))
            return false;
        held_->deliver(*fault_events_, handle, answer);
        return true;
    case PrmFault::Answer::as_it_is:
    case PrmFault::Answer::instead:
        break;
    }
    return queue(handle, answer);
}

uint32_t Prm::queue_answer(uint32_t handle, const StoredAnswer &answer)
{
    if (!store_.is_handle(handle))
        return prm_bad_handle;
    return queue(handle, answer) ? 0 : uint32_t{prm_no_room};
}

uint32_t Prm::read_answer(uint32_t handle, prm_async_response *response)
{
    if (!store_.is_handle(handle))
        return prm_bad_handle;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_srh_async_resp_data"});
    StoredAnswer answer;
    if (!store_.pop_answer(handle, &answer))
        return PRM_RESPONSE_QUEUE_EMPTY;

    *response = {};
    response->np = answer.np;
    response->flags = answer.flags;
    response->status = answer.status;
    response->refnum = answer.refnum;
    response->vrf_id = answer.vrf_id;
    response->key_size = answer.key_len;
    response->result_size = answer.result_len;
    std::memcpy(response->key, answer.key, sizeof response->key);
    std::memcpy(response->result, answer.result, sizeof answer.result);
    return 0;
}

uint64_t Prm::unread(uint32_t handle) const
{
    return store_.is_handle(handle) ? store_.unread(handle) : 0;
}

namespace {

// A counter's bank and its place there.
template <typename Bank>
PacketCount read_from(Bank &bank, int64_t place, uint32_t option)
{
    const auto number = static_cast<uint32_t>(place);
    return option == PRM_STATS_READ_AND_CLEAR ? bank.read_and_clear(number) : bank.read(number);
}

} // namespace

uint32_t Prm::read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2])
{
    if (option > PRM_STATS_READ_AND_CLEAR)
        return EINVAL;
    if (np >= nps_.size())
        return prm_bad_counter;
    const int64_t stateless = CounterBank::place(counter);
    const int64_t dynamic = nps_[np].dynamic_counters().place(counter);
    if (stateless < 0 && dynamic < 0)
        return prm_bad_counter;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {.service = "prm_stats_cl_read", .np = np});
    const PacketCount count = stateless >= 0
                                  ? read_from(nps_[np].counters(), stateless, option)
                                  : read_from(nps_[np].dynamic_counters(), dynamic, option);
    if (out) {
        out[0] = count.packets;
        out[1] = count.bytes;
    }
    return 0;
}

uint32_t Prm::take_counters(uint32_t np, uint32_t length, uint32_t *first)
{
    if (np >= nps_.size() || nps_[np].dynamic_counters().size() == 0)
        return prm_bad_statistics_table;
    if (length == 0 || length > DynamicCounters::longest_run)
        return EINVAL;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_stats_cl_alloc"});
    const uint32_t number = nps_[np].dynamic_counters().take(length);
    if (number == 0)
        return prm_no_counter;
    *first = number;
    return 0;
}

uint32_t Prm::give_counters_back(uint32_t np, uint32_t first)
{
    if (np >= nps_.size() || nps_[np].dynamic_counters().size() == 0)
        return prm_bad_statistics_table;
    if (!up_)
        return prm_not_connected;
    const Faulted faulted(*this, {"prm_stats_cl_free"});
    if (first == 0)
        return 0;
    return nps_[np].dynamic_counters().give_back(first) ? 0 : uint32_t{prm_bad_counter};
}

} // namespace vlc
