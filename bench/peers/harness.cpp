#include "harness.h"

#include "limits.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <malloc.h>

namespace bench
{

namespace
{

double processor_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// A figure of /proc/self/status, in bytes; 0 where it is not told.
double status_bytes(const char* key)
{
    std::FILE* const status = std::fopen("/proc/self/status", "r");
    if (!status) return 0;
    double kilobytes = 0;
    char line[256];
    while (std::fgets(line, sizeof line, status))
        if (std::strncmp(line, key, std::strlen(key)) == 0) std::sscanf(line + std::strlen(key), ": %lf", &kilobytes);
    std::fclose(status);
    return 1024 * kilobytes;
}

void forget_peak_memory()
{
    std::FILE* const references = std::fopen("/proc/self/clear_refs", "w");
    if (!references) return;
    std::fputs("5", references);
    std::fclose(references);
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, value < 0.01 ? "%.4f" : value < 1 ? "%.3f" : "%.2f", value);
    return text;
}

const contender_result* fastest_peer(const row_result& row)
{
    const contender_result* fastest = nullptr;
    for (std::size_t k = 1; k < row.contenders.size(); ++k)
        if (row.contenders[k].equal && (!fastest || row.contenders[k].median() < fastest->median())) fastest = &row.contenders[k];
    return fastest;
}

/// The peer that a requirement is about, or null where it is not there.
const contender_result* meant_peer(const row_result& row, const requirement& required)
{
    if (required.peer.empty()) return fastest_peer(row);
    const auto named = std::find_if(row.contenders.begin(), row.contenders.end(), [&](const auto& c) { return c.name == required.peer; });
    return named == row.contenders.end() || !named->equal ? nullptr : &*named;
}

/// "yes", "no", or nothing where the peers are not there.
std::string verdict(const row_result& row)
{
    const char* answer = "";
    for (const requirement& required : row.description.required)
        if (const contender_result* const peer = meant_peer(row, required))
        {
            if (row.contenders[0].median() > required.ratio * peer->median()) return "no";
            answer = "yes";
        }
    return answer;
}

std::string requirements(const row_result& row)
{
    std::string text;
    for (const requirement& required : row.description.required)
    {
        char ratio[32];
        std::snprintf(ratio, sizeof ratio, "%g × ", required.ratio);
        text += (text.empty() ? "" : ", ") + std::string(ratio) + (required.peer.empty() ? "best" : required.peer);
    }
    return text;
}

/// Every peer with its time and, in brackets, ours as a part of it.
std::string peers(const row_result& row)
{
    std::vector<const contender_result*> order;
    for (std::size_t k = 1; k < row.contenders.size(); ++k) order.push_back(&row.contenders[k]);
    std::sort(order.begin(), order.end(), [](const auto* a, const auto* b) { return a->median() < b->median(); });
    std::string text;
    for (const contender_result* const peer : order)
    {
        char ratio[32];
        std::snprintf(ratio, sizeof ratio, " (%.2f)", row.contenders[0].median() / peer->median());
        text += (text.empty() ? "" : ", ") + peer->name + " " + number(peer->median()) + (peer->equal ? ratio : " **(another result)**");
    }
    return text;
}

} // namespace

double memory_in_use()
{
    malloc_trim(0);
    return status_bytes("VmRSS");
}

meter::meter(bool with_memory) : start_(0)
{
    if (with_memory)
    {
        memory_before_ = memory_in_use();
        forget_peak_memory();
    }
    start_ = processor_seconds();
}

cost meter::stop() const
{
    const double seconds = processor_seconds() - start_;
    return {seconds, memory_before_ ? std::max(0.0, status_bytes("VmHWM") - *memory_before_) : 0.0};
}

double contender_result::median() const
{
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
}

bool table::chooses(const row_description& description) const
{
    return description.name.find(options_.filter) != std::string::npos;
}

void table::add(row_result result)
{
    for (const contender_result& each : result.contenders)
        std::fprintf(stderr, "%-50s %-30s %9.4f s %7.0f bytes per item%s\n", result.description.name.c_str(), each.name.c_str(),
                     each.median(), each.bytes / result.description.items, each.equal ? "" : "  ANOTHER RESULT");
    if (!options_.csv.empty())
        if (std::FILE* const csv = std::fopen(options_.csv.c_str(), "a"))
        {
            for (const contender_result& each : result.contenders)
                std::fprintf(csv, "%s,\"%s\",%s,%.0f,\"%s\",%.6g,%.4g\n", family_.c_str(), result.description.name.c_str(),
                             result.description.item.c_str(), result.description.items, each.name.c_str(), each.median(),
                             each.bytes / result.description.items);
            std::fclose(csv);
        }
    rows_.push_back(std::move(result));
}

bool table::print() const
{
    bool all_equal = true;
    std::puts("| Row | Ours, s | Peers, s (ours / peer) | Must reach | Reached | Equal in | Bytes per item |");
    std::puts("|---|---|---|---|---|---|---|");
    for (const row_result& row : rows_)
    {
        const contender_result& ours = row.contenders[0];
        std::printf("| %s: %.3g million %s | %s | %s | %s | %s | %s | %.0f |\n", row.description.name.c_str(), 1e-6 * row.description.items,
                    row.description.item.c_str(), number(ours.median()).c_str(), peers(row).c_str(), requirements(row).c_str(),
                    verdict(row).c_str(), row.description.compared.c_str(), ours.bytes / row.description.items);
        for (const contender_result& each : row.contenders) all_equal = all_equal && each.equal;
    }
    std::puts("");
    for (const row_result& row : rows_)
        for (const auto& [of, count] : row.counts)
            std::printf("- %s: %.3g million %s, %.0f ns each.\n", row.description.name.c_str(), 1e-6 * count, of.c_str(),
                        1e9 * row.contenders[0].median() / count);
    if (options_.with_limits) print_limits();
    return all_equal;
}

void table::print_limits() const
{
    std::puts("");
    print_prices();
    std::puts("");
    std::puts("| Row | At least, per item | Limit, s | Ours / limit |");
    std::puts("|---|---|---|---|");
    for (const row_result& row : rows_)
    {
        const limit at_best = limit_of(row.description.name, row.description.items, row.counts);
        const double ours = row.contenders[0].median();
        if (!at_best.work.empty() && at_best.seconds > 0)
            std::printf("| %s | %s | %s | %.1f |\n", row.description.name.c_str(), at_best.work.c_str(), number(at_best.seconds).c_str(),
                        ours / at_best.seconds);
    }
}

} // namespace bench
