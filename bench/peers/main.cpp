// Prints the table of our calls beside their peers.
//
//   peers [--items N] [--repetitions N] [--rows TEXT] [--ours] [--limits] [--csv FILE]
//   peers --job N
//
// `--rows` chooses the rows with the text in their names; `--ours` leaves the peers out; `--limits` adds how fast each job could be at
// best; `--csv` appends every figure to a file. `--job` runs
// the typical job on so many triangles instead. The result is 1 where a peer's results are not ours.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if PEERS_WITH_VTK
#include <vtkSMPTools.h>
#endif

#include "harness.h"

namespace
{

constexpr struct
{
    const char* name;
    void (*add_rows)(bench::table& rows);
} families[] = {
    {"search", bench::search_rows},       {"connectivity", bench::connectivity_rows},   {"files", bench::surface_file_rows},
    {"files", bench::volume_file_rows},   {"quality and metrics", bench::quality_rows}, {"quality and metrics", bench::metrics_rows},
    {"gradation", bench::gradation_rows},
};

} // namespace

int main(int argc, char** argv)
{
    bench::options chosen;
    for (int k = 1; k < argc; ++k)
    {
        const auto is = [&](const char* name) { return std::strcmp(argv[k], name) == 0; };
        if (is("--ours"))
            chosen.with_peers = false;
        else if (is("--limits"))
            chosen.with_limits = true;
        else if (k + 1 < argc && is("--job"))
        {
            bench::typical_job(std::atof(argv[++k]));
            return 0;
        }
        else if (k + 1 < argc && is("--items"))
            chosen.items = std::atof(argv[++k]);
        else if (k + 1 < argc && is("--repetitions"))
            chosen.repetitions = static_cast<unsigned>(std::atoi(argv[++k]));
        else if (k + 1 < argc && is("--rows"))
            chosen.filter = argv[++k];
        else if (k + 1 < argc && is("--csv"))
            chosen.csv = argv[++k];
        else
        {
            std::fprintf(
                stderr,
                "usage: %s [--items N] [--repetitions N] [--rows TEXT] [--ours] [--limits] [--csv FILE]\n       %s --job TRIANGLES\n",
                argv[0], argv[0]);
            return 2;
        }
    }

#if PEERS_WITH_VTK
    vtkSMPTools::SetBackend("Sequential"); // all rows are about one thread
#endif
    bench::table rows(chosen);
    for (const auto& [name, add_rows] : families)
    {
        rows.begin(name);
        add_rows(rows);
    }
    return rows.print() ? 0 : 1;
}
