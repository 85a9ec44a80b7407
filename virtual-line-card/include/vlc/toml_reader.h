// What every reader of TOML says of a value that it cannot take: where it is, and why.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

#include "vlc/state_error.h"

namespace vlc {

class TomlReader {
public:
    // The source's name stands in front of what is said.
    explicit TomlReader(std::string source) : source_(std::move(source)) {}

    [[noreturn]] void fail(const toml::source_region &where, const std::string &why) const
    {
        throw StateError(source_ + ":" + std::to_string(where.begin.line) + ":" +
                         std::to_string(where.begin.column) + ": " + why);
    }

    toml::table parse(std::string_view text) const
    {
        try {
            return toml::parse(text, source_);
        } catch (const toml::parse_error &error) {
            fail(error.source(), std::string(error.description()));
        }
    }

    int64_t number(const toml::node &value, const std::string &name, int64_t least,
                   int64_t most) const
    {
        const std::string range = std::to_string(least) + " to " + std::to_string(most);
        const auto *given = value.as_integer();
        if (given == nullptr)
            fail(value.source(), "'" + name + "' is a whole number, " + range);
        if (given->get() < least || given->get() > most)
            fail(value.source(),
                 "'" + name + "' is " + std::to_string(given->get()) + ", and must be " + range);
        return given->get();
    }

    const std::string &text(const toml::node &value, const std::string &name) const
    {
        const auto *given = value.as_string();
        if (given == nullptr || given->get().empty())
            fail(value.source(), "'" + name + "' is a text that is not empty");
        return given->get();
    }

private:
    std::string source_;
};

} // namespace vlc
