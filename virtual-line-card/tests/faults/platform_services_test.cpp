#include "vlc/platform_services.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

std::set<std::string> listed()
{
    std::set<std::string> names;
    for (const vlc::PlatformService &service : vlc::platform_services())
        EXPECT_TRUE(names.insert(service.name).second) << service.name << " is listed twice";
    return names;
}

const vlc::PlatformService &service(std::string_view name)
{
    const auto all = vlc::platform_services();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto &known) { return known.name == name; });
    EXPECT_NE(found, all.end()) << name;
    return *found;
}

TEST(PlatformServices, AreWhatTheLibraryImports)
{
    std::set<std::string> expected;
    std::ifstream imports(PLATFORM_IMPORTS);
    for (std::string name; std::getline(imports, name);)
        expected.insert(name);
    EXPECT_EQ(expected.size(), 62u);
    EXPECT_EQ(listed(), expected);
}

TEST(PlatformServices, RequestsKnowTheirTableAndOperation)
{
    size_t requests = 0;
    for (const vlc::PlatformService &one : vlc::platform_services()) {
        if (!one.is_request())
            continue;
        requests++;
        const std::string name = one.name;
        EXPECT_EQ(name.find("service_config") != std::string::npos,
                  one.table == vlc::TableKind::service_config)
            << name;
        const std::string endings[] = {"_add", "_mod", "_del"};
        EXPECT_TRUE(name.ends_with(endings[one.operation])) << name;
        EXPECT_TRUE(one.has_np());
    }
    EXPECT_EQ(requests, 9u);
    EXPECT_TRUE(service("prm_stats_cl_read").has_np());
    EXPECT_FALSE(service("shmwin_malloc").has_np());
}

TEST(PlatformServices, APatternsStarStandsForAnyLettersAndNone)
{
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_register", "prm_srh_register"));
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_register", "*"));
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_register", "prm_*"));
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_register", "*register*"));
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_register", "p*_*e*r"));
    EXPECT_TRUE(vlc::matches_pattern("prm_srh_reregister", "prm_srh_*register"));
    EXPECT_FALSE(vlc::matches_pattern("prm_srh_register", "prm_srh_registe"));
    EXPECT_FALSE(vlc::matches_pattern("prm_srh_register", "register"));
    EXPECT_FALSE(vlc::matches_pattern("prm_srh_register", "*registe"));
    EXPECT_FALSE(vlc::matches_pattern("prm_srh_register", ""));
    EXPECT_FALSE(vlc::matches_pattern("", "a*"));
    EXPECT_TRUE(vlc::matches_pattern("", "*"));
}

TEST(PlatformServices, AHopelessPatternIsAnsweredSoon)
{
    std::string pattern;
    for (int i = 0; i < 1000; i++)
        pattern += "*_";
    EXPECT_FALSE(vlc::matches_pattern(std::string(10000, '_') + "x", pattern));
}

} // namespace
