#include "socket_prm.h"

#include <utility>

namespace vlc {

void SocketPrm::on_event(std::function<void(PrmEvent)> listener)
{
    link_.on_event = std::move(listener);
}

void SocketPrm::on_answer(std::function<void(uint32_t handle)> listener)
{
    link_.on_answers = std::move(listener);
}

// PRM's code, and the number behind it when that was a success.
uint32_t SocketPrm::code_of(const CardLink::Reply &reply, uint32_t *number) const
{
    if (!reply.arrived)
        return prm_not_connected;
    WireReader reader(reply.payload);
    const auto code = reader.number<uint32_t>();
    if (!reader.fits())
        return prm_not_connected;
    if (code == 0 && number)
        *number = reader.number<uint32_t>();
    return code;
}

// A client that registers may be waiting inside its own event manager's turn, where nothing else
// looks for a card that was away: so registering does.

uint32_t SocketPrm::find_handle(const std::string &name, uint32_t *handle)
{
    link_.look_for_the_card();
    return code_of(link_.ask(FrameKind::find_handle, WireWriter().text(name).take()), handle);
}

uint32_t SocketPrm::register_handle(uint32_t *handle)
{
    link_.look_for_the_card();
    return code_of(link_.ask(FrameKind::register_handle, {}), handle);
}

uint32_t SocketPrm::reregister(uint32_t handle)
{
    link_.look_for_the_card();
    return code_of(link_.ask(FrameKind::reregister, WireWriter().number(handle).take()));
}

uint32_t SocketPrm::set_name(uint32_t handle, const std::string &name)
{
    return code_of(link_.ask(FrameKind::set_name, WireWriter().number(handle).text(name).take()));
}

Taken SocketPrm::request(uint32_t handle, TableKind table, uint32_t operation,
                         const prm_config_record &record)
{
    WireWriter payload;
    payload.number(handle).number(static_cast<uint8_t>(table)).number(operation);
    put(payload, record);
    const CardLink::Reply reply = link_.ask(FrameKind::request, payload.take());
    return {code_of(reply), reply.was_sent && !reply.arrived};
}

uint32_t SocketPrm::read_answer(uint32_t handle, prm_async_response *response)
{
    const CardLink::Reply reply =
        link_.ask(FrameKind::read_answer, WireWriter().number(handle).take());
    const uint32_t code = code_of(reply);
    if (code != 0)
        return code;
    WireReader reader(reply.payload);
    reader.number<uint32_t>(); // the code
    prm_async_response received;
    get(reader, received);
    if (!reader.is_whole())
        return prm_not_connected;
    *response = received;
    return 0;
}

uint64_t SocketPrm::unread(uint32_t handle)
{
    const CardLink::Reply reply = link_.ask(FrameKind::unread, WireWriter().number(handle).take());
    WireReader reader(reply.payload);
    return reader.number<uint64_t>();
}

bool SocketPrm::is_handle(uint32_t handle)
{
    const CardLink::Reply reply =
        link_.ask(FrameKind::is_handle, WireWriter().number(handle).take());
    WireReader reader(reply.payload);
    return reader.number<uint8_t>() != 0;
}

uint32_t SocketPrm::read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2])
{
    const CardLink::Reply reply = link_.ask(
        FrameKind::read_counter, WireWriter().number(np).number(counter).number(option).take());
    const uint32_t code = code_of(reply);
    WireReader reader(reply.payload);
    reader.number<uint32_t>(); // the code
    const auto packets = reader.number<uint64_t>();
    const auto bytes = reader.number<uint64_t>();
    if (code == 0 && out) {
        out[0] = packets;
        out[1] = bytes;
    }
    return code;
}

uint32_t SocketPrm::take_counters(uint32_t np, uint32_t length, uint32_t *first)
{
    return code_of(
        link_.ask(FrameKind::take_counters, WireWriter().number(np).number(length).take()), first);
}

uint32_t SocketPrm::give_counters_back(uint32_t np, uint32_t first)
{
    return code_of(
        link_.ask(FrameKind::give_counters_back, WireWriter().number(np).number(first).take()));
}

} // namespace vlc
