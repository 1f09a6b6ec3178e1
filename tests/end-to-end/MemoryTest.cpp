#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
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
  std::string reply;  // with what was repeated in the place of a "%"
};

long peakKilobytes(const LongLine& line, std::size_t size, const std::string& library) {
  Program program({"serve", "--allow-writes", "--library", library});
  std::string piece;
  while (piece.size() < 65536) piece += line.repeated;
  program.write(line.begin);
  std::size_t pieces = 0;
  for (; pieces * piece.size() < size; ++pieces) program.write(piece);
  program.write(line.end + '\n' + ping(2) + '\n');
  const Outcome outcome = program.finish();
  std::string reply = line.reply;
  if (const std::size_t place = reply.find('%'); place != std::string::npos) {
    std::string repeated;
    for (std::size_t count = 0; count < pieces; ++count) repeated += piece;
    reply.replace(place, 1, repeated);
  }
  // Not compared as values: megabytes would be printed.
  EXPECT_TRUE(outcome == (Outcome{0, reply + '\n' + pong(2) + '\n', ""})) << outcome.output.substr(0, 300);
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

TEST(Memory, anIdentifierCostsAFewTimesItsBytes) {
  if (isSanitized()) GTEST_SKIP() << "A sanitizer keeps memory back, so there is nothing to compare.";
  const auto call = [](const char* tool, const char* key) {
    return R"({"id":1,"method":"tools/call","params":{"name":")" + std::string(tool) +
           R"(","arguments":{"name":"n","note":"n","text":"t","title":"t",")" + key + R"(":")";
  };
  const std::string nothing = R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"Nothing at \"%\"",)"
                              R"("type":"text"}],"isError":true}})";
  const std::string isAFolder =
      R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"\"%\" is a folder, not a script",)"
      R"("type":"text"}],"isError":true}})";
  const LongLine lines[] = {
      {"names that are not there", call("read_script", "id"), "a/", "\"}}}", 0, nothing},
      {"dots and slashes", call("read_script", "id"), ".//", "\"}}}", 0, isAFolder},
      {"a link over and over", call("read_script", "id"), "here/", "\"}}}", 0, nothing},
      {"one to write to", call("update_script", "id"), "a/", "\"}}}", 0, nothing},
      {"one to write in", call("create_script", "folder"), "a/", "\"}}}", 0, nothing},
  };
  constexpr std::size_t size = 5 * megabyte;
  const Folder library;
  std::filesystem::create_symlink(".", library / "here");
  for (const LongLine& line : lines) {
    SCOPED_TRACE(line.what);
    const long taken = peakKilobytes(line, size, library.text()) - peakKilobytes(line, 1, library.text());
    const double perByte = static_cast<double>(taken) * 1024 / static_cast<double>(size);
    std::cout << line.what << ": " << perByte << " bytes of memory for each of the identifier\n";
    EXPECT_LT(perByte, 16);
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

// The last of these, because it makes the test itself large, and the program begins as its copy.
TEST(Memory, noRequestTakesMoreThanThirtyTimesItsBytes) {
  if (isSanitized()) GTEST_SKIP() << "A sanitizer keeps memory back, so there is nothing to compare.";
  const std::string call = R"({"id":1,"method":"tools/call","params":{"name":"read_script","arguments":{"id":")";
  const std::string noJSON = R"({"error":{"code":-32700)", noRequest = R"({"error":{"code":-32600)";
  const struct {
    const char* what;
    std::string begin, opening, closing, end;
    std::string reply;  // how it begins
  } rows[] = {
      {"arrays that are not closed", "", "[", "", "", noJSON},
      {"arrays in arrays", "", "[", "]", "", noRequest},
      {"an id of arrays in arrays", R"({"method":"ping","id":)", "[", "]", "}", R"({"id":[[[[)"},
      {"an id of numbers that are longer in the reply", R"({"method":"ping","id":[)", "1e9,", "", "0]}",
       R"({"id":[1000)"},
      {"an id of control characters", R"({"method":"ping","id":")", R"(\u0001)", "", "\"}", R"({"id":"\u0001)"},
      {"empty arrays", "[0", ",[]", "", "]", noRequest},
      {"empty objects", "[0", ",{}", "", "]", noRequest},
      {"numbers", "[0", ",1", "", "]", noRequest},
      {"short strings", "[0", R"(,"")", "", "]", noRequest},
      {"members", R"({"a":0)", R"(,"b":0)", "", "}", noRequest},
      {"bytes that are not UTF-8 in a method", R"({"id":1,"method":")", "\xFF", "", "\"}",
       R"({"error":{"code":-32601)"},
      {"bytes that are not UTF-8 alone", "", "\xFF", "", "", noJSON},
      {"an identifier that climbs", call, "../", "", "\"}}}", R"({"id":1)"},
      {"an identifier of combining marks", call, "\xCC\x81", "", "\"}}}", R"({"id":1)"},
  };
  constexpr std::size_t size = 4 * megabyte;
  const Folder library;
  const auto peakOf = [&](const std::string& begin, const std::string& opening, const std::string& closing,
                          const std::string& end, const std::string& reply) {
    Program program({"serve", "--allow-writes", "--library", library.text()});
    program.write(begin);
    const std::size_t both = std::max<std::size_t>(opening.size() + closing.size(), 1);
    for (const std::string& part : {opening, closing}) {
      constexpr std::size_t most = 4096;
      std::string piece;
      for (std::size_t count = 0; count < most; ++count) piece += part;
      for (std::size_t count = 0; !part.empty() && count < size / both; count += most) program.write(piece);
    }
    program.write(end + '\n');
    const Outcome outcome = program.finish();
    EXPECT_TRUE(outcome.output.starts_with(reply)) << outcome.output.substr(0, 300);
    return outcome.peakKilobytes;
  };
  const long none = peakOf("0", "", "", "", noRequest);
  for (const auto& row : rows) {
    const long taken = peakOf(row.begin, row.opening, row.closing, row.end, row.reply) - none;
    const double perByte = static_cast<double>(taken) * 1024 / static_cast<double>(size);
    std::cout << row.what << ": " << perByte << " bytes of memory for each of the line\n";
    EXPECT_LE(perByte, 30) << row.what;
  }
}

}  // namespace
}  // namespace kelvane::tests
