// The table of sites: what it says of each, how it follows, what it makes of damage.
#include "vlc/site_table.h"

#include <cstring>
#include <random>
#include <string_view>

#include "test_directory.h"

namespace vlc::test {

namespace {

const char *const names[] = {"main->index", "a name, with 3 words"};

class SiteTables : public testing::Test {
protected:
    SiteTables()
    {
        points[0] = {ED_DEFAULT_FLAGS,
                     0,
                     ED_EVENT_BUFFER,
                     17,
                     2,
                     2,
                     names,
                     " index %d of %s\n",
                     "src/file.cpp",
                     "a_function",
                     0};
        points[1] = {ED_PRINT, 1,  ED_ERROR_BUFFER, 900,          0, 0,
                     nullptr,  "", nullptr,         "b_function", 0};
        component.name = "a component";
        std::memcpy(component.short_name, "sixteen letters!", 16);
    }
    std::filesystem::path path() const { return directory.file("sites"); }
    std::unique_ptr<SiteTable> make()
    {
        const ed_debug_point *by_number[] = {&points[1], nullptr, &points[0]};
        return std::make_unique<SiteTable>(path(), component, by_number);
    }

    ed_debug_point points[2]{};
    ed_component component{};
    TestDirectory directory;
};

TEST_F(SiteTables, SayEverythingOfTheirSites)
{
    const auto table = make();
    const StoredSites sites = read_sites(path());
    EXPECT_EQ("a component", sites.name);
    EXPECT_EQ("sixteen letters!", sites.short_name);
    EXPECT_EQ(table->check(), sites.check);
    ASSERT_EQ(2U, sites.sites.size());
    const StoredSite &site = sites.sites[1];
    EXPECT_EQ(2U, site.number);
    EXPECT_EQ(17U, site.line);
    EXPECT_EQ(0, site.level);
    EXPECT_EQ(ED_EVENT_BUFFER, site.trace_buffer);
    EXPECT_EQ(ED_DEFAULT_FLAGS, site.flags);
    EXPECT_EQ(17U, site.line_filter);
    EXPECT_EQ(0U, site.hits);
    EXPECT_EQ("src/file.cpp", site.file);
    EXPECT_EQ("a_function", site.function);
    EXPECT_EQ(" index %d of %s\n", site.format);
    EXPECT_EQ((std::vector<std::string>{"main->index", "a name, with 3 words"}), site.arg_names);
    EXPECT_EQ("", sites.sites[0].file);
    EXPECT_EQ(1, sites.sites[0].level);
    EXPECT_EQ(ED_PRINT, sites.sites[0].flags);
    EXPECT_TRUE(sites.sites[0].arg_names.empty());
}

TEST_F(SiteTables, AreFoundByNumber)
{
    make();
    const StoredSites sites = read_sites(path());
    ASSERT_NE(nullptr, sites.site(2));
    EXPECT_EQ("a_function", sites.site(2)->function);
    EXPECT_EQ(nullptr, sites.site(1));
    EXPECT_EQ(nullptr, sites.site(3));
}

TEST_F(SiteTables, FollowHitsFlagsAndFilter)
{
    const auto table = make();
    table->hit(points[0]);
    points[0].flags = ED_SLOW;
    points[0].line_filter = 0x01000022;
    table->hit(points[0]);
    points[1].flags = 7;
    table->follow(points[1]);
    const StoredSites sites = read_sites(path());
    EXPECT_EQ(2U, sites.site(2)->hits);
    EXPECT_EQ(ED_SLOW, sites.site(2)->flags);
    EXPECT_EQ(0x01000022U, sites.site(2)->line_filter);
    EXPECT_EQ(17U, sites.site(2)->line) << "where the site stands does not change";
    EXPECT_EQ(0U, sites.site(0)->hits);
    EXPECT_EQ(7, sites.site(0)->flags);
    EXPECT_EQ(table->check(), sites.check) << "of what never changes";
}

TEST_F(SiteTables, ANumberBeyondTheTableIsLeftAlone)
{
    const auto table = make();
    const std::string before = content_of(path());
    ed_debug_point other = points[0];
    other.number = 3;
    table->hit(other);
    table->follow(other);
    EXPECT_EQ(before, content_of(path()));
}

TEST_F(SiteTables, OfOtherSitesHaveAnotherCheck)
{
    const uint64_t check = make()->check();
    EXPECT_EQ(check, make()->check());
    points[0].flags = 0;
    EXPECT_EQ(check, make()->check());
    points[0].format = " index %d of %s";
    EXPECT_NE(check, make()->check());
}

TEST_F(SiteTables, OfTheSameSitesKeepTheirFileAndBeginAnew)
{
    std::unique_ptr<SiteTable> table = make();
    table->hit(points[0]);
    points[0].flags = ED_SLOW;
    const std::filesystem::path linked = directory.file("linked");
    std::filesystem::create_hard_link(path(), linked);
    table = make();
    table->hit(points[1]);
    const StoredSites sites = read_sites(linked);
    EXPECT_EQ(0U, sites.site(2)->hits);
    EXPECT_EQ(ED_SLOW, sites.site(2)->flags);
    EXPECT_EQ(1U, sites.site(0)->hits);
}

TEST_F(SiteTables, OfOtherSitesOrDamagedAreReplaced)
{
    make();
    points[0].format = "another";
    make();
    EXPECT_EQ("another", read_sites(path()).site(2)->format);
    for (const std::string &bytes : {std::string(), content_of(path()).substr(0, 4200)}) {
        write_file(path(), bytes);
        make();
        EXPECT_EQ("another", read_sites(path()).site(2)->format);
    }
    std::string damaged = content_of(path());
    damaged[damaged.find("another")] = 'X';
    write_file(path(), damaged);
    make();
    EXPECT_EQ("another", read_sites(path()).site(2)->format);
}

TEST_F(SiteTables, ALastingByteThatIsDamagedRefusesTheWhole)
{
    make();
    const std::string whole = content_of(path());
    const auto at = whole.find("a_function");
    ASSERT_NE(std::string::npos, at);
    std::string bytes = whole;
    bytes[at] = 'b';
    write_file(path(), bytes);
    EXPECT_EQ(path().string() + ": is damaged", refusal([&] { read_sites(path()); }));
}

TEST_F(SiteTables, FlippedBytesAreAnErrorOrChangeFlagsAndHitsAlone)
{
    make();
    const std::string whole = content_of(path());
    std::mt19937_64 random(6);
    int read = 0;
    for (int round = 0; round < 400; ++round) {
        std::string bytes = whole;
        for (uint64_t flips = 1 + random() % 4; flips > 0; --flips) {
            const size_t at =
                random() % 4 == 0 ? random() % 64 : 4096 + random() % (bytes.size() - 4096);
            bytes[at] = static_cast<char>(random());
        }
        if (random() % 8 == 0)
            bytes.resize(random() % bytes.size());
        write_file(path(), bytes);
        refusal([&] {
            const StoredSites sites = read_sites(path());
            ++read;
            ASSERT_EQ(2U, sites.sites.size());
            EXPECT_EQ("a_function", sites.sites[1].function);
            EXPECT_EQ("a name, with 3 words", sites.sites[1].arg_names[1]);
        });
    }
    EXPECT_GT(read, 10);
}

// ---- a table whose checks are right and whose content is not

constexpr size_t geometry_at = 16; // of the header: sites, bytes of texts, check, nothing
constexpr size_t header_check_at = 48;
constexpr size_t content_at = 4096;
constexpr size_t component_bytes = 16;
constexpr size_t site_bytes = 64;
constexpr size_t lasting_site_bytes = 48;

uint64_t mixed(uint64_t sum, std::string_view bytes)
{
    for (const char byte : bytes)
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return sum;
}

uint64_t word_at(const std::string &bytes, size_t at)
{
    uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

// As somebody would who knows how the checks are made.
void seal(std::string &bytes)
{
    const uint64_t sites = word_at(bytes, geometry_at);
    uint64_t sum = 0xCBF29CE484222325;
    sum = mixed(sum, std::string_view(bytes).substr(content_at, component_bytes));
    size_t at = content_at + component_bytes;
    for (uint64_t i = 0; i < sites && at + site_bytes <= bytes.size(); ++i, at += site_bytes)
        sum = mixed(sum, std::string_view(bytes).substr(at, lasting_site_bytes));
    sum = mixed(sum, std::string_view(bytes).substr(at, word_at(bytes, geometry_at + 8)));
    std::memcpy(bytes.data() + geometry_at + 16, &sum, sizeof sum);
    const uint64_t check =
        mixed(0xCBF29CE484222325, std::string_view(bytes).substr(0, header_check_at));
    std::memcpy(bytes.data() + header_check_at, &check, sizeof check);
}

TEST_F(SiteTables, ForgedWithRightChecksAreAnErrorOrReadWithinThemselves)
{
    make();
    const std::string whole = content_of(path());
    std::string sealed = whole;
    seal(sealed);
    ASSERT_EQ(whole, sealed) << "the test knows how the checks are made";
    std::mt19937_64 random(6);
    int refused = 0;
    int read = 0;
    for (int round = 0; round < 600; ++round) {
        std::string bytes = whole;
        for (uint64_t changes = 1 + random() % 3; changes > 0; --changes)
            bytes[content_at + random() % (bytes.size() - content_at)] =
                static_cast<char>(random() % 3 == 0 ? 0xFF : random() % 80);
        seal(bytes);
        write_file(path(), bytes);
        const std::string told = refusal([&] {
            const StoredSites sites = read_sites(path());
            EXPECT_LE(sites.sites.size(), 3U);
        });
        refused += told.empty() ? 0 : 1;
        read += told.empty() ? 1 : 0;
    }
    EXPECT_GT(refused, 50);
    EXPECT_GT(read, 50);
}

TEST_F(SiteTables, ForgedWithNamesThatEndBehindTheirTextAreRefused)
{
    make();
    const std::string whole = content_of(path());
    const size_t at = whole.find("11 main->index");
    ASSERT_NE(std::string::npos, at);
    for (const char *length : {"91", "9 ", "x1", "  ", "12", "10"}) {
        std::string bytes = whole;
        bytes.replace(at, 2, length);
        seal(bytes);
        write_file(path(), bytes);
        EXPECT_EQ(path().string() + ": is damaged", refusal([&] { read_sites(path()); })) << length;
    }
}

} // namespace

} // namespace vlc::test
