#include "host_platform.h"

#include <cstdio>
#include <memory>

#include "vlc/state_error.h"
#include "vlc/virtual_line_card.h"

namespace {

std::unique_ptr<vlc::VirtualLineCard> card;

} // namespace

int platform_open(const char *directory, platform_handles *handles)
{
    try {
        card = std::make_unique<vlc::VirtualLineCard>(vlc::CardConfig{}, directory);
    } catch (const vlc::StateError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    handles->event_manager = card->events().handle();
    handles->window_id = card->window_id();
    handles->num_nps = card->config().num_nps;
    handles->root = static_cast<shadow_db *>(card->window().root());
    return 0;
}

void platform_publish_root(shadow_db *root)
{
    card->window().set_root(root);
}

int platform_run_until(int (*done)(void))
{
    return card->events().run_until([done] { return done() != 0; }) ? 1 : 0;
}

void platform_close(void)
{
    card.reset();
}
