// A directory of this run alone.
#pragma once

#include <filesystem>

namespace inlinectl {

class TemporaryDirectory {
public:
    TemporaryDirectory(); // throws UsageError
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace inlinectl
