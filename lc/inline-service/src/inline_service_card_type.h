// How this card's NPs want a counter's number in an entry's result.
#pragma once

namespace inline_service {

// True on cards that take the number's upper three bytes as they lie in memory. Every other card,
// and the time before inline_svc_prm_init, is false.
bool card_takes_counters_unswapped();

} // namespace inline_service
