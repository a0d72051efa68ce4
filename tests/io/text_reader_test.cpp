#include "gridweave/io/text_reader.h"

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "gridweave/io/text_writer.h"
#include "io/files.h"
#include "support/failing_allocator.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

class opened_file
{
public:
    explicit opened_file(std::string_view content) : file_(content, ".txt"), stream_(open_file(file_.name(), "rt")) {}
    ~opened_file() { close_file(stream_); }
    std::FILE* stream() const { return stream_; }

private:
    test::temporary_file file_;
    std::FILE* stream_;
};

/// Texts with lines around the lengths that matter, zero bytes, CR LF, and with or without a final line end.
std::string random_text(std::mt19937_64& engine)
{
    static const std::size_t lengths[] = {
        0, 1, 5, 254, 255, 256, 257, 510, 511, 70000, text_reader::window_size - 1, text_reader::window_size};
    std::string text;
    for (std::size_t lines = engine() % 8; lines > 0; --lines)
    {
        std::size_t length = lengths[engine() % std::size(lengths)];
        if (length > 1000 && engine() % 4) length = engine() % 300;
        std::string line(length, 'a');
        for (std::size_t k = 0; k < length; k += 1 + engine() % 50) line[k] = "bc \t\0x"[engine() % 6];
        text += line;
        if (engine() % 4 == 0) text += '\r';
        if (lines > 1 || engine() % 2) text += '\n';
    }
    return text;
}

TEST(TextReader, ReadsLinesAsAStreamDoes)
{
    std::mt19937_64 engine(1);
    for (unsigned k = 0; k < 300; ++k)
    {
        const std::string text = random_text(engine);
        std::istringstream reference(text);
        const opened_file file(text);
        text_reader reader(file.stream());
        for (;;)
        {
            std::string expected;
            const bool there_is = static_cast<bool>(std::getline(reference, expected));
            text_line line;
            ASSERT_EQ(reader.next_line(line), there_is);
            if (!there_is) break;
            ASSERT_EQ(line.view(), expected);
            ASSERT_EQ(*line.end, '\0');
            ASSERT_EQ(line.c_text(), expected.c_str());
            ASSERT_EQ(reader.good(), reference.good());
        }
        EXPECT_FALSE(reader.good());
        EXPECT_TRUE(reader.has_memory());
    }
}

TEST(TextReader, ReadsPiecesAsFgets)
{
    std::mt19937_64 engine(2);
    for (unsigned k = 0; k < 300; ++k)
    {
        const opened_file file(random_text(engine));
        text_reader reader(file.stream());
        std::vector<std::string> pieces;
        char piece[256];
        while (reader.next_piece(piece, sizeof piece)) pieces.emplace_back(piece);

        std::rewind(file.stream());
        char expected[256];
        for (const std::string& read : pieces)
        {
            ASSERT_NE(std::fgets(expected, sizeof expected, file.stream()), nullptr);
            ASSERT_EQ(read, expected);
        }
        EXPECT_EQ(std::fgets(expected, sizeof expected, file.stream()), nullptr);
    }
}

TEST(TextReader, GivesLastLineWithoutLineEndAndIsThenAtTheEnd)
{
    const opened_file file("one\ntwo");
    text_reader reader(file.stream());
    text_line line;
    ASSERT_TRUE(reader.next_line(line));
    EXPECT_EQ(line.view(), "one");
    EXPECT_TRUE(reader.good());
    ASSERT_TRUE(reader.next_line(line));
    EXPECT_EQ(line.view(), "two");
    EXPECT_FALSE(reader.good());
    EXPECT_FALSE(reader.next_line(line));
}

TEST(TextReader, BringsBytesIntoItsWindow)
{
    const std::string text(3 * text_reader::window_size, 'b');
    const opened_file file(text);
    text_reader reader(file.stream());
    ASSERT_TRUE(reader.require(100));
    reader.advance(reader.cursor() + 100);
    ASSERT_TRUE(reader.require(2 * text_reader::window_size));
    reader.advance(reader.cursor() + 2 * text_reader::window_size);
    EXPECT_FALSE(reader.require(text_reader::window_size));
    EXPECT_EQ(static_cast<std::size_t>(reader.limit() - reader.cursor()), text_reader::window_size - 100u);
    EXPECT_TRUE(reader.window_is_last());
    EXPECT_TRUE(reader.has_memory());
}

TEST(TextReader, ReadsNothingWithoutMemory)
{
    const opened_file file("one\ntwo\n");
    const test::failing_allocation failing(1);
    text_reader reader(file.stream());
    EXPECT_FALSE(reader.has_memory());
    text_line line;
    EXPECT_FALSE(reader.next_line(line));
    char piece[256];
    EXPECT_FALSE(reader.next_piece(piece, sizeof piece));
}

TEST(TextReader, TellsWhenALineDoesNotFitInMemory)
{
    const opened_file file("short\n" + std::string(4 * text_reader::window_size, 'x') + "\nnext\n");
    text_reader reader(file.stream());
    text_line line;
    ASSERT_TRUE(reader.next_line(line));
    const test::failing_allocation failing(1);
    EXPECT_FALSE(reader.next_line(line));
    EXPECT_FALSE(reader.has_memory());
}

TEST(TextReader, TakesAFolderForAnEmptyFile)
{
    std::FILE* const folder = open_file("/", "rt");
    if (!folder) GTEST_SKIP() << "this system does not open folders";
    text_reader reader(folder);
    text_line line;
    EXPECT_FALSE(reader.next_line(line));
    close_file(folder);
}

TEST(TextReader, RefusesMoreThanCanBeCounted)
{
    const opened_file file("text\n");
    text_reader reader(file.stream());
    const unsigned long before = test::allocation_count();
    EXPECT_FALSE(reader.require(none_index));
    EXPECT_FALSE(reader.has_memory());
    EXPECT_EQ(test::allocation_count(), before);
}

} // namespace
