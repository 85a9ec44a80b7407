// The platform's lists as this library uses them: elements are their own data, and a list's own
// operations come before the default ones.
#pragma once

#include "platform_list.h"

namespace inline_service {

// The platform's code.
inline uint32_t list_enqueue(list_record &list, void *element)
{
    const list_enqueue_fn enqueue = list.enqueue != nullptr ? list.enqueue : list_enqueue_default;
    return enqueue(&list, element, element);
}

inline bool list_append(list_record &list, void *element)
{
    return list_enqueue(list, element) == LIST_OK;
}

inline void list_remove(list_record &list, void *element)
{
    const list_remove_fn remove = list.remove != nullptr ? list.remove : list_remove_default;
    remove(&list, element, element);
}

inline void *list_take_first(list_record &list)
{
    const list_dequeue_fn dequeue = list.dequeue != nullptr ? list.dequeue : list_dequeue_default;
    return dequeue(&list);
}

} // namespace inline_service
