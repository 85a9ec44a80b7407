// PROGRAM --list        names its paths, one a line
// PROGRAM PATH [TMP]    runs one, and says how many operations were counted; the directory TMP
//                       becomes its /tmp, where the log lies
#include "hot_path.h"

#include "own_tmp.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include <alloca.h>

namespace bench {

uint64_t operations_counted = 0;

namespace {

constexpr uintptr_t page_bytes = 4096;

// Arguments and environment move the stack, and with it what copying on it takes. So the path's
// frame begins at a page.
[[gnu::noinline]] void run_on_whole_page(const HotPath &path)
{
    const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    auto *rest_of_page = static_cast<volatile char *>(alloca(here % page_bytes + page_bytes));
    rest_of_page[0] = 0;
    path.run();
    rest_of_page[0] = 1; // it stays until here
}

// Where it is not permitted, the lines go to the one log.
void enter(const char *directory)
{
    try {
        enter_own_tmp(directory);
    } catch (const std::exception &why) {
        std::fprintf(stderr, "%s\n", why.what());
    }
}

} // namespace
} // namespace bench

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
        for (const bench::HotPath &path : bench::hot_paths)
            std::puts(path.name);
        return 0;
    }
    for (const bench::HotPath &path : bench::hot_paths) {
        if (argc < 2 || argc > 3 || std::strcmp(argv[1], path.name) != 0)
            continue;
        if (argc == 3)
            bench::enter(argv[2]);
        bench::run_on_whole_page(path);
        if (bench::why_unavailable != nullptr)
            std::printf("unavailable: %s\n", bench::why_unavailable);
        else
            std::printf("%" PRIu64 " operations\n", bench::operations_counted);
        return 0;
    }
    std::fprintf(stderr, "usage: %s --list | PATH [TMP]\n", argv[0]);
    return 2;
}
