// What a host of this tool answers at its console, beside what its card answers there.
#pragma once

#include "utility_answers.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

// The path at which the library leaves the answer to a utility message.
inline constexpr const char *utility_result_file = "/tmp/inutil_result.txt";

// Beside a host that has started; the verbs go with it.
class HostVerbs {
public:
    explicit HostVerbs(vlc::VirtualLineCard &card);
    ~HostVerbs();
    HostVerbs(const HostVerbs &) = delete;
    HostVerbs &operator=(const HostVerbs &) = delete;

private:
    vlc::VirtualLineCard &card_;
    services::UtilityAnswers utility_;
};

} // namespace inlinectl
