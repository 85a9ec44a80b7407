// A trace buffer as a file: what it keeps, what it goes on with, what it makes of damage.
#include "vlc/trace_file.h"

#include <cstring>
#include <random>

#include "kill_sweep.h"
#include "test_directory.h"

namespace vlc::test {

namespace {

constexpr uint32_t few = 8;

// An event that says in all its parts which one it is.
TraceRecord event(uint64_t number)
{
    TraceRecord record{};
    record.nanoseconds = static_cast<int64_t>(1000 + number);
    record.event_word = 0x700000000 | number % 5;
    record.sites = 77;
    record.order = 500 + number;
    record.arg_count = 3;
    record.args = {number, ~number, 0};
    record.strings = 4;
    const std::string text = "text " + std::to_string(number);
    std::strcpy(record.texts.data(), text.c_str());
    record.text_bytes = static_cast<uint32_t>(text.size() + 1);
    return record;
}

void expect_event(const TraceRecord &read, uint64_t number)
{
    const TraceRecord wanted = event(number);
    EXPECT_EQ(number, read.mark - 1);
    EXPECT_EQ(wanted.nanoseconds, read.nanoseconds);
    EXPECT_EQ(wanted.event_word, read.event_word);
    EXPECT_EQ(wanted.sites, read.sites);
    EXPECT_EQ(wanted.order, read.order);
    EXPECT_EQ(wanted.args, read.args);
    EXPECT_EQ("text " + std::to_string(number), texts_of(read).at(2));
}

class TraceFiles : public testing::Test {
protected:
    std::filesystem::path path() const { return directory.file("trace"); }
    void append(uint64_t from, uint64_t to, uint32_t entries = few) const
    {
        TraceFile file(path(), entries);
        for (uint64_t number = from; number < to; ++number)
            file.append(event(number));
    }
    void expect_events(uint64_t from, uint64_t to) const
    {
        const StoredTrace trace = read_trace(path());
        ASSERT_EQ(to - from, trace.events.size());
        for (uint64_t number = from; number < to; ++number)
            expect_event(trace.events[number - from], number);
        EXPECT_EQ(0U, trace.damaged);
        EXPECT_EQ(0U, trace.unfinished);
    }
    TestDirectory directory;
};

TEST_F(TraceFiles, ANewOneIsEmpty)
{
    append(0, 0);
    expect_events(0, 0);
}

TEST_F(TraceFiles, EventsComeBackAsTheyWere)
{
    append(0, 5);
    expect_events(0, 5);
}

TEST_F(TraceFiles, OneThousandAndOneEventsLeaveTheLastThousand)
{
    append(0, 1001, 1000);
    expect_events(1, 1001);
    EXPECT_EQ(1000U, read_trace(path()).entries);
}

TEST_F(TraceFiles, AnotherProcessGoesOnBehindWhatIsThere)
{
    append(0, 3);
    append(3, 13);
    expect_events(5, 13);
}

TEST_F(TraceFiles, SayTheOrderOfTheirLastEvent)
{
    EXPECT_EQ(0U, TraceFile(path(), few).last_order());
    append(0, 13);
    EXPECT_EQ(512U, TraceFile(path(), few).last_order());
}

TEST_F(TraceFiles, OneOfAnotherSizeIsMadeAnew)
{
    append(0, 3);
    append(0, 2, 2 * few);
    expect_events(0, 2);
}

TEST_F(TraceFiles, AnEventLeftUnfinishedIsCountedAndItsPlaceIsTakenNext)
{
    append(0, 10);
    std::string bytes = content_of(path());
    std::memset(bytes.data() + 4096 + sizeof(TraceRecord), 0, sizeof(uint64_t)); // event 9
    write_file(path(), bytes);
    StoredTrace trace = read_trace(path());
    EXPECT_EQ(1U, trace.unfinished);
    EXPECT_EQ(0U, trace.damaged);
    ASSERT_EQ(7U, trace.events.size());
    expect_event(trace.events.back(), 8);
    append(9, 10);
    expect_events(2, 10);
}

TEST_F(TraceFiles, ADamagedEventIsLeftOutAndCounted)
{
    append(0, 10);
    const std::string whole = content_of(path());
    // Everything that the event uses: its mark to its texts.
    const size_t begin = 4096 + 3 * sizeof(TraceRecord);
    const size_t end = begin + offsetof(TraceRecord, texts) + 8;
    for (size_t at = begin; at < end; at += 7) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
        write_file(path(), bytes);
        const StoredTrace trace = read_trace(path());
        EXPECT_EQ(1U, trace.damaged) << "byte " << at - begin;
        EXPECT_EQ(7U, trace.events.size());
    }
}

TEST_F(TraceFiles, WhatIsNoTraceIsRefusedAndStays)
{
    append(0, 10);
    const std::string whole = content_of(path());
    for (const std::string &bytes :
         {std::string(), std::string("not a trace"), whole.substr(0, 5000), whole.substr(0, 40)}) {
        write_file(path(), bytes);
        EXPECT_NE("", refusal([&] { read_trace(path()); }));
        EXPECT_NE("", refusal([&] { TraceFile::check(path()); }));
        EXPECT_NE("", refusal([&] { TraceFile(path(), few); }));
        EXPECT_EQ(bytes, content_of(path()));
    }
}

TEST_F(TraceFiles, FlippedBytesAreAnErrorOrLeftOutEventsAndNeverFalseOnes)
{
    append(0, 10);
    const std::string whole = content_of(path());
    std::mt19937_64 random(6);
    for (int round = 0; round < 100; ++round) {
        std::string bytes = whole;
        for (uint64_t flips = 1 + random() % 6; flips > 0; --flips) {
            // Half of them in the header, which is looked at first.
            const size_t at = random() % 2 == 0 ? random() % 64 : random() % bytes.size();
            bytes[at] = static_cast<char>(random());
        }
        write_file(path(), bytes);
        refusal([&] {
            for (const TraceRecord &read : read_trace(path()).events)
                expect_event(read, read.args[0]);
        });
    }
}

TEST_F(TraceFiles, TextsOfADamagedEventEndWithIt)
{
    TraceRecord record = event(1);
    record.arg_count = 400;
    record.strings = ~uint32_t{0};
    record.text_bytes = 5000;
    record.texts.fill('x');
    const auto texts = texts_of(record);
    ASSERT_EQ(TraceRecord::max_args, texts.size());
    EXPECT_EQ(TraceRecord::max_text_bytes, texts[0].size());
    EXPECT_EQ("", texts[1]);
}

TEST(TraceRecords, ComeBackFromTheirText)
{
    const TraceRecord record = event(7);
    const std::string text = text_of_record(record);
    EXPECT_EQ(std::string::npos, text.find_first_not_of("0123456789abcdef"));
    TraceRecord read = record_of_text(text).value();
    read.mark = 8;
    expect_event(read, 7);
}

TEST(TraceRecords, AreNoneOfATextThatIsNoRecord)
{
    const std::string text = text_of_record(event(7));
    EXPECT_FALSE(record_of_text(""));
    EXPECT_FALSE(record_of_text("zz"));
    EXPECT_FALSE(record_of_text(text + "0"));
    EXPECT_FALSE(record_of_text(text + "00"));
    EXPECT_FALSE(record_of_text(text.substr(2)));
    EXPECT_FALSE(record_of_text(std::string(4000, 'f')));
    for (size_t at = 0; at < text.size(); ++at) {
        std::string other = text;
        other[at] = 'f';
        const TraceRecord read = record_of_text(other).value_or(TraceRecord{});
        EXPECT_LE(texts_of(read).size(), TraceRecord::max_args);
    }
}

TEST(TraceNames, AnyShortNameGivesAFileOfTheDirectory)
{
    TestDirectory directory;
    const std::vector<std::string> names{"../a b", "inlc", "x-event", "%41"};
    for (const std::string &name : names)
        write_file(directory.path() / trace_file_name(name, "error"), "");
    write_file(directory.path() / sites_file_name("other"), "");
    write_file(directory.file("sites-half.new"), "");
    write_file(directory.file("window"), "");
    EXPECT_EQ((std::vector<std::string>{"%41", "../a b", "inlc", "other", "x-event"}),
              traced_components(directory.path()));
}

TEST(TraceKills, AtEveryInstructionLeaveWholeEventsAndAtMostOneUnfinished)
{
    constexpr uint64_t before = 5;
    constexpr uint64_t appended = 12; // more than there is room for
    TestDirectory work;
    TestDirectory copy;
    { // The copy has a marker of its own, and gets the file.
        TraceFile(work.file("trace"), few);
    }
    KillSweep sweep(work.path(), copy.path(), {{"trace"}});
    sweep.prepare = [&] {
        const auto file = std::make_shared<TraceFile>(work.file("trace"), few);
        for (uint64_t number = 0; number < before; ++number)
            file->append(event(number));
        KillSweep::Operations operations;
        for (uint64_t number = before; number < before + appended; ++number)
            operations.emplace_back([file, number] { file->append(event(number)); });
        return operations;
    };
    sweep.verify = [&](const StateDirectory &directory, uint32_t done) {
        const StoredTrace trace = read_trace(directory.file("trace"));
        EXPECT_EQ(0U, trace.damaged);
        EXPECT_LE(trace.unfinished, 1U);
        ASSERT_FALSE(trace.events.empty());
        const uint64_t last = trace.events.back().mark - 1;
        EXPECT_GE(last + 1, before + done);
        EXPECT_LE(last, before + done);
        // The one that is being written stands in the place of the oldest.
        const uint64_t all = std::min<uint64_t>(last + 1, few);
        EXPECT_GE(trace.events.size() + 1, all);
        for (size_t i = 0; i < trace.events.size(); ++i)
            expect_event(trace.events[i], last + 1 - trace.events.size() + i);
        // A host that goes on has the next number.
        const std::filesystem::path again = directory.file("again");
        std::filesystem::copy_file(directory.file("trace"), again,
                                   std::filesystem::copy_options::overwrite_existing);
        TraceFile(again, few).append(event(last + 1));
        expect_event(read_trace(again).events.back(), last + 1);
    };
    sweep.run(KillSweep::slow ? 300 : 1000, KillSweep::slow ? 20 : 40);
}

} // namespace

} // namespace vlc::test
