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
    enum class Came { programmed, modified, deleted, nothing };

    uint32_t index = 0;
    std::optional<vservice_config> config = {}; // of an add
    Came came = Came::nothing;
    std::vector<std::string> said = {}; // by the library's log, of what failed
};

struct VserviceReport {
    std::vector<FedVservice> fed;
    size_t programmed_now = 0;     // services with an entry, when all was done
    std::vector<std::string> said; // of no service by itself

    size_t count(FedVservice::Came came) const;
    bool went_well() const; // nothing was said, and every record came to something
};

void write_text(std::ostream &out, const VserviceReport &report, const Style &style);
void write_json(std::ostream &out, const VserviceReport &report);

} // namespace inlinectl
