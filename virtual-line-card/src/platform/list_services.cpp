// The list library. It needs no card, and its lists may lie in the window, where they outlive the
// process. So the forward chain, `first` and each `next`, is right at every instruction: an element
// is filled in before one store puts it in, and one store takes it out. All the rest follows from
// the chain, and whoever finds a list that a kill left can make it again.
#include "../store/publish.h"
#include "platform_list.h"
#include "tap_words.h"

using vlc::forced_as;
using vlc::publish;
using vlc::tapped_call;

namespace {

constexpr uint32_t refused = 0;

list_link *link_of(void *element)
{
    return static_cast<list_link *>(element);
}

void take_out(list_record &list, list_link &link)
{
    publish(link.prev ? link.prev->next : list.first, link.next);
    (link.next ? link.next->prev : list.last) = link.prev;
    list.count--;
    link = {};
}

} // namespace

void *list_create(list_record *list, uint64_t comparator, uint64_t flags, uint64_t user)
{
    if (auto forced = tapped_call("list_create", list, comparator, flags, user))
        return forced_as<void *>(*forced);
    // This card has no sorted lists.
    if (!list || comparator != 0 || flags != 0)
        return nullptr;
    *list = {};
    return list;
}

uint32_t list_enqueue_default(list_record *list, void *element, void *data)
{
    if (auto forced = tapped_call("list_enqueue_default", list, element, data))
        return forced_as<uint32_t>(*forced);
    if (!list || !element || link_of(element)->owner)
        return refused;
    list_link &link = *link_of(element);
    link = {nullptr, list->last, data, list};
    publish(list->last ? list->last->next : list->first, &link);
    list->last = &link;
    list->count++;
    return LIST_OK;
}

uint32_t list_remove_default(list_record *list, void *element, void *data)
{
    if (auto forced = tapped_call("list_remove_default", list, element, data))
        return forced_as<uint32_t>(*forced);
    if (!list || !element || link_of(element)->owner != list)
        return refused;
    take_out(*list, *link_of(element));
    return LIST_OK;
}

void *list_dequeue_default(list_record *list)
{
    if (auto forced = tapped_call("list_dequeue_default", list))
        return forced_as<void *>(*forced);
    if (!list || !list->first)
        return nullptr;
    void *data = list->first->data;
    take_out(*list, *list->first);
    return data;
}

uint32_t list_destroy(list_record *list)
{
    if (auto forced = tapped_call("list_destroy", list))
        return forced_as<uint32_t>(*forced);
    if (!list)
        return refused;
    while (list->first)
        take_out(*list, *list->first);
    *list = {};
    return LIST_OK;
}
