// Every exported function, with memory that fails at the n-th request for every n: requests for numeric storage and those to `operator new`
// alike, the n-th alone and all from the n-th on. The table of calls stands in every_call.cpp.

#include <cstdio>
#include <locale>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "io/locales.h"
#include "memory/every_call.h"
#include "memory/heap.h"
#include "support/failing_allocator.h"

namespace
{

using namespace tq4;
using test::arguments;
using test::exported_call;

/// What a call left.
struct outcome
{
    int result = 0;
    bool was_refused = false; ///< memory was refused
    bool has_thrown = false;
    std::string written;
};

/// Makes the call, with memory that fails at the n-th request; with none of 0.
outcome make(const exported_call& call, arguments& a, unsigned n = 0, bool only_once = false)
{
    outcome out;
    std::remove(a.file->name());
    try
    {
        const test::failing_allocation failing(n, only_once);
        // The result must be there before memory is back.
        out.result = call.make(a);
        out.was_refused = failing.has_failed();
    }
    catch (...)
    {
        out.has_thrown = true;
    }
    out.written = a.file->content();
    return out;
}

bool is_promised(const exported_call& call, int result, int full_result)
{
    if (result == call.code || result == call.other_code) return true;
    return call.code == test::not_reported && 0 <= result && result <= full_result;
}

/// What holds after a call that was refused memory and told so, or did less.
void expect_as_promised(const exported_call& call, const arguments& before, arguments& after, const arguments& success, const outcome& out,
                        const outcome& full)
{
    EXPECT_TRUE(is_promised(call, out.result, full.result)) << "result " << out.result;
    arguments others = duplicate_of(after);
    for (std::size_t k = 0; k < call.promises.size(); ++k)
    {
        EXPECT_TRUE(call.promises[k].is_kept(after, before, success)) << "promise " << k;
        call.promises[k].restore(others, before);
    }
    EXPECT_TRUE(are_same(others, before)) << "a field that should stay has changed";

    for (const auto& promise : call.promises)
        if (!promise.is_replaced) promise.restore(after, before);
    const outcome again = make(call, after);
    EXPECT_EQ(again.result, full.result) << "of the same call afterwards";
    EXPECT_EQ(again.written, full.written);
    EXPECT_TRUE(are_same(after, success)) << "after the same call";
}

int failures()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

/// Makes the call with memory failing at every n. Returns the number of requests that it makes.
unsigned fail_everywhere(const exported_call& call, const arguments& before, bool only_once)
{
    arguments success = duplicate_of(before);
    const outcome full = make(call, success);
    const int failures_before = failures();
    const unsigned handles = test::open_handles();
    for (unsigned n = 1;; ++n)
    {
        SCOPED_TRACE((only_once ? "request alone " : "requests from ") + std::to_string(n));
        const long blocks = test::live_allocations();
        const long objects = test::live_objects();
        {
            arguments after = duplicate_of(before);
            const outcome out = make(call, after, n, only_once);
            EXPECT_FALSE(out.has_thrown);
            const bool is_full = out.result == full.result && out.written == full.written && are_same(after, success);
            if (!out.was_refused && !out.has_thrown)
            {
                EXPECT_TRUE(is_full);
                EXPECT_EQ(test::open_handles(), handles);
                return n - 1;
            }
            EXPECT_NE(call.code, 0) << "allocates";
            if (!is_full) expect_as_promised(call, before, after, success, out, full);
        }
        EXPECT_EQ(test::live_allocations(), blocks);
        EXPECT_EQ(test::live_objects(), objects);
        if (failures() != failures_before) return n;
    }
}

std::vector<test::mesh> inputs()
{
    auto meshes = test::all_linear_meshes(2);
    for (const auto& mesh : test::all_linear_meshes(1)) meshes.push_back(mesh);
    meshes.push_back(test::grid_of_triangles(5, 3));
    meshes.push_back(test::shuffled(test::mixed_solid(3), 1));
    return meshes;
}

/// All calls of a family on all inputs that suit them; each must meet one that makes it allocate, if it is one that does.
void fail_everywhere(const test::call_family& family, const std::vector<test::mesh>& meshes)
{
    std::vector<unsigned> most(family.calls.size(), 0);
    for (const auto& mesh : meshes)
    {
        const arguments prepared = test::arguments_for(mesh);
        for (std::size_t k = 0; k < family.calls.size(); ++k)
        {
            const exported_call& call = family.calls[k];
            if (call.suits && !call.suits(prepared)) continue;
            SCOPED_TRACE(call.name + " on a mesh of kind " + std::to_string(mesh.kind));
            most[k] = std::max(most[k], fail_everywhere(call, prepared, false));
            most[k] = std::max(most[k], fail_everywhere(call, prepared, true));
        }
    }
    for (std::size_t k = 0; k < most.size(); ++k) EXPECT_EQ(most[k] != 0, family.calls[k].code != 0) << family.calls[k].name;
}

class OutOfMemory : public testing::TestWithParam<test::call_family>
{
};

TEST_P(OutOfMemory, IsMetAsPromised)
{
    fail_everywhere(GetParam(), inputs());
}

INSTANTIATE_TEST_SUITE_P(Families, OutOfMemory, testing::ValuesIn(test::every_call()),
                         [](const auto& family) { return std::string(family.param.name); });

/// Readers and writers that follow the locale of the C++ library go through its streams then.
TEST(OutOfMemory, IsMetAsPromisedInStreams)
{
    const test::global_locale changed(std::locale(std::locale::classic(), new test::comma_punctuation));
    for (const auto& family : test::every_call())
        if (std::string_view(family.name) == "Io") fail_everywhere(family, {test::grid_of_triangles(3, 3), test::mixed_surface(2)});
}

} // namespace

namespace tq4::test
{

void PrintTo(const call_family& family, std::ostream* stream)
{
    *stream << family.name;
}

} // namespace tq4::test
