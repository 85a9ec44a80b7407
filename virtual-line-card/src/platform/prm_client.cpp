#include "prm_client.h"

#include <cerrno>
#include <utility>

#include "vlc/event_manager.h"

namespace vlc {

namespace {

// A handle is handed out as its number; what is no number of PRM's becomes 0, which never is one.
uint32_t number_of(void *handle)
{
    const auto word = reinterpret_cast<uintptr_t>(handle);
    return word <= UINT32_MAX ? static_cast<uint32_t>(word) : 0;
}

void *handle_of(uint32_t number)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(number));
}

prm_notification notification_of(PrmEvent event)
{
    switch (event) {
    case PrmEvent::connection_up:
        return {PRM_NOTIF_CLASS_CONN, PRM_CONN_UP};
    case PrmEvent::connection_down:
        return {PRM_NOTIF_CLASS_CONN, PRM_CONN_DOWN};
    case PrmEvent::connection_error:
        return {PRM_NOTIF_CLASS_CONN, PRM_CONN_ERROR};
    case PrmEvent::np_running:
        return {PRM_NOTIF_CLASS_NP, PRM_NP_RUNNING};
    case PrmEvent::np_warm_boot:
        return {PRM_NOTIF_CLASS_NP, PRM_NP_WARM_BOOT};
    }
    return {};
}

} // namespace

PrmClient::PrmClient(PrmTransport &prm) : prm_(prm)
{
    prm_.on_event([this](PrmEvent event) {
        if (event == PrmEvent::connection_down) {
            ledger_.note_break();
            is_registered_ = false;
        }
        tell_change();
        for (const auto &[name, connection] : connections_)
            notify(connection, event);
    });
    prm_.on_answer([this](uint32_t handle) { announce_answers(handle); });
}

std::function<void()> PrmClient::while_alive(std::function<void()> task) const
{
    return [alive = std::weak_ptr(alive_), task = std::move(task)] {
        if (!alive.expired())
            task();
    };
}

void PrmClient::post(void *evm, std::function<void()> task)
{
    if (EventManager *events = EventManager::from_handle(evm))
        events->post(while_alive(std::move(task)));
}

void PrmClient::after(void *evm, std::chrono::nanoseconds delay, std::function<void()> task)
{
    if (EventManager *events = EventManager::from_handle(evm))
        events->after(delay, while_alive(std::move(task)));
}

// ---- connections -------------------------------------------------------------------------------

uint32_t PrmClient::open(void *evm, const char *client, prm_notif_fn notif, void *context,
                         void **conn)
{
    if (!EventManager::from_handle(evm) || !client || !notif || !conn)
        return EINVAL;
    // A client has one connection: opening it again replaces where its notifications go.
    Connection &connection = connections_[client];
    connection = {evm, notif, context};
    *conn = &connection;
    if (prm_.is_connected())
        notify(connection, PrmEvent::connection_up);
    return 0;
}

void PrmClient::notify(const Connection &connection, PrmEvent event)
{
    post(connection.evm, [to = connection, event] {
        const prm_notification notification = notification_of(event);
        to.notif(static_cast<struct shadow_db *>(to.context), &notification);
    });
}

// ---- handles and requests ----------------------------------------------------------------------

uint32_t PrmClient::find_handle(const char *name, void **handle)
{
    if (!name || !handle)
        return EINVAL;
    uint32_t number = 0;
    const uint32_t code = prm_.find_handle(name, &number);
    if (code == 0)
        *handle = handle_of(number);
    return code;
}

uint32_t PrmClient::register_handle(void **handle, void *evm, prm_async_fn async)
{
    if (!handle || !EventManager::from_handle(evm) || !async)
        return EINVAL;
    uint32_t number = 0;
    const uint32_t code = prm_.register_handle(&number);
    if (code != 0)
        return code;
    take_over(number, evm, async);
    *handle = handle_of(number);
    return 0;
}

uint32_t PrmClient::reregister(void *handle, void *evm, prm_async_fn async)
{
    if (!EventManager::from_handle(evm) || !async)
        return EINVAL;
    const uint32_t code = prm_.reregister(number_of(handle));
    if (code == 0)
        take_over(number_of(handle), evm, async);
    return code;
}

void PrmClient::take_over(uint32_t handle, void *evm, prm_async_fn async)
{
    Registration &registration = registrations_[handle];
    registration = {evm, async, registration.generation + 1, false, 0};
    is_registered_ = true;
    tell_change();
    announce_answers(handle);
}

