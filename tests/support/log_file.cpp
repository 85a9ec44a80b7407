#include "log_file.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace test {
namespace {

constexpr size_t stamp_length = 20; // "Nov 21 01:38:00.123:"

bool is_stamped(const std::string &line)
{
    return line.size() >= stamp_length && line[6] == ' ' && line[9] == ':' && line[12] == ':' &&
           line[15] == '.' && line[19] == ':';
}

} // namespace

std::string log_text()
{
    std::ostringstream text;
    text << std::ifstream(log_path, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> log_messages()
{
    std::vector<std::string> messages;
    std::istringstream lines(log_text());
    for (std::string line; std::getline(lines, line);) {
        if (is_stamped(line))
            messages.push_back(line.substr(stamp_length));
        else if (!messages.empty())
            messages.back() += "\n" + line;
    }
    return messages;
}

std::vector<std::string> log_messages_since(size_t mark)
{
    std::vector<std::string> messages = log_messages();
    messages.erase(messages.begin(),
                   messages.begin() + static_cast<ptrdiff_t>(std::min(mark, messages.size())));
    return messages;
}

bool log_contains(const std::string &message)
{
    const std::vector<std::string> messages = log_messages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

} // namespace test
