// What goes wrong in PRM on purpose: a hook is asked about each call that PRM takes in.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform_prm.h"

namespace vlc {

struct PrmCall {
    const char *service;                       // the C name
    const prm_config_record *record = nullptr; // of a request
    std::optional<uint32_t> np{};              // of a request or a counter's read
};

// By default nothing goes wrong.
struct PrmFault {
    // Of requests alone: all but `instead` are carried out.
    enum class Answer { as_it_is, instead, late, lost, twice, behind_the_next };
    enum class Then { nothing, restart, np_reset };

    Answer answer = Answer::as_it_is;
    uint32_t status = 0;     // of the answer that is given instead
    uint32_t late_turns = 0; // turns of the event queue that a late answer waits
    Then then = Then::nothing;
    bool keep_tables = true; // over a restart
    uint32_t down_turns = 0; // turns of the event queue for which a restart stays down
};

using PrmFaultHook = std::function<PrmFault(const PrmCall &)>;

} // namespace vlc
