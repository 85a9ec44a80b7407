#include "transcript.h"

#include <regex>
#include <string_view>

namespace test {
namespace {

constexpr std::string_view prompt = "$ ";
constexpr std::string_view any_lines = "...";

// A command goes on behind a backslash, and up to the end of the file that it is given.
bool goes_on(const std::string &command)
{
    return command.ends_with('\\') ||
           (command.find("<<'END'") != std::string::npos && !command.ends_with("\nEND"));
}

// What differs from run to run, by its kind.
std::string comparable(std::string line)
{
    static const std::vector<std::pair<std::regex, const char *>> kinds{
        {std::regex("T[0-9]{2}-[0-9]{2}-[0-9]{2}[.][0-9]+Z"), "TTIME"}, // of a file's name
        {std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}"), "DATE"},
        {std::regex("[0-9]{2}:[0-9]{2}:[0-9]{2}([.][0-9]+)?"), "TIME"},
        {std::regex("process [0-9]+"), "process N"},
        {std::regex("\\b[0-9][0-9,.]*/s"), "N/s"},
        {std::regex("\\b[0-9][0-9,.]* (ns|us|ms|s)\\b"), "N s"},
        {std::regex("(TIME|N/s) *"), "$1 "}, // columns are as wide as what stands in them
        {std::regex(" +(TIME|N/s)"), " $1"},
    };
    for (const auto &[kind, name] : kinds)
        line = std::regex_replace(line, kind, name);
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

std::vector<Transcript> transcripts_in(const std::vector<std::string> &document)
{
    std::vector<Transcript> transcripts;
    bool is_in_block = false;
    for (size_t i = 0; i < document.size(); ++i) {
        const std::string &line = document[i];
        if (line.starts_with("```")) {
            is_in_block = line == "```console";
        } else if (!is_in_block) {
            if (line.starts_with("## "))
                transcripts.push_back({line.substr(3), {}});
        } else if (line.starts_with(prompt)) {
            std::string command = line.substr(prompt.size());
            while (goes_on(command) && i + 1 < document.size())
                command += "\n" + document[++i];
            transcripts.back().examples.push_back({command, {}, i, i + 1});
        } else if (!transcripts.empty() && !transcripts.back().examples.empty()) {
            Example &example = transcripts.back().examples.back();
            example.output.push_back(line);
            example.end_line = i + 1;
        }
    }
    std::erase_if(transcripts, [](const Transcript &one) { return one.examples.empty(); });
    return transcripts;
}

bool matches(const std::vector<std::string> &shown, const std::vector<std::string> &printed)
{
    // reachable[j]: the lines shown so far can be the first j that were printed.
    std::vector<bool> reachable(printed.size() + 1);
    reachable[0] = true;
    for (const std::string &line : shown) {
        std::vector<bool> next(printed.size() + 1);
        bool any = false;
        for (size_t j = 0; j <= printed.size(); ++j) {
            if (line == any_lines)
                next[j] = any = any || reachable[j];
            else if (j > 0 && reachable[j - 1])
                next[j] = comparable(line) == comparable(printed[j - 1]);
        }
        reachable = std::move(next);
    }
    return reachable.back();
}

} // namespace test
