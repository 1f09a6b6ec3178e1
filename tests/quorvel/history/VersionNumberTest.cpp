#include "quorvel/history/VersionNumber.h"

#include <gtest/gtest.h>

namespace quorvel {
namespace {

TEST(VersionNumber, isReadAsItIsWritten) {
  const struct {
    const char* text;
    VersionNumber version;
  } cases[] = {
      {"1", {0, 1}}, {"12", {0, 12}}, {"1.12", {1, 12}}, {"30.1", {30, 1}}, {"9223372036854775807", {0, INT64_MAX}},
  };
  for (const auto& [text, version] : cases) {
    EXPECT_EQ(VersionNumber::parse(text), version) << text;
    EXPECT_EQ(version.text(), text);
  }
}

TEST(VersionNumber, otherStringsAreRefused) {
  for (const std::string_view text : {"",
                                      ".",
                                      "0",
                                      "01",
                                      "-1",
                                      "+1",
                                      " 1",
                                      "1 ",
                                      "1.",
                                      ".1",
                                      "1.0",
                                      "0.1",
                                      "1.01",
                                      "1.2.3",
                                      "1,2",
                                      "1e3",
                                      "x",
                                      "1x",
                                      "\u0661",
                                      "9223372036854775808",
                                      "1.9223372036854775808"}) {
    EXPECT_EQ(VersionNumber::parse(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace quorvel
