#include "temporary_directory.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "exit_code.h"

namespace inlinectl {

TemporaryDirectory::TemporaryDirectory()
{
    std::error_code error;
    const std::filesystem::path place = std::filesystem::temp_directory_path(error);
    if (error)
        throw UsageError("no temporary directory: " + error.message());
    std::string name = (place / "inlinectl-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw UsageError(name + ": " + std::generic_category().message(errno));
    path_ = name;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace inlinectl