uint32_t PrmClient::set_name(void *handle, const char *name)
{
    return name ? prm_.set_name(number_of(handle), name) : EINVAL;
}

uint32_t PrmClient::request(void *handle, TableKind table, uint32_t operation,
                            const prm_config_record *record)
{
    const uint32_t number = number_of(handle);
    if (!record)
        return prm_.is_handle(number) ? prm_bad_record : prm_bad_handle;
    const Taken taken = prm_.request(number, table, operation, *record);
    if (taken.code == 0 || taken.in_doubt) {
        ledger_.note_request(table, *record, taken.in_doubt);
        tell_change();
    }
    return taken.code;
}

// ---- answers -----------------------------------------------------------------------------------

uint32_t PrmClient::read_answer(void *handle, prm_async_response *response)
{
    if (!response)
        return EINVAL;
    const uint32_t number = number_of(handle);
    const uint32_t code = prm_.read_answer(number, response);
    if (code == 0) {
        ledger_.note_answer(*response);
        tell_change();
    }
    const auto registration = registrations_.find(number);
    if (code == 0 && registration != registrations_.end())
        registration->second.answers_read++;
    if (code == 0 && response->status != 0 && failed_answer_listener_)
        failed_answer_listener_(*response);
    return code;
}

void PrmClient::announce_answers(uint32_t handle)
{
    const auto registration = registrations_.find(handle);
    if (registration == registrations_.end() || registration->second.is_scheduled ||
        prm_.unread(handle) == 0)
        return;
    schedule_callback(handle, std::chrono::nanoseconds(0));
}

void PrmClient::schedule_callback(uint32_t handle, std::chrono::nanoseconds delay)
{
    Registration &registration = registrations_[handle];
    registration.is_scheduled = true;
    const auto callback = [this, handle, generation = registration.generation] {
        call_back(handle, generation);
    };
    if (delay.count() == 0)
        post(registration.evm, callback);
    else
        after(registration.evm, delay, callback);
}

void PrmClient::call_back(uint32_t handle, uint64_t generation)
{
    Registration &registration = registrations_[handle];
    if (registration.generation != generation)
        return;
    // A connection that broke says so by a notification, and re-registering announces anew.
    if (!prm_.is_connected() || prm_.unread(handle) == 0) {
        registration.is_scheduled = false;
        return;
    }
    registration.answers_read = 0;
    const std::weak_ptr alive(alive_);
    registration.async();
    if (alive.expired() || registration.generation != generation)
        return;
    registration.is_scheduled = false;
    if (!prm_.is_connected() || prm_.unread(handle) == 0)
        return;
    // Called again while answers remain; one that reads none of them must not become a busy loop.
    const bool made_progress = registration.answers_read > 0;
    schedule_callback(handle, made_progress ? std::chrono::nanoseconds(0) : idle_callback_delay);
}

// ---- delay queue -------------------------------------------------------------------------------

uint32_t PrmClient::set_up_delay_queue(void *handle, uint32_t depth, uint32_t seconds,
                                       prm_delay_fn delay)
{
    if (!delay)
        return EINVAL;
    const auto registration = registrations_.find(number_of(handle));
    if (registration == registrations_.end())
        return prm_bad_handle;
    delay_queue_ = {registration->second.evm, delay, depth, seconds, delay_queue_.waiting};
    return 0;
}

uint32_t PrmClient::process_delayed(uint32_t refnum)
{
    if ((refnum & PRM_REFNUM_TABLE_MASK) != PRM_REFNUM_DELAY_QUEUE || !delay_queue_.delay)
        return EINVAL;
    if (delay_queue_.waiting >= delay_queue_.depth)
        return prm_no_room;
    delay_queue_.waiting++;
    after(delay_queue_.evm, std::chrono::seconds(delay_queue_.seconds), [this] {
        delay_queue_.waiting--;
        delay_queue_.delay();
    });
    return 0;
}

// ---- statistics --------------------------------------------------------------------------------

uint32_t PrmClient::prepare_statistics() const
{
    return prm_.is_connected() ? 0 : uint32_t{prm_not_connected};
}

uint32_t PrmClient::read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2])
{
    return prm_.read_counter(np, counter, option, out);
}

} // namespace vlc
