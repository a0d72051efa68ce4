#pragma once

// The heap of the C++ library, under the control of `failing_allocation`: this program replaces `operator new`, so that blocks of views and
// what the standard library asks for fail together with numeric storage.

namespace tq4::test
{

/// Objects made by `operator new` that are alive in this thread's account.
long live_objects();

} // namespace tq4::test
