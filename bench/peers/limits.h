#pragma once

// How fast a job could be at best on the machine at hand: the least that it must do, priced at what the machine takes for it.

#include <string>
#include <utility>
#include <vector>

namespace bench
{

/// Prints what the machine takes for each kind of effort.
void print_prices();

/// The least that a row's job must do, in words and in seconds.
struct limit
{
    std::string work; ///< empty where nothing is known of the row
    double seconds = 0;
};

/// @param counts  what the job consists of beside its items (`row_result::counts`)
limit limit_of(const std::string& row, double items, const std::vector<std::pair<std::string, double>>& counts);

} // namespace bench
