#include "quorvel/files/TemporaryName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "quorvel/library/ItemName.h"

namespace quorvel {
namespace {

using ::testing::Eq;
using ::testing::Optional;

TEST(TemporaryName, isReadAsItIsWritten) {
  for (const TemporaryName& name :
       {TemporaryName{0, 0, std::nullopt}, TemporaryName{0xFEDCBA9876543210, 1, std::nullopt},
        TemporaryName{1, 0xFFFFFFFFFFFFFFFF, 0}, TemporaryName{2, 3, 0xFFFFFFFFFFFFFFFF}}) {
    EXPECT_THAT(TemporaryName::parse(name.text()), Optional(Eq(name))) << name.text();
  }
}

TEST(TemporaryName, hasTwoForms) {
  EXPECT_EQ((TemporaryName{0x1F, 0x2E, std::nullopt}.text()), ".kelvane-000000000000001f-000000000000002e");
  EXPECT_EQ((TemporaryName{0x1F, 0x2E, 0x3D}.text()), ".kelvane-000000000000001f-000000000000002e-3d");
}

TEST(TemporaryName, isOnlyWhatHasOneOfTheForms) {
  for (const char* name :
       {"", ".kelvane", ".kelvane-", "Talk.md", ".kelvane-000000000000001f", ".kelvane-000000000000001f-",
        ".kelvane-000000000000001f-000000000000002", ".kelvane-000000000000001f_000000000000002e",
        ".kelvane-000000000000001f-000000000000002e-", ".kelvane-000000000000001f-000000000000002e-x",
        ".kelvane-000000000000001f-000000000000002ex3d", ".kelvane-00000000000000xf-000000000000002e",
        ".kelvane-000000000000001f-000000000000002e-12345678901234567", "kelvane-000000000000001f-000000000000002e",
        ".kelvane-000000000000001f-000000000000002e-3d.md"}) {
    EXPECT_EQ(TemporaryName::parse(name), std::nullopt) << name;
  }
}

TEST(TemporaryName, isNeverTheSameAgainAndFitsADisk) {
  std::set<std::string> names;
  for (int count = 0; count < 1000; ++count) names.insert(TemporaryName::fresh("Talk.md").text());
  EXPECT_EQ(names.size(), 1000U);
  const TemporaryName longest{~0ULL, ~0ULL, ~0ULL};
  EXPECT_LE(longest.text().size(), longestFileName);
}

// The numbers are part of what is on disks; they are from the algorithm's published test vectors.
TEST(TemporaryName, knowsItsScriptByAHash) {
  EXPECT_EQ(TemporaryName::hash(""), 0xCBF29CE484222325U);
  EXPECT_EQ(TemporaryName::hash("a"), 0xAF63DC4C8601EC8CU);
  EXPECT_EQ(TemporaryName::hash("foobar"), 0x85944171F73967E8U);
  EXPECT_EQ(TemporaryName::fresh("Talk.md").script, TemporaryName::hash("Talk.md"));
}

}  // namespace
}  // namespace quorvel
