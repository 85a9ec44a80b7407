// A client's book of its requests to PRM: what was taken in, and what came back for it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "platform_prm.h"
#include "vlc/np_store.h"

namespace vlc {

class PrmLedger {
public:
    // In doubt: it went out, and nobody knows whether PRM took it in.
    void note_request(TableKind table, const prm_config_record &record, bool in_doubt);
    void note_answer(const prm_async_response &response);
    void note_break(); // of the connection to PRM

    struct Sums {
        uint64_t requests[table_kinds][3] = {}; // taken in, by table and operation
        uint64_t answered = 0;                  // of those asked for in this process
        uint64_t failed = 0;                    // of the answered: not carried out
        uint64_t unanswered = 0;                // taken in, no answer yet
        uint64_t in_doubt = 0;                  // no answer yet, and there may never be one
        uint64_t unasked =
            0; // answers to nothing asked in this process: an earlier one's, or twice
        uint64_t breaks = 0;
        uint64_t in_flight_at_breaks = 0; // unanswered or in doubt when the connection broke
        bool is_clean() const
        {
            return unanswered == 0 && in_doubt == 0 && unasked == 0 && breaks == 0;
        }
    };
    const Sums &sums() const { return sums_; }

private:
    // NP, table, reference number, key
    using Request = std::tuple<uint32_t, std::optional<TableKind>, uint32_t, std::string>;
    struct Open {
        uint64_t taken = 0;
        uint64_t in_doubt = 0;
    };

    std::map<Request, Open> open_;
    Sums sums_;
};

} // namespace vlc
