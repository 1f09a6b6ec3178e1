#include "quorvel/files/SystemReason.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace quorvel {
namespace {

TEST(SystemReason, everySentenceSaysWhyAndWhatToDo) {
  const struct {
    int error;
    const char* sentence;
  } rows[] = {
      {ENOENT, "It failed, because it is not there any more. Look again."},
      {ENOTDIR, "It failed, because a link or a file has taken the place of it or of a folder above it. Look again."},
      {ELOOP, "It failed, because a link or a file has taken the place of it or of a folder above it. Look again."},
      {EISDIR, "It failed, because it is a folder now. Look again."},
      {EACCES, "It failed, because the system does not permit it. Check who may read and write there."},
      {EPERM, "It failed, because the system does not permit it. Check who may read and write there."},
      {EROFS, "It failed, because the disk is read-only. Make the disk writable and try again."},
      {ENOSPC, "It failed, because the disk is full. Free some space and try again."},
      {EDQUOT, "It failed, because the disk quota is used up. Free some space and try again."},
      {EFBIG,
       "It failed, because it would be larger than the system allows. Make it smaller, or raise the limit (ulimit "
       "-f)."},
      {ENAMETOOLONG,
       "It failed, because its path is too long for the system. Use shorter names or fewer nested folders."},
      {EMLINK, "It failed, because the folder holds as many entries as the disk allows. Use another folder."},
      {EIO, "It failed, because the disk reports an error. Check the disk."},
      {EMFILE, "It failed, because too many files are open. Close some programs and try again."},
      {ENFILE, "It failed, because too many files are open. Close some programs and try again."},
      {ENOMEM, "It failed, because the system is out of memory. Close some programs and try again."},
      {EBUSY, "It failed, because another program is using it. Close it there and try again."},
      {ETXTBSY, "It failed, because another program is using it. Close it there and try again."},
      {ENOLCK, "It failed, because the system has no more locks for files. Close some programs and try again."},
      {ENOTCONN,
       "It failed, because the system says: Transport endpoint is not connected. Check the disk and try again."},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(because("It failed", systemError(row.error), "Look again."), row.sentence);
    EXPECT_EQ(because("It failed", {row.error, std::system_category()}, "Look again."), row.sentence);
  }
}

TEST(SystemReason, withoutAdviceOnNamesTheSentenceStillSaysWhatToDo) {
  EXPECT_EQ(because("\"f\" could not be read", systemError(ENOENT)),
            "\"f\" could not be read, because it is not there any more. Look at what is there now and try again.");
}

TEST(SystemReason, aNameIsQuotedAsItIsExceptForNUL) {
  using namespace std::string_view_literals;
  const struct {
    std::string_view name;
    std::string_view quoted;
  } rows[] = {
      {"Talk.md", R"("Talk.md")"},         {"", R"("")"},
      {R"(a "b" \c)", R"("a "b" \c")"},    {"a\nb\xFF", "\"a\nb\xFF\""},
      {"a\0b"sv, "\"a\xEF\xBF\xBD\x62\""},
  };
  for (const auto& row : rows) EXPECT_EQ(inQuotes(row.name), row.quoted);
}

}  // namespace
}  // namespace quorvel
