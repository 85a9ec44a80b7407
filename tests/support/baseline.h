// Lists that are compared with files of tests/baseline, and written there only when asked for.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace test {

// Lines of a list; blank lines and those that begin with '#' say something to the reader only.
inline std::vector<std::string> read_list(const std::string &path)
{
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    }
    return lines;
}

// What stands in one list and not in the other, as a diff shows it.
inline std::string difference(const std::vector<std::string> &baseline,
                              const std::vector<std::string> &now)
{
    const auto missing_in = [](const std::vector<std::string> &list, const std::string &line) {
        return std::find(list.begin(), list.end(), line) == list.end();
    };
    std::string text;
    for (const std::string &line : baseline)
        text += missing_in(now, line) ? "-" + line + "\n" : "";
    for (const std::string &line : now)
        text += missing_in(baseline, line) ? "+" + line + "\n" : "";
    return text;
}

inline void expect_baseline(const std::string &name, const std::vector<std::string> &now)
{
    const std::string path = PROJECT_SOURCE_DIR "/tests/baseline/" + name;
    if (getenv("REWRITE_BASELINES") != nullptr) {
        std::ofstream file(path);
        for (const std::string &line : now)
            file << line << "\n";
        return;
    }
    const std::vector<std::string> baseline = read_list(path);
    EXPECT_TRUE(baseline == now)
        << "tests/baseline/" << name << " and the library differ:\n"
        << difference(baseline, now)
        << "If the library is right, run this test once more with REWRITE_BASELINES=1.";
}

} // namespace test
