// Attributes lie in the window alone: a second process attached to it reads them as they are.
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "attribute_fixture.h"
#include "vlc/window.h"

using namespace test;

namespace {

// A process beside the test's whose window is the file alone, mapped anew. It answers one question
// at a time: the getters' values for an interface, or an endpoint for a slot.
class AttachedProcess {
public:
    struct Question {
        enum Kind : uint32_t { interface, endpoint, set_interface } kind;
        uint16_t number;
    };
    struct Answer {
        uint32_t words[6];
    };

    explicit AttachedProcess(int protection)
    {
        if (pipe(questions_) != 0 || pipe(answers_) != 0)
            abort();
        process_ = fork();
        if (process_ == 0) {
            close(questions_[1]);
            attach(protection);
            serve();
        }
    }
    ~AttachedProcess()
    {
        close(questions_[1]); // the end of its questions is its end
        int status = 0;
        waitpid(process_, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    AttachedProcess(const AttachedProcess &) = delete;
    AttachedProcess &operator=(const AttachedProcess &) = delete;

    std::vector<uint32_t> ask(Question::Kind kind, uint16_t number)
    {
        const Question question{kind, number};
        Answer answer{};
        EXPECT_EQ(write(questions_[1], &question, sizeof question), ssize_t{sizeof question});
        EXPECT_EQ(read(answers_[0], &answer, sizeof answer), ssize_t{sizeof answer});
        return {answer.words, answer.words + 6};
    }

private:
    static void attach(int protection)
    {
        const int file = open("/tmp/card/window", protection == PROT_READ ? O_RDONLY : O_RDWR);
        struct stat known = {};
        if (file < 0 || fstat(file, &known) != 0)
            _exit(2);
        void *place = reinterpret_cast<void *>(vlc::Window::address);
        const auto size = static_cast<size_t>(known.st_size);
        munmap(place, size);
        if (mmap(place, size, protection, MAP_SHARED | MAP_FIXED_NOREPLACE, file, 0) != place)
            _exit(3);
    }

    [[noreturn]] void serve()
    {
        Question question;
        while (read(questions_[0], &question, sizeof question) == ssize_t{sizeof question}) {
            const Answer answer = answer_to(question);
            if (write(answers_[1], &answer, sizeof answer) != ssize_t{sizeof answer})
                _exit(4);
        }
        _exit(0);
    }

    static Answer answer_to(const Question &question)
    {
        Answer answer{};
        switch (question.kind) {
        case Question::interface:
            answer = {{inline_api_uidb_to_apptype(question.number),
                       inline_api_get_dirty_bit(question.number),
                       inline_api_get_slot(question.number), inline_api_get_iftype(question.number),
                       inline_api_uidb_to_appid(0, question.number),
                       inline_api_uidb_to_vqi(question.number)}};
            break;
        case Question::endpoint:
            answer.words[0] =
                inline_api_get_infra_ip(question.number, &answer.words[1], &answer.words[2]);
            break;
        case Question::set_interface:
            inline_api_set_uidb_to_app(4, question.number, 9);
            inline_api_set_dirty_bit(question.number);
            break;
        }
        return answer;
    }

    int questions_[2] = {-1, -1};
    int answers_[2] = {-1, -1};
    pid_t process_ = -1;
};

using Question = AttachedProcess::Question;
using Words = std::vector<uint32_t>;
class SharedAttributes : public AttributeTest {};

TEST_F(SharedAttributes, AProcessThatMapsTheWindowReadOnlyReadsEachAttributeAsItIsSet)
{
    AttachedProcess reader(PROT_READ);
    EXPECT_EQ(reader.ask(Question::interface, 4095), (Words{0, 0, 0, 0, 0, 0}));
    inline_api_set_uidb_to_app(3, 4095, 0xFFFF);
    EXPECT_EQ(reader.ask(Question::interface, 4095), (Words{3, 0, 0, 0, 0xFFFF, 0}));
    inline_api_set_dirty_bit(4095);
    inline_api_set_slot_iftype(4095, 7, 0x80000001);
    inline_api_set_uidb_to_vqi(4095, 12);
    EXPECT_EQ(reader.ask(Question::interface, 4095), (Words{3, 1, 7, 0x80000001, 0xFFFF, 12}));
    inline_api_reset_dirty_bit(4095);
    inline_api_set_uidb_to_app(3, 4095, 0);
    EXPECT_EQ(reader.ask(Question::interface, 4095), (Words{0, 0, 7, 0x80000001, 0, 12}));
    EXPECT_EQ(reader.ask(Question::interface, 4094), (Words{0, 0, 0, 0, 0, 0}));
}

TEST_F(SharedAttributes, AProcessThatMapsTheWindowReadOnlyReadsASlotsEndpoint)
{
    AttachedProcess reader(PROT_READ);
    EXPECT_EQ(reader.ask(Question::endpoint, slot_with_infra), (Words{2, 0, 0, 0, 0, 0}));
    inline_api_set_infra_slot_infra_ip(0, slot_with_infra, 99, 0x0A000001, 77);
    EXPECT_EQ(reader.ask(Question::endpoint, slot_with_infra), (Words{0, 0x0A000001, 77, 0, 0, 0}));
}

TEST_F(SharedAttributes, WhatASecondProcessSetsIsReadHere)
{
    AttachedProcess writer(PROT_READ | PROT_WRITE);
    writer.ask(Question::set_interface, 10);
    EXPECT_EQ(record(10), (std::vector<uint8_t>{4, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0}));
    EXPECT_EQ(inline_api_uidb_to_apptype(10), 4u);
    EXPECT_EQ(inline_api_get_dirty_bit(10), 1u);
}

} // namespace
