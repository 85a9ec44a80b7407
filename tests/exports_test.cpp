// What the library shows and what it asks for: exactly the agreed symbols, nothing beside them.

#include <algorithm>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "baseline.h"
#include "elf_symbols.h"

namespace {

using Names = std::vector<std::string>;
using test::ElfSymbol;

bool begins_with_any(const std::string &text, const Names &beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(), [&](const std::string &beginning) {
        return text.compare(0, beginning.size(), beginning) == 0;
    });
}

// What a sanitized or measured build needs beside the platform.
bool is_of_the_build(const std::string &name)
{
    return begins_with_any(
        name, {"__asan_", "__ubsan_", "__tsan_", "__lsan_", "__sanitizer_", "__gcov_", "__llvm_"});
}

class Exports : public testing::Test {
protected:
    Names names_of(bool defined) const
    {
        Names names;
        for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
            if (symbol.defined == defined)
                names.push_back(symbol.name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const test::ElfLibrary library_{INLINE_SERVICE_LIBRARY};
};

// ---- shown -------------------------------------------------------------------------------------

TEST_F(Exports, TheLibraryShowsExactlyTheListedFunctionsAndObjects)
{
    Names shown;
    for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
        if (!symbol.defined || is_of_the_build(symbol.name))
            continue;
        shown.push_back(symbol.name + (symbol.type == STT_FUNC ? "()" : ""));
    }
    std::sort(shown.begin(), shown.end());
    test::expect_baseline("exports.txt", shown);
}

TEST_F(Exports, EveryShownSymbolIsGlobalWithDefaultVisibility)
{
    for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
        if (!symbol.defined || is_of_the_build(symbol.name))
            continue;
        EXPECT_EQ(symbol.binding, STB_GLOBAL) << symbol.name;
        EXPECT_EQ(symbol.visibility, STV_DEFAULT) << symbol.name;
        EXPECT_TRUE(symbol.type == STT_FUNC || symbol.type == STT_OBJECT) << symbol.name;
    }
}

TEST_F(Exports, EveryShownSymbolHasItsPlainCName)
{
    for (const std::string &name : names_of(true))
        EXPECT_NE(name.substr(0, 2), "_Z") << name;
}

TEST_F(Exports, ObjectsHaveTheirAgreedSizes)
{
    const std::vector<std::pair<std::string, uint64_t>> sizes = {
        {"pgbl_ptr", 8},
        {"pshadow_db", 8},
        {"NUM_LC_NPS", 2},
        {"engine_conn_error", 1},
        {"spp_ui_in_progress", 4},
        {"spp_ui_retval", 8},
        {"imp_cmd_codes", 4},
        {"the_punt_decode_hash", 8},
        {"u32x4_compare_word_mask_table", 256},
        {"inutil_handler", 24},
        {"ed_dummy_libinline_service_infra", 32},
        {"ed_perf_dummy_libinline_service_infra", 32},
    };
    const auto symbols = library_.dynamic_symbols();
    if (std::any_of(symbols.begin(), symbols.end(),
                    [](const ElfSymbol &symbol) { return symbol.name == "__asan_init"; }))
        GTEST_SKIP() << "the address sanitizer makes objects longer";
    for (const auto &[name, size] : sizes) {
        const auto symbol = std::find_if(symbols.begin(), symbols.end(),
                                         [&name = name](const ElfSymbol &candidate) {
                                             return candidate.defined && candidate.name == name;
                                         });
        ASSERT_NE(symbol, symbols.end()) << name;
        EXPECT_EQ(symbol->type, STT_OBJECT) << name;
        EXPECT_EQ(symbol->size, size) << name;
    }
}

TEST_F(Exports, AProcessWithThePlatformsServicesLoadsTheLibraryAndFindsEverySymbolByName)
{
    void *library = dlopen(INLINE_SERVICE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string &name : names_of(true)) {
        if (!is_of_the_build(name)) {
            EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;
        }
    }
    EXPECT_EQ(dlsym(library, "no_such_symbol"), nullptr);
}

// ---- asked for ---------------------------------------------------------------------------------

TEST_F(Exports, TheLibraryAsksThePlatformForExactlyTheListedServices)
{
    for (const std::string &needed : library_.dynamic_texts(DT_NEEDED)) {
        if (begins_with_any(needed, {"libasan.so.", "libtsan.so."}))
            GTEST_SKIP() << "the sanitizer's library stands for libc, without versions";
    }
    Names asked;
    for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
        if (symbol.defined || symbol.binding == STB_WEAK || !symbol.version.empty() ||
            is_of_the_build(symbol.name))
            continue;
        asked.push_back(symbol.name);
    }
    std::sort(asked.begin(), asked.end());
    test::expect_baseline("platform_imports.txt", asked);
}

TEST_F(Exports, EverythingElseThatItAsksForIsOfTheCOrCompilerLibraries)
{
    for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
        if (!symbol.defined && !symbol.version.empty()) {
            EXPECT_TRUE(begins_with_any(symbol.version, {"GLIBC_", "GCC_", "GLIBCXX_", "CXXABI_"}))
                << symbol.name << "@" << symbol.version;
        }
    }
}

TEST_F(Exports, TheOnlyWeakSymbolsAreThoseOfTheStartFiles)
{
    const Names of_the_start_files = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable",
                                      "__cxa_finalize", "__gmon_start__"};
    for (const ElfSymbol &symbol : library_.dynamic_symbols()) {
        if (symbol.binding == STB_WEAK && !is_of_the_build(symbol.name)) {
            EXPECT_TRUE(
                std::count(of_the_start_files.begin(), of_the_start_files.end(), symbol.name) == 1)
                << symbol.name;
        }
    }
}

TEST_F(Exports, WaitingEndingAndTimeAreAskedOfTheCLibrary)
{
    const Names asked = names_of(false);
    for (const char *name : {"sleep", "exit", "clock_gettime", "ctime"})
        EXPECT_EQ(std::count(asked.begin(), asked.end(), name), 1) << name;
}

TEST_F(Exports, NothingIsThrown)
{
    for (const std::string &name : names_of(false))
        EXPECT_FALSE(begins_with_any(name, {"__cxa_throw", "_Unwind_", "__gxx_personality"}))
            << name;
}

// ---- the file ----------------------------------------------------------------------------------

TEST_F(Exports, TheLibraryNeedsNoOtherLibraryThanThoseOfCAndTheCompiler)
{
    for (const std::string &needed : library_.dynamic_texts(DT_NEEDED)) {
        EXPECT_TRUE(begins_with_any(needed, {"libc.so.", "libm.so.", "libgcc_s.so.",
                                             "libstdc++.so.", "ld-linux-x86-64.so.", "libasan.so.",
                                             "libubsan.so.", "libtsan.so."}))
            << needed;
    }
}

TEST_F(Exports, TheLibrarysNameForTheLoaderHasItsMajorVersion)
{
    EXPECT_EQ(library_.dynamic_texts(DT_SONAME), Names{"libinline_service_infra.so.1"});
}

TEST_F(Exports, TheLibraryCarriesNoPathOfItsOwnToOtherLibraries)
{
    EXPECT_EQ(library_.dynamic_texts(DT_RPATH), Names{});
    EXPECT_EQ(library_.dynamic_texts(DT_RUNPATH), Names{});
}

} // namespace
