// Metric tensors: eigenpairs, intersection of pairs, validity. The peer is LAPACK, called plainly on the same tensors.

#include "harness.h"

#include <array>
#include <cmath>

#include <tq4/gridweave/metrics.h>
#include <tq4/numcore/lapack.h>

#include "bench/tensors.h"

extern "C" void dspgv_(const int* itype, const char* jobz, const char* uplo, const int* n, double* ap, double* bp, double* w, double* z,
                       const int* ldz, double* work, int* info, std::size_t jobz_length, std::size_t uplo_length);

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

using numbers = std::vector<double>;

void eigenpairs_row(table& rows)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<numbers> r(rows, {"eigenpairs in space", "tensors", 1.0 * count, {{1.1, "dspev"}}, "eigenvalues, eigenvectors: all bits"});
    if (!r.chosen()) return;
    const dense2D<double> metrics = random_tensors(count, 1);

    const auto as_they_are = [](const numbers& all) { return all; };
    r.ours(
        [&] {
            numbers all(12 * std::size_t{count});
            double* out = all.data();
            for (unsigned c = 0; c < count; ++c)
            {
                vector_fixed<double, 3> eigenvalues;
                matrix_fixed<double, 3, 3> vectors;
                eigen_pairs(tensor_of(metrics, c), eigenvalues, vectors);
                out = std::copy_n(eigenvalues.values, 3, out);
                out = std::copy_n(vectors.values, 9, out);
            }
            return all;
        },
        as_they_are);
    r.peer(
        "dspev",
        [&] {
            numbers all(12 * std::size_t{count});
            for (unsigned c = 0; c < count; ++c)
            {
                tensor3 m = tensor_of(metrics, c);
                double work[9];
                long info = 0;
                double* const out = all.data() + 12 * std::size_t{c};
                lapack::dspev('V', 'U', 3, m.values, out, out + 3, 3, work, info);
            }
            return all;
        },
        as_they_are);
    r.run();
}

/// A X diag(max(1, lambda)) (A X)T with the eigenpairs B x = lambda A x, xT A x = 1: the smaller size of both in every common direction.
std::array<double, 6> intersection(const tensor3& a, const double* lambda, const double* vectors)
{
    double ax[3][3];
    for (unsigned k = 0; k < 3; ++k)
        for (unsigned i = 0; i < 3; ++i)
        {
            ax[k][i] = 0;
            for (unsigned j = 0; j < 3; ++j) ax[k][i] += a(i, j) * vectors[3 * k + j];
        }
    std::array<double, 6> result{};
    for (unsigned j = 0, place = 0; j < 3; ++j)
        for (unsigned i = 0; i <= j; ++i, ++place)
            for (unsigned k = 0; k < 3; ++k) result[place] += std::max(1.0, lambda[k]) * ax[k][i] * ax[k][j];
    return result;
}

/// Tensors that agree to nine digits of their largest entry.
bool equal_tensors(const numbers& a, const numbers& b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t first = 0; first < a.size(); first += 6)
    {
        double largest = 0, difference = 0;
        for (std::size_t k = first; k < first + 6; ++k)
        {
            largest = std::max(largest, std::fabs(a[k]));
            difference = std::max(difference, std::fabs(a[k] - b[k]));
        }
        if (!(difference <= 1e-9 * largest)) return false;
    }
    return true;
}

void intersection_row(table& rows)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<numbers> r(rows, {"intersection in space", "pairs", 1.0 * count, {{0.9, "dspgv"}}, "tensors to nine digits"}, equal_tensors);
    if (!r.chosen()) return;
    const dense2D<double> first = random_tensors(count, 1);
    const dense2D<double> second = random_tensors(count, 2);

    r.ours(
        [&] {
            dense2D<double> smaller(6, count);
            for (unsigned c = 0; c < count; ++c)
            {
                tensor3 m;
                minimum_metric(tensor_of(first, c), tensor_of(second, c), m);
                std::copy_n(m.values, 6, smaller.column(c));
            }
            return smaller;
        },
        [](const dense2D<double>& all) { return numbers(all.data(), all.data() + std::size_t{6} * all.cols); });
    r.peer(
        "dspgv",
        [&] {
            dense2D<double> pairs(12, count);
            const int kind = 1, n = 3, ldz = 3;
            for (unsigned c = 0; c < count; ++c)
            {
                tensor3 a = tensor_of(first, c), b = tensor_of(second, c);
                int info = 0;
                double work[9];
                double* const out = pairs.column(c);
                dspgv_(&kind, "V", "U", &n, b.values, a.values, out, out + 3, &ldz, work, &info, 1, 1);
            }
            return pairs;
        },
        [&](const dense2D<double>& pairs) {
            numbers all;
            for (unsigned c = 0; c < count; ++c)
                for (const double entry : intersection(tensor_of(first, c), pairs.column(c), pairs.column(c) + 3)) all.push_back(entry);
            return all;
        });
    r.run();
}

/// The last tensor is not valid.
void validity_row(table& rows)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<unsigned> r(rows, {"validity in space", "tensors", 1.0 * count, {{0.1, "dspev"}}, "first invalid tensor"});
    if (!r.chosen()) return;
    dense2D<double> metrics = random_tensors(count, 1);
    metrics(0, count - 1) = -metrics(0, count - 1);

    const auto as_it_is = [](unsigned index) { return index; };
    r.ours([&] { return first_invalid_metric(metrics); }, as_it_is);
    r.peer(
        "dspev",
        [&] {
            unsigned c = 0;
            for (; c < count; ++c)
            {
                tensor3 m = tensor_of(metrics, c);
                double eigenvalues[3], work[9];
                long info = 0;
                lapack::dspev('N', 'U', 3, m.values, eigenvalues, nullptr, 1, work, info);
                if (!(eigenvalues[0] > 0)) break;
            }
            return c;
        },
        as_it_is);
    r.run();
}

} // namespace

void metrics_rows(table& rows)
{
    eigenpairs_row(rows);
    intersection_row(rows);
    validity_row(rows);
}

} // namespace bench
