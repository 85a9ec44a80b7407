// What became of the virtual services that were fed to the library.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "inline_service_vservice.h"
#include "terminal.h"

namespace inlinectl {

struct FedVservice {
    enum class Came {
        programmed,
        modified,
        deleted,
        was_not_there, // of a delete
        skipped,       // the library did not try
        failed,
        lost // failed, and the entry that was there is gone
    };

    uint32_t index = 0;
    std::optional<vservice_config> config = {}; // of an add
    Came came = Came::skipped;
    std::vector<std::string> said = {}; // by the library's log, of what failed
};

struct VserviceReport {
    std::vector<FedVservice> fed;
    size_t programmed_now = 0;     // services with an entry, when all was done
    std::vector<std::string> said; // of no service by itself
    bool interrupted = false;
    size_t not_fed = 0; // when it was interrupted

    size_t count(FedVservice::Came came) const;
    bool went_well() const; // nothing was said, skipped or left over
};

void write_text(std::ostream &out, const VserviceReport &report, const Style &style);
void write_json(std::ostream &out, const VserviceReport &report);

} // namespace inlinectl
