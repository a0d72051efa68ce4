#pragma once

// Outputs that share storage with inputs.

namespace tq4::gridweave
{

/// Gives an output storage of its own where it shares that of an input or of another output: copies of views share their elements, so a
/// host easily passes such a pair, and writing or growing the one would change or move the other under the loops that read it. The content
/// stays. False when memory runs out.
template <class Output, class... Others>
bool detach(Output& output, const Others&... others)
{
    const bool shares = ((output.block == others.block) || ...);
    return !shares || output.copy(output);
}

/// The same for an output that has been emptied, which takes no memory.
template <class Output, class... Others>
void detach_empty(Output& output, const Others&... others)
{
    if (((output.block == others.block) || ...)) output.clear_hard();
}

} // namespace tq4::gridweave
