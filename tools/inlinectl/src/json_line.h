// JSON for programs, one object a line, written as it comes. Views of many thousand lines use it,
// which a tree of values for each line would make several times slower.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace inlinectl {

class JsonLines {
public:
    explicit JsonLines(std::ostream &out) : out_(out) {}
    ~JsonLines() { flush(); }
    JsonLines(const JsonLines &) = delete;
    JsonLines &operator=(const JsonLines &) = delete;

    JsonLines &begin(std::string_view kind); // {"kind": KIND
    void end();

    // Names are plain words. Within a list they are left out, as empty texts.
    JsonLines &number(std::string_view name, uint64_t value);
    JsonLines &real(std::string_view name, double value); // with three decimals
    JsonLines &text(std::string_view name, std::string_view value);
    JsonLines &flag(std::string_view name, bool value);
    JsonLines &nothing(std::string_view name);
    JsonLines &open_list(std::string_view name);
    JsonLines &open_object(std::string_view name = {});
    JsonLines &close_list();
    JsonLines &close_object();

private:
    void put_name(std::string_view name);
    void flush();

    std::ostream &out_;
    std::string line_;
    bool needs_comma_ = false;
};

} // namespace inlinectl
