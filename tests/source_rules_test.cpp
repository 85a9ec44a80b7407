// Rules that every source keeps: what the library may include, and how long things may be.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const fs::path project = PROJECT_SOURCE_DIR;
constexpr size_t longest_line = 100;
constexpr size_t longest_file = 699;
constexpr size_t longest_function = 69;

// A file whose scope is fixed by its name may be longer.
const std::set<std::string> long_files = {"inline_service_shadowdb_util.cpp"};
constexpr size_t longest_long_file = 900;

Lines lines_of(const fs::path &path)
{
    Lines lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

std::vector<fs::path> sources_under(const fs::path &directory)
{
    const std::set<std::string> extensions = {".c", ".cpp", ".def", ".h"};
    std::vector<fs::path> sources;
    if (!fs::exists(project / directory))
        return sources;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(project / directory)) {
        if (entry.is_regular_file() && extensions.count(entry.path().extension()) != 0)
            sources.push_back(entry.path());
    }
    std::sort(sources.begin(), sources.end());
    return sources;
}

std::vector<fs::path> all_sources()
{
    std::vector<fs::path> sources;
    for (const char *directory :
         {"lc", "platform", "services", "tests", "tools", "virtual-line-card", "bench", "fuzz"}) {
        const std::vector<fs::path> found = sources_under(directory);
        sources.insert(sources.end(), found.begin(), found.end());
    }
    return sources;
}

std::string place(const fs::path &path, size_t line)
{
    return fs::relative(path, project).string() + ":" + std::to_string(line);
}

// Characters as a reader counts them: bytes that go on with a character do not count.
size_t columns(const std::string &line)
{
    return static_cast<size_t>(std::count_if(line.begin(), line.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

struct Function {
    size_t line;   // of the opening brace, counted from 1
    size_t length; // braces included
};

// The formatter puts a function's braces, and no others, on lines of their own.
std::vector<Function> functions_of(const Lines &lines)
{
    std::vector<Function> functions;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string indent = lines[i].substr(0, lines[i].find_first_not_of(' '));
        if (lines[i] != indent + "{")
            continue;
        const auto end =
            std::find(lines.begin() + static_cast<ptrdiff_t>(i), lines.end(), indent + "}");
        functions.push_back(
            {i + 1, static_cast<size_t>(end - lines.begin()) - i + (end != lines.end())});
    }
    return functions;
}

TEST(SourceRules, TheSourcesAreFound)
{
    EXPECT_GT(all_sources().size(), 100u);
    EXPECT_GT(sources_under("lc/inline-service/src").size(), 8u);
}

TEST(SourceRules, LinesHaveAtMost100Columns)
{
    for (const fs::path &path : all_sources()) {
        const Lines lines = lines_of(path);
        for (size_t i = 0; i < lines.size(); ++i)
            EXPECT_LE(columns(lines[i]), longest_line) << place(path, i + 1);
    }
}

TEST(SourceRules, FilesHaveFewerThan700Lines)
{
    for (const fs::path &path : all_sources()) {
        const bool may_be_long = long_files.count(path.filename()) != 0;
        EXPECT_LE(lines_of(path).size(), may_be_long ? longest_long_file : longest_file)
            << fs::relative(path, project);
    }
}

TEST(SourceRules, FunctionsHaveFewerThan70Lines)
{
    size_t functions = 0;
    for (const fs::path &path : all_sources()) {
        for (const Function &function : functions_of(lines_of(path))) {
            EXPECT_LE(function.length, longest_function) << place(path, function.line);
            ++functions;
        }
    }
    EXPECT_GT(functions, 500u);
}

TEST(SourceRules, ALongFunctionWouldBeFound)
{
    Lines lines = {"int f()", "{"};
    lines.insert(lines.end(), 68, "    if (x) {}");
    lines.push_back("}");
    const std::vector<Function> functions = functions_of(lines);
    ASSERT_EQ(functions.size(), 1u);
    EXPECT_EQ(functions[0].line, 2u);
    EXPECT_EQ(functions[0].length, 70u);
}

// ---- what the library includes -----------------------------------------------------------------

const std::set<std::string> standard_headers = {
    // of the language
    "algorithm", "array", "atomic", "bit", "cerrno", "charconv", "climits", "compare", "concepts",
    "cstdarg", "cstddef", "cstdint", "cstdio", "cstdlib", "cstring", "ctime", "functional",
    "initializer_list", "iterator", "limits", "new", "optional", "span", "string_view", "tuple",
    "type_traits", "utility", "stdbool.h", "stddef.h", "stdint.h", "stdio.h", "stdlib.h",
    "string.h", "time.h",
    // of POSIX
    "fcntl.h", "pthread.h", "sys/stat.h", "sys/types.h", "sys/uio.h", "unistd.h",
    // of the machine
    "immintrin.h"};

void expect_allowed_includes(const fs::path &path, const std::vector<std::string> &directories)
{
    const std::regex form(R"(^\s*#\s*include\s*([<"])([^>"]+)[>"].*)");
    const Lines lines = lines_of(path);
    for (size_t i = 0; i < lines.size(); ++i) {
        std::smatch match;
        if (!std::regex_match(lines[i], match, form))
            continue;
        const std::string name = match[2];
        if (match[1] == "<") {
            EXPECT_EQ(standard_headers.count(name), 1u)
                << place(path, i + 1) << " includes <" << name << ">";
            continue;
        }
        const bool known =
            std::any_of(directories.begin(), directories.end(),
                        [&](auto &directory) { return fs::exists(project / directory / name); });
        EXPECT_TRUE(known) << place(path, i + 1) << " includes \"" << name << "\"";
    }
}

TEST(SourceRules, TheLibraryIncludesItsOwnFilesThePlatformAndTheStandardLibraryOnly)
{
    for (const fs::path &path : sources_under("lc/inline-service/src"))
        expect_allowed_includes(
            path, {"lc/inline-service/src", "lc/inline-service/include", "platform/include"});
}

TEST(SourceRules, ExportedHeadersIncludeEachOtherAndThePlatformOnly)
{
    for (const fs::path &path : sources_under("lc/inline-service/include"))
        expect_allowed_includes(path, {"lc/inline-service/include", "platform/include"});
}

TEST(SourceRules, PlatformHeadersIncludeEachOtherOnly)
{
    for (const fs::path &path : sources_under("platform/include"))
        expect_allowed_includes(path, {"platform/include"});
}

// Looks at the code of the library, not at what it says of itself.
void expect_nowhere(const std::string &pattern)
{
    const std::regex form(pattern);
    for (const fs::path &path : sources_under("lc/inline-service")) {
        const Lines lines = lines_of(path);
        for (size_t i = 0; i < lines.size(); ++i)
            EXPECT_FALSE(std::regex_search(lines[i], form)) << place(path, i + 1);
    }
}

TEST(SourceRules, TheLibraryHasNoTestHookAndNoWeakSymbol)
{
    expect_nowhere(R"(#\s*if.*\bTEST)");
    expect_nowhere(R"(\bweak\b)");
}

// Compilers differ in which line of a longer call they mean, and a site's line is its address.
TEST(SourceRules, EveryLogSiteStandsOnOneLine)
{
    const std::regex opened(R"(inline_svc_trace(_error)?\((?!.*;))");
    for (const fs::path &path : sources_under("lc/inline-service/src")) {
        const Lines lines = lines_of(path);
        for (size_t i = 0; path.extension() == ".cpp" && i < lines.size(); ++i)
            EXPECT_FALSE(std::regex_search(lines[i], opened)) << place(path, i + 1);
    }
}

} // namespace
