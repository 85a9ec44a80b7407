#include "kill_point.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace test {
namespace {

template <typename Kinds>
auto kind_named(const Kinds &kinds, const std::string &name)
{
    return std::ranges::find_if(kinds, [&name](const auto &kind) { return name == kind.name; });
}

} // namespace

std::string describe(const KillSetting &setting, const KillPoint &point)
{
    std::string text = std::string(setting.kind.name) + ":" + setting.card.name + ":" +
                       std::to_string(setting.num_nps) + ":" + std::to_string(point.nth);
    if (setting.kind.instant == Instant::any)
        text += "+" + std::to_string(point.instructions);
    return text;
}

std::optional<NamedPoint> kill_point_named(const std::string &text)
{
    char kind_name[32] = {};
    char card_name[32] = {};
    KillPoint point;
    uint16_t num_nps = 0;
    const int fields = std::sscanf(text.c_str(), "%31[^:]:%31[^:]:%" SCNu16 ":%" SCNu64 "+%" SCNu64,
                                   kind_name, card_name, &num_nps, &point.nth, &point.instructions);
    const auto kind = kind_named(kill_kinds, kind_name);
    const auto card = kind_named(card_kinds, card_name);
    if (fields < 4 || kind == kill_kinds.end() || card == card_kinds.end() || num_nps < 1 ||
        num_nps > 8 || point.nth < 1)
        return std::nullopt;
    const NamedPoint named = {{*kind, *card, num_nps}, point};
    return describe(named.setting, named.point) == text ? std::optional(named) : std::nullopt;
}

} // namespace test
