// Injections through a host that runs in another process.
#pragma once

#include <filesystem>
#include <optional>

#include "injection.h"
#include "vlc/host_console.h"

namespace inlinectl {

// Has the host answer those who ask it to inject. It may be asked once its library is started.
void offer_injections(vlc::HostConsole &console);

// Nothing when no host runs in the directory. Throws std::runtime_error when the host does not do
// it, or goes away.
std::optional<InjectionReport> inject_through_host(const std::filesystem::path &state_directory,
                                                   const Injection &injection);

} // namespace inlinectl
