#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/numcore/fixed.h>
#include <tq4/numcore/lapack.h>

namespace
{

using namespace tq4;
using lapack::dspev;

struct problem
{
    symmetric_fixed<double, 3> packed{2, 0, 3, 0, 0, 1};
    double values[3] = {-1, -1, -1};
    double vectors[9] = {};
    double work[10] = {};
    long info = 99;
};

TEST(Dspev, GivesEigenvaluesInAscendingOrder)
{
    problem p;
    EXPECT_EQ(dspev('N', 'U', 3, p.packed.values, p.values, nullptr, 1, p.work, p.info), 0);
    EXPECT_EQ(p.info, 0);
    EXPECT_EQ(p.values[0], 1.0);
    EXPECT_EQ(p.values[1], 2.0);
    EXPECT_EQ(p.values[2], 3.0);
}

TEST(Dspev, GivesAnEigenvectorPerColumn)
{
    std::mt19937 engine(3);
    std::uniform_real_distribution<double> entry(-5.0, 5.0);
    for (int round = 0; round < 100; ++round)
    {
        problem p;
        for (double& value : p.packed.values) value = entry(engine);
        const auto matrix = p.packed;
        dspev('V', 'U', 3, p.packed.values, p.values, p.vectors, 3, p.work, p.info);
        ASSERT_EQ(p.info, 0);
        EXPECT_LE(p.values[0], p.values[1]);
        EXPECT_LE(p.values[1], p.values[2]);
        for (unsigned k = 0; k < 3; ++k)
        {
            const double* const v = p.vectors + 3 * k;
            EXPECT_NEAR(v[0] * v[0] + v[1] * v[1] + v[2] * v[2], 1.0, 1e-13);
            for (unsigned i = 0; i < 3; ++i)
                EXPECT_NEAR(matrix(i, 0) * v[0] + matrix(i, 1) * v[1] + matrix(i, 2) * v[2], p.values[k] * v[i], 1e-12);
        }
    }
}

TEST(Dspev, ReadsALowerTriangleToo)
{
    // Column by column below the diagonal: m00, m10, m20, m11, m21, m22.
    double lower[] = {2, 1, 0, 2, 0, 5};
    problem p;
    EXPECT_EQ(dspev('n', 'l', 3, lower, p.values, nullptr, 1, p.work, p.info), 0);
    EXPECT_NEAR(p.values[0], 1.0, 1e-14);
    EXPECT_NEAR(p.values[1], 3.0, 1e-14);
    EXPECT_NEAR(p.values[2], 5.0, 1e-14);
}

TEST(Dspev, TakesItsLettersInEitherCase)
{
    const auto solved = [](char jobz, char uplo) {
        problem p;
        EXPECT_EQ(dspev(jobz, uplo, 3, p.packed.values, p.values, p.vectors, 3, p.work, p.info), 0);
        return std::vector<double>{p.values[0], p.values[1], p.values[2], p.vectors[8]};
    };
    // The diagonal (2, 3, 1) read as an upper triangle; read as a lower one, (2, 0, 1) with 3 beside the 0.
    const std::vector<double> upper = solved('V', 'U');
    EXPECT_EQ((std::vector<double>{upper[0], upper[1], upper[2]}), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(solved('v', 'u'), upper);
    EXPECT_EQ(solved('n', 'u')[2], 3);
    EXPECT_EQ(solved('n', 'u')[3], 0); // no vectors
    EXPECT_EQ(solved('v', 'l'), solved('V', 'L'));
    EXPECT_EQ(solved('V', 'L')[2], solved('N', 'l')[2]);
    EXPECT_NE(solved('V', 'L')[2], 3);
}

TEST(Dspev, DoesNothingForOrderZero)
{
    problem p;
    EXPECT_EQ(dspev('V', 'U', 0, p.packed.values, p.values, p.vectors, 1, p.work, p.info), 0);
    EXPECT_EQ(p.info, 0);
    EXPECT_EQ(p.values[0], -1.0);
}

TEST(Dspev, AnswersBadArgumentsByTheirPlace)
{
    const auto refused = [](char jobz, char uplo, long n, long ldz) {
        problem p;
        const int result = dspev(jobz, uplo, n, p.packed.values, p.values, p.vectors, ldz, p.work, p.info);
        EXPECT_EQ(p.info, result);
        EXPECT_EQ(p.packed[0], 2.0);
        EXPECT_EQ(p.values[0], -1.0);
        return result;
    };
    EXPECT_EQ(refused('X', 'Q', -1, 0), -1);
    EXPECT_EQ(refused('V', 'Q', -1, 0), -2);
    EXPECT_EQ(refused('V', 'U', -1, 0), -3);
    EXPECT_EQ(refused('V', 'U', 1L << 40, 1L << 41), -3);
    EXPECT_EQ(refused('V', 'U', 3, 2), -7);
    EXPECT_EQ(refused('N', 'U', 3, 0), -7);
    EXPECT_EQ(refused('N', 'U', 3, 1L << 40), -7);
}

TEST(Dspev, ReturnsFromNotANumber)
{
    problem p;
    for (double& value : p.packed.values) value = std::numeric_limits<double>::quiet_NaN();
    dspev('V', 'U', 3, p.packed.values, p.values, p.vectors, 3, p.work, p.info);
    EXPECT_TRUE(p.info > 0 || std::isnan(p.values[0]));
}

} // namespace
