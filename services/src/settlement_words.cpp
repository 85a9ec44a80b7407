#include "settlement_words.h"

#include <algorithm>

namespace services {

void SettlementWords::done(const std::string &what, const std::string &to_what)
{
    auto deed = std::ranges::find(deeds_, what, &Deed::what);
    if (deed == deeds_.end())
        deed = deeds_.insert(deeds_.end(), {what, {}, 0});
    if (deed->count++ < examples)
        deed->first.push_back(to_what);
}

Settlement SettlementWords::settlement() const
{
    Settlement settlement;
    for (const Deed &deed : deeds_) {
        for (const std::string &example : deed.first)
            settlement.done.push_back(deed.what + ": " + example);
        if (deed.count > deed.first.size())
            settlement.done.back() +=
                ", and " + std::to_string(deed.count - deed.first.size()) + " more";
    }
    settlement.left = left_;
    settlement.is_damaged = is_damaged_;
    return settlement;
}

} // namespace services
