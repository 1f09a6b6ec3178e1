#include <gtest/gtest.h>

#include <string>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

constexpr std::size_t megabyte = 1'000'000;

/// A line that is written piece by piece, so that the test itself stays small: the program begins as its copy.
struct LongLine {
  const char* what;
  std::string begin, repeated, end;
  std::size_t small;  // the size of a line whose memory is compared with that of one four times as long
  std::string reply;
};

long peakKilobytes(const LongLine& line, std::size_t size, const std::string& library) {
  Program program({"serve", "--library", library});
  std::string piece;
  while (piece.size() < 65536) piece += line.repeated;
  program.write(line.begin);
  for (std::size_t written = 0; written < size; written += piece.size()) program.write(piece);
  program.write(line.end + '\n' + ping(2) + '\n');
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome, (Outcome{0, line.reply + '\n' + pong(2) + '\n', ""}));
  return outcome.peakKilobytes;
}

TEST(Memory, isLinearInTheLine) {
  if (isSanitized()) GTEST_SKIP() << "A sanitizer keeps memory back, so there is nothing to compare.";
  const std::string noJSON = R"({"error":{"code":-32700,"message":"Could not parse JSON"},"id":null,"jsonrpc":"2.0"})";
  const LongLine lines[] = {
      {"one hundred megabytes in a text", "{\"id\":1,\"method\":\"ping\",\"params\":{\"x\":\"", "some words ", "\"}}",
       25 * megabyte, pong(1)},
      {"words that are no JSON", "{", "some words ", "", 5 * megabyte, noJSON},
      {"bytes that are not UTF-8", "{\"id\":1,\"method\":\"ping\",\"params\":{\"x\":\"", "\x80", "\"}}", 5 * megabyte,
       pong(1)},
      {"many numbers", "{\"id\":1,\"method\":\"ping\",\"params\":{\"x\":[0", ",1", "]}}", 5 * megabyte, pong(1)},
      {"many objects", "{\"id\":1,\"method\":\"ping\",\"params\":{\"x\":[0", ",{\"a\":{}}", "]}}", 5 * megabyte,
       pong(1)},
      {"many brackets", "[", "[", "", 5 * megabyte, noJSON},
      {"many blanks", "", " ", ping(1), 5 * megabyte, pong(1)},
  };
  const Folder library;
  for (const LongLine& line : lines) {
    SCOPED_TRACE(line.what);
    const long none = peakKilobytes(line, 0, library.text());
    const long one = peakKilobytes(line, line.small, library.text()) - none;
    const long four = peakKilobytes(line, 4 * line.small, library.text()) - none;
    const double perByte = static_cast<double>(four) * 1024 / (4.0 * static_cast<double>(line.small));
    RecordProperty(line.what, std::to_string(perByte) + " bytes of memory a byte");
    std::cout << line.what << ": " << perByte << " bytes of memory for each of the line, " << none << " KB at rest\n";
    EXPECT_GT(one, 0);
    EXPECT_LT(four, 6 * one);
  }
}

TEST(Memory, aLongLineIsForgotten) {
  if (isSanitized()) GTEST_SKIP() << "A sanitizer keeps memory back, so there is nothing to compare.";
  const Folder library;
  const LongLine line{"", "{\"id\":1,\"method\":\"ping\",\"params\":{\"x\":\"", "some words ", "\"}}", 0, pong(1)};
  const long once = peakKilobytes(line, 25 * megabyte, library.text());
  Program program({"serve", "--library", library.text()});
  const std::string piece = [&] {
    std::string text;
    while (text.size() < 65536) text += line.repeated;
    return text;
  }();
  constexpr int times = 4;
  for (int time = 0; time < times; ++time) {
    program.write(line.begin);
    for (std::size_t written = 0; written < 25 * megabyte; written += piece.size()) program.write(piece);
    program.write(line.end + '\n');
    EXPECT_EQ(program.line(), pong(1));
  }
  EXPECT_LT(program.finish().peakKilobytes, 2 * once);
}

}  // namespace
}  // namespace kelvane::tests
