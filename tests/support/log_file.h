// The library's log file, read as a person would: line by line, without the time stamps.
#pragma once

#include <string>
#include <vector>

namespace test {

inline constexpr char log_path[] = "/tmp/inline_svc_log";

// The messages in the file, without stamps. The blank line behind a message that ends in a newline
// is folded back into it, so a message reads as it was written.
std::vector<std::string> log_messages();

// The messages that came since `mark` (a count of messages taken before).
std::vector<std::string> log_messages_since(size_t mark);

bool log_contains(const std::string &message);

// The file as it is.
std::string log_text();

} // namespace test
