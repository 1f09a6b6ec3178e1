#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "platform/unicode/Processor.h"
#include "tests/house/IncludeGraph.h"

namespace kelvane::house {
namespace {

using testing::IsEmpty;

bool isShipped(std::string_view path) {
  for (const std::string_view folder : {"platform/", "protocol/", "scripttools/", "host/", "quorvel/", "program/"}) {
    if (path.starts_with(folder)) return true;
  }
  return false;
}

/// The names in a source's conditions for the preprocessor. A comment behind one is none of it.
std::set<std::string> namesInConditions(const std::string& text) {
  static const std::regex question(R"(^\s*#\s*(?:if|ifdef|ifndef|elif)\b(.*))");
  static const std::regex name(R"([A-Za-z_]\w*)");
  std::set<std::string> names;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch found;
    if (!std::regex_search(line, found, question)) continue;
    const std::string rest = found[1];
    const std::string condition = rest.substr(0, std::min(rest.find("//"), rest.find("/*")));
    for (std::sregex_iterator at(condition.begin(), condition.end(), name), end; at != end; ++at)
      names.insert(at->str());
  }
  names.erase("defined");
  return names;
}

bool isOurs(const std::string& name) {
  return name.starts_with("KELVANE_");
}

/// Whether a name in a condition is a processor's or system's, and not a switch of ours or a library's version.
bool isForeign(const std::string& name) {
  return !isOurs(name) && name.find("_LIB_") == std::string::npos;
}

/// Whether a source uses something that only some processors or systems have.
bool usesASystemsOwn(const std::string& text) {
  static const std::regex own(R"(\b(__m128i|_mm_\w+|\w*mmintrin|__int128|SYS_\w+|O_PATH|O_TMPFILE|F_SETLEASE)\b)");
  return std::regex_search(text, own);
}

/// What this one keeps of a file exists on some systems only, and nothing portable would keep it.
bool hasNoPortableWay(std::string_view path) {
  return path == "quorvel/files/FileAttributes.cpp";
}

/// The shipped sources that are written for some processors or systems, without a switch to leave that code out.
std::vector<std::string> withoutTheSwitch(const std::vector<Source>& tree) {
  std::vector<std::string> found;
  for (const auto& [path, text] : tree) {
    if (!isShipped(path) || hasNoPortableWay(path)) continue;
    const std::set<std::string> names = namesInConditions(text);
    const bool isConditional = std::any_of(names.begin(), names.end(), isForeign);
    const bool isWrong = isConditional ? !names.contains("KELVANE_PORTABLE")
                                       : usesASystemsOwn(text) && std::none_of(names.begin(), names.end(), isOurs);
    if (isWrong) found.push_back(path);
  }
  return found;
}

TEST(Portable, codeForSomeSystemsOnlyCanBeLeftOut) {
  const std::vector<Source> tree = sourcesBelow(KELVANE_SOURCE_DIR);
  EXPECT_THAT(withoutTheSwitch(tree), IsEmpty());
  std::size_t switched = 0;
  for (const Source& source : tree) {
    if (isShipped(source.path) && namesInConditions(source.text).contains("KELVANE_PORTABLE")) ++switched;
  }
  EXPECT_GE(switched, 5u) << "the switch must be used somewhere";
}

TEST(Portable, aSourceWithoutTheSwitchIsFound) {
  const struct {
    const char* what;
    Source source;
    bool isFound;
  } rows[] = {
      {"a condition on a processor", {"platform/A.h", "#if defined(__SSE2__)\n#endif\n"}, true},
      {"a condition on a system", {"quorvel/library/A.cpp", "#ifdef __linux__\n#endif\n"}, true},
      {"after another condition", {"program/A.cpp", "#ifdef KELVANE_X\n#elif defined(O_PATH)\n#endif\n"}, true},
      {"with spaces", {"host/A.cpp", "  #  ifndef __linux__\n#endif\n"}, true},
      {"no condition at all", {"quorvel/A.cpp", "open(path, O_PATH);\n"}, true},
      {"the switch in a comment",
       {"quorvel/A.cpp", "// KELVANE_PORTABLE changes this.\n#ifdef O_PATH\n#endif\n"},
       true},
      {"in one behind the condition", {"quorvel/A.cpp", "#ifdef O_PATH  // KELVANE_PORTABLE\n#endif\n"}, true},
      {"in code", {"quorvel/A.cpp", "#ifdef O_PATH\n#endif\nint KELVANE_PORTABLE;\n"}, true},
      {"no condition, but a comment", {"quorvel/A.cpp", "// KELVANE_X\nopen(path, O_PATH);\n"}, true},
      {"with the switch", {"platform/A.h", "#if defined(__SSE2__) && !defined(KELVANE_PORTABLE)\n#endif\n"}, false},
      {"by a switch of ours", {"platform/A.h", "#if defined(KELVANE_SSE2)\n__m128i bytes;\n#endif\n"}, false},
      {"a library's version", {"program/A.h", "#if TOML_LIB_MAJOR != 3\n#endif\n"}, false},
      {"no condition of that kind", {"platform/A.h", "#pragma once\nif (isPath) return;\n"}, false},
      {"a test", {"tests/A.cpp", "#ifdef F_SETPIPE_SZ\n#endif\n"}, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(withoutTheSwitch({row.source}).size(), row.isFound ? 1u : 0u) << row.what;
  }
}

TEST(Portable, theSwitchLeavesOutCodeForOneProcessor) {
#if !defined(KELVANE_PORTABLE)
  GTEST_SKIP() << "Run: ./run test portable";
#else
#if defined(KELVANE_SSE2)
  ADD_FAILURE() << "SSE2 is used although it is switched off";
#endif
  EXPECT_FALSE(hasLittleEndianWords);
#endif
}

}  // namespace
}  // namespace kelvane::house
