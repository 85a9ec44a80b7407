// The trace and the sites of a host, as long as its card is alive: in the card's directory, and at
// its console.
#pragma once

#include "vlc/host_console.h"

namespace vlc {

class SiteConsole {
public:
    // Answers "sites set" with a line for each selected site, and tells the topic "sites" what
    // sites print.
    SiteConsole(const StateDirectory &directory, HostConsole &console);
    ~SiteConsole();
    SiteConsole(const SiteConsole &) = delete;
    SiteConsole &operator=(const SiteConsole &) = delete;

private:
    HostConsole &console_;
};

} // namespace vlc
