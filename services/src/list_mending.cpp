#include "list_mending.h"

#include <cstring>

namespace services {
namespace {

template <typename Value>
bool put(Value &place, Value value)
{
    if (place == value)
        return false;
    place = value;
    return true;
}

} // namespace

bool mend_list(list_record &list, uint32_t *num_elements)
{
    bool mended = false;
    list_link *previous = nullptr;
    uint64_t count = 0;
    for (list_link *link = list.first; link != nullptr; link = link->next) {
        mended |= put(link->prev, previous);
        mended |= put(link->owner, static_cast<void *>(&list));
        previous = link;
        ++count;
    }
    mended |= put(list.last, previous);
    mended |= put(list.count, count);
    mended |= put(*num_elements, static_cast<uint32_t>(count));
    return mended;
}

} // namespace services
