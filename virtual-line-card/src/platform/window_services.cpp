// The shared-memory window by number. Every code is an errno value.
#include <cerrno>

#include "platform_shared_window.h"
#include "tap_words.h"
#include "vlc/virtual_line_card.h"

using vlc::forced_as;
using vlc::tapped_call;
using vlc::VirtualLineCard;

namespace {

VirtualLineCard *card_with_window(uint32_t window)
{
    VirtualLineCard *card = VirtualLineCard::current();
    return card && card->window_id() == window ? card : nullptr;
}

} // namespace

uint32_t shmwin_malloc(uint32_t window, int32_t size, void **block)
{
    // The size is widened by its sign, so that a negative one is seen as passed.
    if (auto forced = tapped_call("shmwin_malloc", window, size, block))
        return forced_as<uint32_t>(*forced);
    VirtualLineCard *card = card_with_window(window);
    if (!card || size <= 0 || !block)
        return EINVAL;
    return card->window().allocate(size, block);
}

uint32_t shmwin_free(void *block)
{
    if (auto forced = tapped_call("shmwin_free", block))
        return forced_as<uint32_t>(*forced);
    VirtualLineCard *card = VirtualLineCard::current();
    return card && block ? card->window().release(block) : EINVAL;
}

uint32_t shmwin_reset(uint32_t window)
{
    if (auto forced = tapped_call("shmwin_reset", window))
        return forced_as<uint32_t>(*forced);
    VirtualLineCard *card = card_with_window(window);
    if (!card)
        return EINVAL;
    card->window().reset();
    return 0;
}
