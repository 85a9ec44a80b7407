// The audit of a shadow DB that was damaged at random: it ends, and it touches nothing outside.

#include <cstring>
#include <random>

#include "audited_card.h"
#include "vlc/virtual_line_card.h"

namespace test {
namespace {

class DamagedShadowDb : public AuditedCardTest {
protected:
    DamagedShadowDb()
    {
        for (uint32_t id = 1; id <= 40; ++id)
            store(static_cast<uint16_t>(id % 5), id, id % 2, "entry" + std::to_string(id));
        for (uint32_t key = 0; key < 5; ++key) {
            take_in(root->main_table[key]);
            for (const list_record &table : root->main_table[key]->table_array) {
                for (list_link *link = table.first; link != nullptr; link = link->next)
                    take_in(reinterpret_cast<shmem_node *>(link));
            }
        }
        take_in(root);
        for (uint64_t slot = 0; slot < 8; ++slot) // the slots in use, and some that are not
            words_.push_back(reinterpret_cast<uint64_t *>(root->main_table) + slot);
    }

    template <typename Record>
    void take_in(Record *record)
    {
        for (size_t i = 0; i < sizeof(Record) / sizeof(uint64_t); ++i)
            words_.push_back(reinterpret_cast<uint64_t *>(record) + i);
    }

    // A value that leads astray: an address or a number that could be meant, or noise.
    uint64_t bad_value()
    {
        const uint64_t in_window = vlc::Window::address + random_() % config.window_bytes;
        switch (random_() % 8) {
        case 0:
            return 0;
        case 1:
            return in_window;
        case 2:
            return in_window & ~uint64_t{15};
        case 3:
            return vlc::Window::address + config.window_bytes - random_() % 600;
        case 4:
            return *words_[random_() % words_.size()];
        case 5:
            return reinterpret_cast<uint64_t>(words_[random_() % words_.size()]);
        case 6:
            return random_() % 100;
        default:
            return random_();
        }
    }

    // Damages some words, lets `look` look, and puts them right again.
    template <typename Look>
    void with_damage(const Look &look)
    {
        std::vector<std::pair<uint64_t *, uint64_t>> before;
        for (uint64_t i = random_() % 6 + 1; i > 0; --i) {
            uint64_t *word = words_[random_() % words_.size()];
            before.emplace_back(word, *word);
            *word = bad_value();
        }
        look();
        for (; !before.empty(); before.pop_back())
            *before.back().first = before.back().second;
    }

    std::mt19937_64 random_{20260731};
    std::vector<uint64_t *> words_;
};

TEST_F(DamagedShadowDb, NeverLeadsTheAuditAstray)
{
    constexpr int rounds = 2000;
    int found = 0;
    for (int round = 0; round < rounds; ++round)
        with_damage([&] { found += look().clean() ? 0 : 1; });
    EXPECT_GT(found, rounds / 2);
    EXPECT_TRUE(look().clean());
}

TEST_F(DamagedShadowDb, NeverLeadsTheAuditAstrayWithOneWordWrong)
{
    for (uint64_t *word : words_) {
        const uint64_t before = *word;
        *word = bad_value();
        look();
        *word = before;
    }
    EXPECT_TRUE(look().clean());
}

} // namespace
} // namespace test
