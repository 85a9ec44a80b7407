#include "card_link.h"

#include <cerrno>
#include <system_error>

namespace vlc {

namespace {

bool is_announcement(FrameKind kind)
{
    return kind == FrameKind::prm_event || kind == FrameKind::answers_waiting;
}

std::string described(const CardConfig &card)
{
    return std::to_string(card.num_nps) + " NPs, type " + std::to_string(card.card_type) + ", " +
           std::to_string(card.service_config_capacity) + ", " +
           std::to_string(card.ext_conf_capacity) + " and " + std::to_string(card.flow_capacity) +
           " rows, " + std::to_string(card.dynamic_counters) + " dynamic counters";
}

} // namespace

CardLink::CardLink(std::filesystem::path socket, PeerRole role)
    : path_(std::move(socket)), role_(role)
{
}

CardLink::Attempt CardLink::fail(Attempt how, std::string why)
{
    stream_.close();
    why_ = path_.string() + ": " + why;
    return how;
}

CardLink::Attempt CardLink::connect()
{
    if (!stream_.connect(path_))
        return fail(Attempt::absent,
                    "no card listens there: " + std::generic_category().message(errno));
    is_broken_ = false;
    announcements_.clear();
    return greet();
}

CardLink::Attempt CardLink::greet()
{
    WireWriter greeting;
    put_greeting(greeting);
    greeting.number(static_cast<uint8_t>(role_));
    Payload out;
    append_frame(out, FrameKind::hello, ++sequence_, greeting.take());
    bool sent = false;
    const std::optional<Frame> frame = stream_.send(out, &sent) ? stream_.next() : std::nullopt;
    if (!frame)
        return stream_.is_nonsense()
                   ? fail(Attempt::refused, "what listens there speaks no protocol of a virtual "
                                            "line card")
                   : fail(Attempt::absent, "the card there did not answer");
    WireReader reader(frame->payload);
    if (frame->kind == FrameKind::refusal)
        return fail(Attempt::refused, reader.text());
    const std::string wrong = wrong_with_greeting(reader);
    if (!wrong.empty())
        return fail(Attempt::refused, "what listens there " + wrong);
    CardHello card;
    get(reader, card.config);
    card.prm_is_up = reader.number<uint8_t>() != 0;
    if (frame->kind != FrameKind::reply || !reader.is_whole())
        return fail(Attempt::refused, "the card there did not say which card it is");
    const std::string before = described(card_.config);
    if (was_connected_ && described(card.config) != before)
        return fail(Attempt::other_card, "another card is there now (" + described(card.config) +
                                             ") than before (" + before + ")");
    card_ = card;
    was_connected_ = true;
    take_announcements();
    return Attempt::connected;
}

CardLink::Reply CardLink::ask(FrameKind kind, std::span<const uint8_t> payload,
                              const std::function<void(const Payload &)> &on_part)
{
    Reply reply;
    if (!is_open())
        return reply;
    Payload out;
    append_frame(out, kind, ++sequence_, payload);
    if (stream_.send(out, &reply.was_sent)) {
        while (std::optional<Frame> frame = stream_.next()) {
            if (is_announcement(frame->kind)) {
                announcements_.push_back(std::move(*frame));
            } else if (frame->sequence == sequence_ && frame->kind == FrameKind::part && on_part) {
                on_part(frame->payload);
            } else if (frame->sequence == sequence_ && frame->kind == FrameKind::reply) {
                reply.arrived = true;
                reply.payload = std::move(frame->payload);
                take_announcements(); // read with the reply, so nobody will be told of them again
                return reply;
            } else {
                break; // no reply to what was asked: nothing that follows can be trusted
            }
        }
    }
    is_broken_ = true;
    return reply;
}

void CardLink::receive_announcements()
{
    const bool is_there = !is_open() || stream_.receive();
    take_announcements();
    if (!is_there)
        is_broken_ = true;
}

// Of what is read already; nothing else comes without being asked for.
void CardLink::take_announcements()
{
    while (std::optional<Frame> frame = stream_.next_that_is_there()) {
        if (is_announcement(frame->kind))
            announcements_.push_back(std::move(*frame));
        else
            is_broken_ = true;
    }
    if (stream_.is_nonsense())
        is_broken_ = true;
}

std::optional<Frame> CardLink::next_announcement()
{
    if (announcements_.empty())
        return std::nullopt;
    Frame frame = std::move(announcements_.front());
    announcements_.pop_front();
    return frame;
}

} // namespace vlc
