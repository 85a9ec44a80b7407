// What the NPs keep of their packets, beside what a data plane says of those that it carried.
#pragma once

#include <gtest/gtest.h>

#include "vlc/data_plane.h"

namespace test_packets {

inline void expect_kept(const vlc::NpStore &nps, const vlc::DataPlaneTotals &totals)
{
    ASSERT_EQ(nps.size(), totals.nps.size());
    for (uint32_t np = 0; np < nps.size(); ++np)
        EXPECT_TRUE(nps[np].totals().read() == totals.nps[np]) << "NP " << np;
}

} // namespace test_packets
