// What a settlement did, said so that a person reads it: of many things of one kind the first few.
#pragma once

#include <string>
#include <vector>

#include "settlement.h"

namespace services {

class SettlementWords {
public:
    void done(const std::string &what, const std::string &to_what);
    void left(const std::string &text) { left_.push_back(text); }
    void damaged() { is_damaged_ = true; }
    Settlement settlement() const;

private:
    static constexpr size_t examples = 3;
    struct Deed {
        std::string what;
        std::vector<std::string> first;
        size_t count = 0;
    };
    std::vector<Deed> deeds_; // by when the first was done
    std::vector<std::string> left_;
    bool is_damaged_ = false;
};

} // namespace services
