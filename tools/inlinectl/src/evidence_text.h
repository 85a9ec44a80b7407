// The files of a bundle of evidence, as text.
#pragma once

#include <cstdint>
#include <ostream>

#include "inline_service_shadowdb.h"
#include "platform_prm.h"
#include "vlc/card_access.h"

namespace inlinectl {

void write_answer(std::ostream &out, const prm_async_response &answer, int64_t read_at);
void write_shadow_entry(std::ostream &out, const prm_async_response &answer, const shadow_db *root,
                        uint32_t num_nps);
void write_np_rows(std::ostream &out, const prm_async_response &answer, vlc::CardAccess &card);
void write_trace(std::ostream &out); // both buffers of the library, in order of time

} // namespace inlinectl
