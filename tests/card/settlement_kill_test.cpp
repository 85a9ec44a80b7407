// A host that is killed before each of the platform calls of its work, and settles.

#include <csignal>

#include <gtest/gtest.h>

#include "interrupted_work.h"
#include "slow_build.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr char prepared_directory[] = "/tmp/prepared";
constexpr char work_directory[] = "/tmp/card";

constexpr uint64_t slow = slow_build ? 5 : 1; // times, so that many times fewer points

struct Case {
    CardKind kind;
    size_t work;
};

class KilledInItsWork : public testing::TestWithParam<Case> {
protected:
    KilledInItsWork() : work_(all_works()[GetParam().work])
    {
        fs::remove_all(prepared_directory);
        EXPECT_EQ(live([this] { prepare_work(kind(), prepared_directory); }), 0);
    }
    const CardKind &kind() const { return GetParam().kind; }

    // The host's life that ends in its work. False when the work was done before its time came.
    bool dies_at(uint64_t nth)
    {
        fs::remove_all(work_directory);
        fs::copy(prepared_directory, work_directory);
        const int end = live([this, nth] {
            KillableHost host(kind(), work_directory);
            die_at_call(nth);
            work_.perform();
        });
        EXPECT_TRUE(end == 0 || end == -SIGKILL) << end;
        return end == -SIGKILL;
    }

    Work work_;
};

TEST_P(KilledInItsWork, LeavesWhatASettlementMends)
{
    const uint64_t every = slow * (kind().num_nps > 2 ? 3 : 1);
    uint64_t nth = 1;
    uint64_t points = 0;
    for (; dies_at(nth) && !HasFailure(); nth += every, ++points) {
        EXPECT_EQ(live([this] {
                      KillableHost host(kind(), work_directory);
                      expect_settled(host, work_);
                  }),
                  0)
            << "killed before call " << nth;
    }
    std::printf("killed before %llu of the calls\n", static_cast<unsigned long long>(points));
    EXPECT_GT(nth, 3u * kind().num_nps); // three entries, and a request for each to each NP
}

using KilledInItsSettlement = KilledInItsWork;

// At each of the settlement's own calls, for a few kills of the work.
TEST_P(KilledInItsSettlement, LeavesWhatAnotherMends)
{
    uint64_t points = 0;
    for (uint64_t nth = 2; dies_at(nth) && !HasFailure(); nth += 9 * slow) {
        int end = -SIGKILL;
        for (uint64_t call = 1; end == -SIGKILL; ++call, ++points) {
            EXPECT_TRUE(dies_at(nth));
            end = live([this, call] {
                KillableHost host(kind(), work_directory);
                die_at_call(call);
                host.settle();
            });
            ASSERT_TRUE(end == 0 || end == -SIGKILL) << end;
            ASSERT_EQ(live([this] {
                          KillableHost host(kind(), work_directory);
                          expect_settled(host, work_);
                      }),
                      0)
                << "killed before call " << nth << " and before the settlement's call " << call;
        }
    }
    std::printf("killed in %llu settlements\n", static_cast<unsigned long long>(points));
    EXPECT_GE(points, slow_build ? 3u : 10u);
}

std::vector<Case> cases_with(const std::vector<uint16_t> &numbers_of_nps)
{
    std::vector<Case> cases;
    for (const uint32_t type : {0xD20001u, 0xD10001u}) {
        for (const uint16_t nps : numbers_of_nps) {
            for (size_t work = 0; work < all_works().size(); ++work)
                cases.push_back({{type, nps}, work});
        }
    }
    return cases;
}

std::string name_of(const testing::TestParamInfo<Case> &given)
{
    const auto &[kind, work] = given.param;
    return std::string(all_works()[work].name) + "On" + std::to_string(kind.num_nps) +
           (kind.card_type == 0xD20001 ? "Swapped" : "Unswapped");
}

INSTANTIATE_TEST_SUITE_P(Host, KilledInItsWork, testing::ValuesIn(cases_with({1, 2, 4})), name_of);
INSTANTIATE_TEST_SUITE_P(Host, KilledInItsSettlement, testing::ValuesIn(cases_with({2})), name_of);

} // namespace
} // namespace test
