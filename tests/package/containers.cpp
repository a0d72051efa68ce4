// A host of the two lower libraries alone.

#include <tq4/auxkit/histogram.h>
#include <tq4/numcore/numcore.h>

int main()
{
    tq4::dense1D<double> values;
    for (int k = 0; k < 10; ++k) values.push_back(k);
    tq4::auxkit::histogram spread(0.0, 10.0, 2);
    for (const double value : values) spread.process(value);
    return spread.bin_count(0) == 5 && spread.bin_count(1) == 5 ? 0 : 1;
}
