#include "tests/house/IncludeGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace kelvane::house {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A small tree in order, one header a folder.
std::vector<Source> orderly() {
  return {
      {"platform/P.h", "#pragma once\n#include <string>\n"},
      {"protocol/J.h", "#include \"platform/P.h\"\n"},
      {"scripttools/S.h", "#include \"protocol/J.h\"\n#include \"platform/P.h\"\n"},
      {"host/H.h", "#include \"protocol/J.h\"\n"},
      {"quorvel/core/Q.h", "#include <sqlite3.h>\n\n#include \"platform/P.h\"\n"},
      {"program/main.cpp", "#include \"scripttools/S.h\"\n#include \"host/H.h\"\n#include \"quorvel/core/Q.h\"\n"},
      {"tests/house/T.cpp", "#include \"program/Command.h\"\n#include \"tests/house/T.h\"\n"},
      {"tests/house/T.h", ""},
      {"fuzz/F.cpp", "#include \"tests/house/T.h\"\n#include \"host/H.h\"\n"},
      {"program/Command.h", ""},
  };
}

TEST(IncludeGraph, theTreeIsInOrder) {
  const std::vector<Source> tree = sourcesBelow(KELVANE_SOURCE_DIR);
  const auto has = [&](std::string_view path) {
    return std::any_of(tree.begin(), tree.end(), [&](const Source& source) {
      return source.path == path && source.text.find("#include") != std::string::npos;
    });
  };
  ASSERT_TRUE(has("platform/Unicode.h") && has("protocol/JSON.h") && has("tests/house/IncludeGraphTest.cpp"));
  EXPECT_THAT(disorder(tree), IsEmpty());
}

TEST(IncludeGraph, aTreeInOrderIsLeftAlone) {
  EXPECT_THAT(disorder(orderly()), IsEmpty());
}

TEST(IncludeGraph, aWrongIncludeIsFound) {
  const struct {
    const char* what;
    Source source;
    const char* sentence;
  } cases[] = {
      {"platform knows nothing of ours",
       {"platform/X.cpp", "#include \"protocol/J.h\"\n"},
       "platform/X.cpp: \"protocol/J.h\" points where platform may not look."},
      {"protocol does not know the tools",
       {"protocol/X.h", "#include \"scripttools/S.h\"\n"},
       "protocol/X.h: \"scripttools/S.h\" points where protocol may not look."},
      {"the tools do not know the host's side",
       {"scripttools/X.h", "#include \"host/H.h\"\n"},
       "scripttools/X.h: \"host/H.h\" points where scripttools may not look."},
      {"the tools do not know the default host",
       {"scripttools/X.cpp", "#include \"quorvel/core/Q.h\"\n"},
       "scripttools/X.cpp: \"quorvel/core/Q.h\" points where scripttools may not look."},
      {"the host's side does not know the tools",
       {"host/X.cpp", "#include \"scripttools/S.h\"\n"},
       "host/X.cpp: \"scripttools/S.h\" points where host may not look."},
      {"the host's side does not know the program",
       {"host/X.cpp", "#include \"program/Command.h\"\n"},
       "host/X.cpp: \"program/Command.h\" points where host may not look."},
      {"the default host does not know the protocol",
       {"quorvel/library/X.cpp", "#include \"protocol/J.h\"\n"},
       "quorvel/library/X.cpp: \"protocol/J.h\" points where quorvel may not look."},
      {"the default host does not know the program",
       {"quorvel/core/X.cpp", "#include \"program/Command.h\"\n"},
       "quorvel/core/X.cpp: \"program/Command.h\" points where quorvel may not look."},
      {"the program does not know its tests",
       {"program/X.cpp", "#include \"tests/house/T.h\"\n"},
       "program/X.cpp: \"tests/house/T.h\" points where program may not look."},
      {"a benchmark does not lean on tests",
       {"benchmarks/X.cpp", "#include \"tests/house/T.h\"\n"},
       "benchmarks/X.cpp: \"tests/house/T.h\" points where benchmarks may not look."},
      {"a neighbour is named from the root too",
       {"protocol/X.cpp", "#include \"J.h\"\n"},
       "protocol/X.cpp: \"J.h\" is not written from the root of the tree."},
      {"no path climbs",
       {"protocol/X.cpp", "#include \"../platform/P.h\"\n"},
       "protocol/X.cpp: \"../platform/P.h\" is not written from the root of the tree."},
      {"no path climbs on its way",
       {"platform/X.cpp", "#include \"platform/../protocol/J.h\"\n"},
       "platform/X.cpp: \"platform/../protocol/J.h\" names no file of the tree."},
      {"what is included exists",
       {"protocol/X.cpp", "#include \"platform/Missing.h\"\n"},
       "protocol/X.cpp: \"platform/Missing.h\" names no file of the tree."},
      {"angle brackets do not hide an arrow",
       {"platform/X.cpp", "#include <protocol/J.h>\n"},
       "platform/X.cpp: <protocol/J.h> is ours and wants quotes."},
      {"quotes are not for other people's headers",
       {"quorvel/core/X.cpp", "#include \"sqlite3.h\"\n"},
       "quorvel/core/X.cpp: \"sqlite3.h\" is not written from the root of the tree."},
      {"blanks do not hide an include",
       {"platform/X.cpp", "int x;\n \t# \tinclude\t\"protocol/J.h\""},
       "platform/X.cpp: \"protocol/J.h\" points where platform may not look."},
      {"a line that ends in CR LF does not hide one",
       {"platform/X.cpp", "#include <string>\r\n#include \"host/H.h\"\r\n"},
       "platform/X.cpp: \"host/H.h\" points where platform may not look."},
      {"a macro could stand for anything",
       {"platform/X.cpp", "#include HEADER\n"},
       "platform/X.cpp: HEADER does not say plainly what is included."},
      {"a new folder needs its place in the order first",
       {"helpers/X.cpp", "\n"},
       "helpers/X.cpp lies in a folder that has no place in the order."},
      {"so does a source at the root", {"X.cpp", "\n"}, "X.cpp lies in a folder that has no place in the order."},
  };
  for (const auto& [what, source, sentence] : cases) {
    SCOPED_TRACE(what);
    std::vector<Source> tree = orderly();
    tree.push_back(source);
    EXPECT_THAT(disorder(tree), ElementsAre(sentence));
  }
}

