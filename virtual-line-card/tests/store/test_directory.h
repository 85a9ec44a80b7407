// A directory that is gone with the test, and files in it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "vlc/state_error.h"

namespace vlc::test {

class TestDirectory {
public:
    TestDirectory()
    {
        std::string name = testing::TempDir() + "vlc-store-XXXXXX";
        path_ = mkdtemp(name.data()) != nullptr ? name : "";
    }
    ~TestDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TestDirectory(const TestDirectory &) = delete;
    TestDirectory &operator=(const TestDirectory &) = delete;

    const std::filesystem::path &path() const { return path_; }
    std::filesystem::path file(const char *name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string content_of(const std::filesystem::path &file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

inline void write_file(const std::filesystem::path &file, const std::string &content)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

// Everything in a directory, to see that nothing changed.
inline std::map<std::string, std::string> all_files(const std::filesystem::path &directory)
{
    std::map<std::string, std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        files[entry.path().filename()] = entry.is_regular_file() ? content_of(entry.path()) : "";
    }
    return files;
}

// What a person is told, or "" when nothing is refused.
template <typename Action>
std::string refusal(const Action &action)
{
    try {
        action();
    } catch (const StateError &error) {
        return error.what();
    }
    return "";
}

} // namespace vlc::test
