// The numbers of files, held against the C library's: the same characters and the same bits.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/promise.h"
#include "gridweave/io/number_text.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

void write(FuzzedDataProvider& data)
{
    double value = data.ConsumeFloatingPoint<double>();
    if (data.ConsumeBool()) value = static_cast<double>(data.ConsumeIntegral<int>()) / data.ConsumeIntegralInRange<int>(1, 4096);
    const real_format format{data.PickValueInArray({'e', 'E', 'f', 'g'}), data.ConsumeIntegralInRange<int>(0, 20),
                             data.ConsumeIntegralInRange<int>(0, 30)};
    const char layout[] = {'%', '*', '.', '*', format.conversion, '\0'};
    char ours[longest_number];
    char theirs[longest_number];
    char* const end = write_real(ours, value, format);
    const int length = std::snprintf(theirs, sizeof theirs, layout, format.width, format.precision, value);
    promise(std::string_view(ours, static_cast<std::size_t>(end - ours)) == std::string_view(theirs, static_cast<std::size_t>(length)),
            "reals are written as by the C library");

    const auto integer = data.ConsumeIntegral<long long>() >> data.ConsumeIntegralInRange<int>(0, 63);
    const int width = data.ConsumeIntegralInRange<int>(0, 24);
    char* const integer_end = write_integer(ours, integer, width);
    const int integer_length = std::snprintf(theirs, sizeof theirs, "%*lld", width, integer);
    promise(std::string_view(ours, static_cast<std::size_t>(integer_end - ours)) ==
                std::string_view(theirs, static_cast<std::size_t>(integer_length)),
            "integers are written as by the C library");
}

void read(const std::string& text)
{
    // A block of its own for each text, so that no look behind its margin goes unseen, and digits in that margin, so that none counts.
    const std::unique_ptr<char[]> block(new char[text.size() + text_margin]);
    std::memset(block.get(), '7', text.size() + text_margin);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    const char* const begin = block.get();
    const char* const end = begin + text.size();

    double value = 0;
    if (const char* const stop = scan_real(begin, value))
    {
        char* their_stop = nullptr;
        const double theirs = std::strtod(begin, &their_stop);
        promise(stop == their_stop && std::memcmp(&value, &theirs, sizeof value) == 0, "reals are read as by the C library");
    }
    const double parsed = parse_real(begin);
    const double theirs = std::atof(begin);
    promise(std::memcmp(&parsed, &theirs, sizeof parsed) == 0 || (parsed != parsed && theirs != theirs), "fields are read as by atof");

    const long wide = std::strtol(begin, nullptr, 10);
    promise(parse_integer(begin, end) == (wide > INT_MAX ? INT_MAX : wide < INT_MIN ? INT_MIN : wide), "fields are read as by atoi");
}

} // namespace

} // namespace tq4::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    FuzzedDataProvider data(bytes, count);
    tq4::fuzz::write(data);
    tq4::fuzz::read(data.ConsumeRemainingBytesAsString());
    return 0;
}
