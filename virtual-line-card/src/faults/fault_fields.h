// The words of a fault plan and the fields that go with each action, each said in one place.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform_prm.h"
#include "vlc/fault_plan.h"
#include "vlc/platform_services.h"

namespace vlc {

template <typename Value>
struct FaultWord {
    const char *word;
    Value value;
};

inline constexpr std::array<FaultWord<FaultAction>, 12> fault_actions{{
    {"return", FaultAction::give_code},
    {"no-memory", FaultAction::no_memory},
    {"refuse", FaultAction::refuse},
    {"kill", FaultAction::kill},
    {"answer", FaultAction::answer},
    {"late", FaultAction::late},
    {"lose", FaultAction::lose},
    {"twice", FaultAction::twice},
    {"reorder", FaultAction::reorder},
    {"table-full", FaultAction::table_full},
    {"restart", FaultAction::restart},
    {"np-reset", FaultAction::np_reset},
}};
inline constexpr std::array<FaultWord<TableKind>, table_kinds> fault_tables{{
    {"service_config", TableKind::service_config},
    {"ext_conf", TableKind::ext_conf},
    {"flow", TableKind::flow},
}};
inline constexpr std::array<FaultWord<uint32_t>, 3> fault_operations{{
    {"add", PRM_OP_ADD},
    {"modify", PRM_OP_MODIFY},
    {"delete", PRM_OP_DELETE},
}};
inline constexpr std::array<FaultWord<FaultSide>, 2> fault_targets{{
    {"host", FaultSide::host},
    {"card", FaultSide::card},
}};
inline constexpr std::array<FaultWord<bool>, 2> fault_table_fates{{
    {"kept", true},
    {"lost", false},
}};

template <typename Words, typename Value>
const char *word_of(const Words &words, const Value &value)
{
    for (const auto &known : words) {
        if (known.value == value)
            return known.word;
    }
    return "";
}

// Why this service cannot have the rule, or nothing when it can.
std::optional<FaultComplaint> complaint_about(const FaultRule &rule,
                                              const PlatformService &service);

} // namespace vlc
