// Numbers for a person.
#pragma once

#include <cstdint>
#include <string>

namespace inlinectl {

// 1234567 as "1,234,567".
inline std::string grouped(uint64_t number)
{
    std::string digits = std::to_string(number);
    for (size_t place = digits.size(); place > 3;) {
        place -= 3;
        digits.insert(place, 1, ',');
    }
    return digits;
}

// "1 entry", "2 entries"
inline std::string counted(uint64_t number, const char *one, const char *many)
{
    return grouped(number) + " " + (number == 1 ? one : many);
}

} // namespace inlinectl
