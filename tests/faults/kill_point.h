// Who is killed, when, and on what kind of card.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace test {

enum class Victim {
    embedded_host, // with the card in its process: what is left is the directory
    split_host,    // the card stands in another process
    card           // in a process of its own; the host lives on
};

enum class Instant {
    before_request, // it reached the victim and is not carried out
    behind_request, // carried out, and the reply is never sent
    any             // between two instructions
};

struct KillKind {
    Victim victim;
    Instant instant;
    const char *name;
    const char *words;
};

inline constexpr std::array kill_kinds = {
    KillKind{Victim::embedded_host, Instant::before_request, "host",
             "host with its card, before a request"},
    KillKind{Victim::embedded_host, Instant::any, "host-any", "host with its card, at an instant"},
    KillKind{Victim::split_host, Instant::before_request, "split-host",
             "host beside its card, before a request"},
    KillKind{Victim::split_host, Instant::any, "split-host-any",
             "host beside its card, at an instant"},
    KillKind{Victim::card, Instant::before_request, "card",
             "card, before it carries a request out"},
    KillKind{Victim::card, Instant::behind_request, "card-behind",
             "card, before it says that it has"},
    KillKind{Victim::card, Instant::any, "card-any", "card, at an instant within a request"},
};

struct CardKind {
    const char *name;
    uint32_t type;
};
inline constexpr std::array card_kinds = {CardKind{"ordinary", 0xD20001},
                                          CardKind{"unswapped", 0xD10001}};

// One life that ends. For an instant, `nth` is a platform call of the host or a request at the
// card, and `instructions` is how far from there.
struct KillPoint {
    uint64_t nth = 1;
    uint64_t instructions = 0;
};

struct KillSetting {
    KillKind kind;
    CardKind card;
    uint16_t num_nps = 2;
};

// "split-host-any:ordinary:2:1234+567", and the same read again.
std::string describe(const KillSetting &setting, const KillPoint &point);
struct NamedPoint {
    KillSetting setting;
    KillPoint point;
};
std::optional<NamedPoint> kill_point_named(const std::string &text);

} // namespace test
