#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Server.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

// A message of a transcript and the reply to it; transcripts/README.md has the format.
struct Exchange {
  std::size_t line;
  std::string message;
  std::optional<std::string> reply;
};

std::vector<Exchange> exchanges(const std::filesystem::path& transcript) {
  std::ifstream file(transcript);
  EXPECT_TRUE(file) << transcript;
  std::vector<Exchange> all;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with(">")) all.push_back({number, line.substr(std::min<std::size_t>(2, line.size())), {}});
    if (!line.starts_with("< ")) continue;
    EXPECT_TRUE(!all.empty() && !all.back().reply) << transcript << ":" << number << ": a reply to no message";
    if (!all.empty()) all.back().reply = line.substr(2);
  }
  return all;
}

std::vector<std::filesystem::path> transcripts() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(KELVANE_SOURCE_DIR "/tests/scripttools/transcripts")) {
    if (entry.path().extension() == ".txt") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(Transcripts, existForEachToolAndForMalformedTraffic) {
  std::vector<std::string> expected = {"malformed_traffic"}, present;
  for (const Tool& tool : Workbench().tools) expected.push_back(tool.name());
  for (const auto& file : transcripts()) present.push_back(file.stem().string());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(present, expected);
}

TEST(Transcripts, matchTheServersReplies) {
  for (const auto& file : transcripts()) {
    const Workbench bench;
    const Server server("kelvane", bench.tools);
    const auto all = exchanges(file);
    EXPECT_FALSE(all.empty()) << file;
    for (const auto& each : all) {
      const auto reply = server.handle(each.message);
      EXPECT_EQ(reply.value_or("(none)"), each.reply.value_or("(none)"))
          << file.filename() << ":" << each.line << ": " << each.message;
    }
  }
}

TEST(Transcripts, ofMalformedTrafficEndWithARequestThatIsServed) {
  const auto all = exchanges(KELVANE_SOURCE_DIR "/tests/scripttools/transcripts/malformed_traffic.txt");
  ASSERT_FALSE(all.empty());
  EXPECT_NE(all.back().reply.value_or("").find(R"("isError":false)"), std::string::npos);
}

}  // namespace
}  // namespace kelvane::tests
