#include "vlc/prm_ledger.h"

#include <algorithm>
#include <iterator>

#include "vlc/prm_store.h"

namespace vlc {

namespace {

std::string text_of(const uint8_t *bytes, size_t size)
{
    return {bytes, bytes + size};
}

} // namespace

void PrmLedger::note_request(TableKind table, const prm_config_record &record, bool in_doubt)
{
    const size_t key_bytes = std::min<size_t>(record.key_len, sizeof record.key);
    Open &open = open_[{record.np, table, record.refnum, text_of(record.key, key_bytes)}];
    ++(in_doubt ? open.in_doubt : open.taken);
    ++(in_doubt ? sums_.in_doubt : sums_.unanswered);
    sums_.in_flight_at_breaks += in_doubt ? 1 : 0; // the break was noted while it was asked
    const uint32_t operation = record.refnum >> PRM_REFNUM_OP_SHIFT;
    if (!in_doubt && operation < std::size(sums_.requests[0]))
        ++sums_.requests[static_cast<size_t>(table)][operation];
}

void PrmLedger::note_answer(const prm_async_response &response)
{
    if ((response.refnum & PRM_REFNUM_TABLE_MASK) == PRM_REFNUM_DELAY_QUEUE)
        return; // PRM's own
    const size_t key_bytes = std::min<size_t>(response.key_size, sizeof response.key);
    const auto place = open_.find({response.np, table_of_answer(response.refnum, response.flags),
                                   response.refnum, text_of(response.key, key_bytes)});
    if (place == open_.end()) {
        ++sums_.unasked;
        return;
    }
    ++sums_.answered;
    sums_.failed += response.status != 0 ? 1 : 0;
    Open &open = place->second;
    const bool was_taken = open.taken > 0;
    --(was_taken ? open.taken : open.in_doubt);
    --(was_taken ? sums_.unanswered : sums_.in_doubt);
    if (open.taken == 0 && open.in_doubt == 0)
        open_.erase(place);
}

void PrmLedger::note_break()
{
    ++sums_.breaks;
    sums_.in_flight_at_breaks += sums_.unanswered + sums_.in_doubt;
}

} // namespace vlc
