// SIGINT, SIGTERM and SIGHUP end a run between two packets, not in the middle of one.
#pragma once

namespace inlinectl {

void watch_interrupts(); // the second signal ends the process at once
bool interrupted();
int interrupt_descriptor(); // readable from the first signal on

} // namespace inlinectl
