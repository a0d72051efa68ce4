#include "gridweave/core/bits.h"

#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

TEST(BitVector, KeepsBitsApart)
{
    test::random_source random(6);
    for (const unsigned count : {1u, 31u, 32u, 33u, 100u})
    {
        bit_vector bits;
        ASSERT_TRUE(bits.reset(count));
        std::vector<bool> expected(count, false);
        for (unsigned round = 0; round < 200; ++round)
        {
            const unsigned i = random.below(count);
            switch (random.below(3))
            {
            case 0:
                bits.set(i);
                expected[i] = true;
                break;
            case 1:
                bits.clear(i);
                expected[i] = false;
                break;
            default: EXPECT_EQ(bits.test_and_set(i), expected[i]); expected[i] = true;
            }
            for (unsigned k = 0; k < count; ++k) ASSERT_EQ(bits[k], expected[k]) << count << ' ' << k;
        }
    }
}

TEST(BitVector, ResetClearsAllBits)
{
    bit_vector bits;
    ASSERT_TRUE(bits.reset(70));
    for (unsigned k = 0; k < 70; ++k) bits.set(k);
    ASSERT_TRUE(bits.reset(64));
    for (unsigned k = 0; k < 64; ++k) EXPECT_FALSE(bits[k]);
    EXPECT_TRUE(bits.reset(0));
}

TEST(BitVector, AnswersWantOfMemory)
{
    bit_vector bits;
    const test::failing_allocation failing(1);
    EXPECT_FALSE(bits.reset(1000));
}

} // namespace
