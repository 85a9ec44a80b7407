// The platform's error log: what went to syslog, kept for whoever asks.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace vlc {

struct ErrorMessage {
    const void *record; // the caller's description of the message's kind, by address
    std::string text;
};

// The process has one. It remembers the last messages and forgets older ones.
class ErrorLog {
public:
    static constexpr size_t remembered = 1000;

    static ErrorLog &instance();
    ErrorLog(const ErrorLog &) = delete;
    ErrorLog &operator=(const ErrorLog &) = delete;

    const std::deque<ErrorMessage> &messages() const { return messages_; } // oldest first
    void clear() { messages_.clear(); }
    void write(const void *record, const char *text); // to syslog and standard error as well

private:
    ErrorLog() = default;
    std::deque<ErrorMessage> messages_;
};

} // namespace vlc
