// What every file of a state directory refuses to be opened as, whichever it is.
#include <functional>

#include "test_directory.h"
#include "vlc/np_store.h"
#include "vlc/prm_store.h"
#include "vlc/window.h"

namespace vlc::test {

namespace {

constexpr uint64_t window_bytes = 1 << 20;

CardConfig small_card()
{
    CardConfig config;
    config.num_nps = 2;
    config.service_config_capacity = 16;
    config.ext_conf_capacity = 16;
    return config;
}

void open_window(const StateDirectory &directory)
{
    Window(directory, window_bytes);
}

void open_nps(const StateDirectory &directory)
{
    NpStore(directory, small_card());
}

void open_prm(const StateDirectory &directory)
{
    PrmStore prm(directory);
    if (directory.is_new()) {
        prm.push_answer(prm.make_handle(), StoredAnswer{});
    }
}

struct KeptFile {
    const char *name;
    const char *other; // of another kind
    void (*open)(const StateDirectory &);
};

constexpr KeptFile kept_files[] = {
    {"window", "np0", open_window}, {"np0", "window", open_nps},   {"np1", "prm", open_nps},
    {"prm", "answers1", open_prm},  {"answers1", "prm", open_prm},
};

// Spoils one file of a whole card, then opens it: what is told.
void expect_refusal(const std::function<void(const TestDirectory &, const KeptFile &)> &spoil,
                    const std::string &told_part)
{
    for (const KeptFile &kept : kept_files) {
        for (const Access access : {Access::read_write, Access::read_only}) {
            TestDirectory top;
            {
                const StateDirectory directory(top.path(), Access::read_write);
                open_window(directory);
                open_nps(directory);
                open_prm(directory);
            }
            spoil(top, kept);
            const auto before = all_files(top.path());
            const StateDirectory directory(top.path(), access);
            const std::string told = refusal([&] { kept.open(directory); });
            EXPECT_EQ(told.find(top.file(kept.name).string() + ": "), 0U)
                << kept.name << ": " << told;
            EXPECT_NE(told.find(told_part), std::string::npos) << told;
            EXPECT_EQ(told.find('\n'), std::string::npos) << told;
            EXPECT_TRUE(all_files(top.path()) == before) << "something changed";
        }
    }
}

void patch(const std::filesystem::path &file, size_t at, const std::string &bytes)
{
    std::string content = content_of(file);
    content.replace(at, bytes.size(), bytes);
    write_file(file, content);
}

} // namespace

TEST(KeptFiles, OneThatIsCutOffIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            const auto size = std::filesystem::file_size(top.file(kept.name));
            std::filesystem::resize_file(top.file(kept.name), size - 1);
        },
        "is truncated");
}

TEST(KeptFiles, OneThatIsEmptyIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) { write_file(top.file(kept.name), ""); },
        "is truncated");
}

TEST(KeptFiles, OneThatEndsInItsHeaderIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            std::filesystem::resize_file(top.file(kept.name), 20);
        },
        "is truncated");
}

TEST(KeptFiles, OneOfAnotherVersionIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            patch(top.file(kept.name), 12, std::string("\x09\0\0\0", 4));
        },
        "is of version 9, and this program knows version ");
}

TEST(KeptFiles, OneOfAnotherKindIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            std::filesystem::copy_file(top.file(kept.other), top.file(kept.name),
                                       std::filesystem::copy_options::overwrite_existing);
        },
        "is a file of a virtual line card, but not ");
}

TEST(KeptFiles, SomebodyElsesIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            write_file(top.file(kept.name), std::string(100000, 'x'));
        },
        "is no file of a virtual line card");
}

TEST(KeptFiles, ADamagedHeaderIsRefused)
{
    expect_refusal([](const TestDirectory &top,
                      const KeptFile &kept) { patch(top.file(kept.name), 30, "\x5A"); },
                   "has a damaged header");
}

TEST(KeptFiles, ADirectoryInTheFilesPlaceIsRefused)
{
    expect_refusal(
        [](const TestDirectory &top, const KeptFile &kept) {
            std::filesystem::remove(top.file(kept.name));
            std::filesystem::create_directory(top.file(kept.name));
        },
        "");
}

TEST(KeptFiles, OneThatIsLongerThanItSaysIsOpened)
{
    TestDirectory top;
    const StateDirectory directory(top.path(), Access::read_write);
    open_prm(directory);
    std::filesystem::resize_file(top.file("answers1"),
                                 std::filesystem::file_size(top.file("answers1")) + 5000);
    const StateDirectory reader(top.path(), Access::read_only);
    EXPECT_EQ(PrmStore(reader).unread(1), 1U);
}

TEST(KeptFiles, AReaderMakesNone)
{
    TestDirectory top;
    StateDirectory(top.path(), Access::read_write);
    const auto before = all_files(top.path());
    const StateDirectory directory(top.path(), Access::read_only);
    for (const auto open : {open_window, open_nps, open_prm}) {
        EXPECT_NE(refusal([&] { open(directory); }).find("No such file or directory"),
                  std::string::npos);
    }
    EXPECT_EQ(all_files(top.path()), before);
}

TEST(KeptFiles, OneThatAKilledProcessHalfMadeIsMadeAgain)
{
    TestDirectory top;
    const StateDirectory directory(top.path(), Access::read_write);
    write_file(top.file("window.new"), std::string(5000, 'x'));
    open_window(directory);
    EXPECT_FALSE(std::filesystem::exists(top.file("window.new")));
    EXPECT_EQ(std::filesystem::file_size(top.file("window")), window_bytes);
}

} // namespace vlc::test