TEST(IncludeGraph, whatOnlyLooksLikeAnIncludeIsNone) {
  std::vector<Source> tree = orderly();
  tree.push_back({"platform/X.cpp",
                  "// #include \"protocol/J.h\"\n"
                  "const char* text = \"#include <host/H.h>\";\n"
                  "#if __has_include(<protocol/J.h>)\n#endif\n"});
  EXPECT_THAT(disorder(tree), IsEmpty());
}

TEST(IncludeGraph, aCircleOfHeadersIsFound) {
  std::vector<Source> tree = orderly();
  tree.push_back({"protocol/A.h", "#include \"protocol/B.h\"\n"});
  tree.push_back({"protocol/B.h", "#include \"protocol/C.h\"\n#include \"platform/P.h\"\n"});
  tree.push_back({"protocol/C.h", "#include \"protocol/A.h\"\n"});
  EXPECT_THAT(disorder(tree),
              ElementsAre("Includes go round in a circle among: protocol/A.h protocol/B.h protocol/C.h."));
}

TEST(IncludeGraph, aHeaderThatIncludesItselfIsFound) {
  EXPECT_THAT(disorder({{"protocol/A.h", "#include \"protocol/A.h\"\n"}}),
              ElementsAre("Includes go round in a circle among: protocol/A.h."));
}

TEST(IncludeGraph, sourcesAreFoundWhereverTheyLieButNotInBuildFolders) {
  std::string root = (std::filesystem::temp_directory_path() / "kelvane-house-XXXXXX").string();
  ASSERT_NE(mkdtemp(root.data()), nullptr);
  for (const char* path : {"b/deep/er/Two.h", "a/One.cpp", "build/Three.h", "build-asan/Four.cpp", ".git/Five.h",
                           "tests/clients/node_modules/x/Six.h", "builders/Seven.h", "a/Eight.txt"}) {
    const std::filesystem::path file = std::filesystem::path(root) / path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << path;
  }
  std::vector<std::string> paths;
  for (const Source& source : sourcesBelow(root)) {
    EXPECT_EQ(source.text, source.path);
    paths.push_back(source.path);
  }
  std::filesystem::remove_all(root);
  EXPECT_THAT(paths, ElementsAre("a/One.cpp", "b/deep/er/Two.h", "builders/Seven.h"));
}

}  // namespace
}  // namespace kelvane::house
