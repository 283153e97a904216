#include "AllocationSweep.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace oxil::test {

void Attempt::__check(int status, const std::vector<int>& statuses) const
{
    const AllocationPause pause;
    if (!__failed) {
        EXPECT_EQ(status, STATUS_SUCCESS);
    } else if (status != STATUS_SUCCESS && status != THREW) {
        EXPECT_THAT(statuses, testing::Contains(status));
        EXPECT_THAT(lines(), testing::Not(testing::IsEmpty())) << status;
    }
    if (status == STATUS_SUCCESS && !__mayGoOn) {
        EXPECT_THAT(lines(), testing::IsEmpty());
    }
}

void report(int allocations)
{
    const testing::TestResult& result =
        *testing::UnitTest::GetInstance()->current_test_info()->result();
    int sum = allocations;
    for (int i = 0; i < result.test_property_count(); ++i) {
        sum += std::atoi(result.GetTestProperty(i).value());
    }
    testing::Test::RecordProperty("allocations", sum);
}

void expectBlocks(const BlockCount& left, int stated)
{
    const AllocationPause pause;
    EXPECT_EQ(left.get(), stated) << "Nobody has released the blocks that were asked for by\n"
                                  << left.describe();
}

}  // namespace oxil::test
