// Examples in a document: what a person types and what is printed, in blocks marked ```console.
//
// A line "$ command" begins an example, which a backslash or <<'END' carries on; what follows, up
// to the next one, is its output. In it a line "..." stands for any lines. Times, dates, process
// numbers and rates are compared as such, not by their value.
#pragma once

#include <string>
#include <vector>

namespace test {

struct Example {
    std::string command;
    std::vector<std::string> output;
    size_t line;     // of the document, where the command stands; from 0
    size_t end_line; // behind the output
};

// The examples under one heading "## ...", which belong together.
struct Transcript {
    std::string title;
    std::vector<Example> examples;
};

std::vector<Transcript> transcripts_in(const std::vector<std::string> &document);

// Whether lines are what an example shows.
bool matches(const std::vector<std::string> &shown, const std::vector<std::string> &printed);

} // namespace test
