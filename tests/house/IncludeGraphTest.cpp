#include "tests/house/IncludeGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/TemporaryFolder.h"

namespace kelvane::house {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A small tree without a fault.
std::vector<Source> orderly() {
  return {
      {"platform/Unicode.h", ""},
      {"platform/unicode/U.h", "#include \"platform/Unicode.h\"\n"},
      {"platform/P.h", "#pragma once\n#include <string>\n#include \"platform/unicode/U.h\"\n"},
      {"platform/json/T.h", "#include \"platform/unicode/U.h\"\n"},
      {"protocol/JSON.h", "#include \"platform/Unicode.h\"\n"},
      {"protocol/json/V.h", "#include \"protocol/JSON.h\"\n#include \"platform/json/T.h\"\n"},
      {"protocol/J.h", "#include \"platform/P.h\"\n#include \"protocol/JSON.h\"\n"},
      {"scripttools/S.h", "#include \"protocol/J.h\"\n#include \"platform/P.h\"\n"},
      {"host/H.h", "#include \"protocol/JSON.h\"\n"},
      {"quorvel/core/Q.h", "#include <sqlite3.h>\n\n#include \"platform/P.h\"\n"},
      {"quorvel/files/F.h", "#include \"platform/P.h\"\n"},
      {"quorvel/history/Y.h", "#include \"quorvel/files/F.h\"\n"},
      {"quorvel/library/L.h", "#include \"quorvel/files/F.h\"\n#include \"quorvel/history/Y.h\"\n"},
      {"quorvel/settings/D.h", "#include \"quorvel/files/F.h\"\n#include \"platform/json/T.h\"\n"},
      {"program/Terminal.h", "#include \"scripttools/S.h\"\n"},
      {"program/commands/C.h", "#include \"program/Terminal.h\"\n#include \"quorvel/library/L.h\"\n"},
      {"program/main.cpp", "#include \"program/commands/C.h\"\n#include \"program/Terminal.h\"\n"},
      {"tests/house/T.cpp", "#include \"program/commands/C.h\"\n#include \"tests/house/T.h\"\n"},
      {"tests/house/T.h", ""},
      {"fuzz/F.cpp", "#include \"tests/house/T.h\"\n#include \"host/H.h\"\n"},
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
  EXPECT_THAT(faultsIn(tree), IsEmpty());
}

TEST(IncludeGraph, anOrderlyTreeIsAccepted) {
  EXPECT_THAT(faultsIn(orderly()), IsEmpty());
}

TEST(IncludeGraph, aWrongIncludeIsFound) {
  const struct {
    const char* what;
    Source source;
    const char* sentence;
  } cases[] = {
      {"platform does not know the protocol",
       {"platform/X.cpp", "#include \"protocol/J.h\"\n"},
       "platform/X.cpp: \"protocol/J.h\" is not permitted in platform."},
      {"protocol does not know the tools",
       {"protocol/X.h", "#include \"scripttools/S.h\"\n"},
       "protocol/X.h: \"scripttools/S.h\" is not permitted in protocol."},
      {"the tools do not know the host's side",
       {"scripttools/X.h", "#include \"host/H.h\"\n"},
       "scripttools/X.h: \"host/H.h\" is not permitted in scripttools."},
      {"the tools do not know the default host",
       {"scripttools/X.cpp", "#include \"quorvel/core/Q.h\"\n"},
       "scripttools/X.cpp: \"quorvel/core/Q.h\" is not permitted in scripttools."},
      {"the host's side does not know the tools",
       {"host/X.cpp", "#include \"scripttools/S.h\"\n"},
       "host/X.cpp: \"scripttools/S.h\" is not permitted in host."},
      {"the host's side does not know the program",
       {"host/X.cpp", "#include \"program/commands/C.h\"\n"},
       "host/X.cpp: \"program/commands/C.h\" is not permitted in host."},
      {"the default host does not know the protocol",
       {"quorvel/library/X.cpp", "#include \"protocol/J.h\"\n"},
       "quorvel/library/X.cpp: \"protocol/J.h\" is not permitted in quorvel/library."},
      {"the default host does not know the program",
       {"quorvel/core/X.cpp", "#include \"program/commands/C.h\"\n"},
       "quorvel/core/X.cpp: \"program/commands/C.h\" is not permitted in quorvel/core."},
      {"the program does not know its tests",
       {"program/X.cpp", "#include \"tests/house/T.h\"\n"},
       "program/X.cpp: \"tests/house/T.h\" is not permitted in program."},
      {"a benchmark does not use tests",
       {"benchmarks/X.cpp", "#include \"tests/house/T.h\"\n"},
       "benchmarks/X.cpp: \"tests/house/T.h\" is not permitted in benchmarks."},
      {"files do not know the history",
       {"quorvel/files/X.cpp", "#include \"quorvel/history/Y.h\"\n"},
       "quorvel/files/X.cpp: \"quorvel/history/Y.h\" is not permitted in quorvel/files."},
      {"the history does not know the library",
       {"quorvel/history/X.cpp", "#include \"quorvel/library/L.h\"\n"},
       "quorvel/history/X.cpp: \"quorvel/library/L.h\" is not permitted in quorvel/history."},
      {"the settings do not know the library",
       {"quorvel/settings/X.cpp", "#include \"quorvel/library/L.h\"\n"},
       "quorvel/settings/X.cpp: \"quorvel/library/L.h\" is not permitted in quorvel/settings."},
      {"the library does not know the settings",
       {"quorvel/library/X.cpp", "#include \"quorvel/settings/D.h\"\n"},
       "quorvel/library/X.cpp: \"quorvel/settings/D.h\" is not permitted in quorvel/library."},
      {"the chapters do not know files",
       {"quorvel/core/X.cpp", "#include \"quorvel/files/F.h\"\n"},
       "quorvel/core/X.cpp: \"quorvel/files/F.h\" is not permitted in quorvel/core."},
      {"Unicode does not know JSON",
       {"platform/unicode/X.cpp", "#include \"platform/json/T.h\"\n"},
       "platform/unicode/X.cpp: \"platform/json/T.h\" is not permitted in platform/unicode."},
      {"the text of JSON does not know the system",
       {"platform/json/X.cpp", "#include \"platform/P.h\"\n"},
       "platform/json/X.cpp: \"platform/P.h\" is not permitted in platform/json."},
      {"a JSON value does not know the server",
       {"protocol/json/X.cpp", "#include \"protocol/J.h\"\n"},
       "protocol/json/X.cpp: \"protocol/J.h\" is not permitted in protocol/json."},
      {"the host's side knows only JSON of the protocol",
       {"host/X.cpp", "#include \"protocol/J.h\"\n"},
       "host/X.cpp: \"protocol/J.h\" is not permitted in host."},
      {"the tools do not know the text of JSON",
       {"scripttools/X.cpp", "#include \"platform/json/T.h\"\n"},
       "scripttools/X.cpp: \"platform/json/T.h\" is not permitted in scripttools."},
      {"only main.cpp knows the commands",
       {"program/X.cpp", "#include \"program/commands/C.h\"\n"},
       "program/X.cpp: \"program/commands/C.h\" is not permitted in program."},
      {"a configuration file does not know commands",
       {"program/configuration/X.cpp", "#include \"program/commands/C.h\"\n"},
       "program/configuration/X.cpp: \"program/commands/C.h\" is not permitted in program/configuration."},
      {"a neighbour is included from the root too",
       {"protocol/X.cpp", "#include \"J.h\"\n"},
       "protocol/X.cpp: \"J.h\" is not written from the root of the tree."},
      {"a path does not start with two dots",
       {"protocol/X.cpp", "#include \"../platform/P.h\"\n"},
       "protocol/X.cpp: \"../platform/P.h\" is not written from the root of the tree."},
      {"a path does not contain two dots",
       {"platform/X.cpp", "#include \"platform/../protocol/J.h\"\n"},
       "platform/X.cpp: \"platform/../protocol/J.h\" does not exist."},
      {"what is included exists",
       {"protocol/X.cpp", "#include \"platform/Missing.h\"\n"},
       "protocol/X.cpp: \"platform/Missing.h\" does not exist."},
      {"angle brackets do not hide an arrow",
       {"platform/X.cpp", "#include <protocol/J.h>\n"},
       "platform/X.cpp: <protocol/J.h> is a file of this tree and needs quotes."},
      {"quotes are not for other people's headers",
       {"quorvel/core/X.cpp", "#include \"sqlite3.h\"\n"},
       "quorvel/core/X.cpp: \"sqlite3.h\" is not written from the root of the tree."},
      {"spaces do not hide an include",
       {"platform/X.cpp", "int x;\n \t# \tinclude\t\"protocol/J.h\""},
       "platform/X.cpp: \"protocol/J.h\" is not permitted in platform."},
      {"a line that ends in CR LF does not hide one",
       {"platform/X.cpp", "#include <string>\r\n#include \"host/H.h\"\r\n"},
       "platform/X.cpp: \"host/H.h\" is not permitted in platform."},
      {"a macro could stand for anything",
       {"platform/X.cpp", "#include HEADER\n"},
       "platform/X.cpp: HEADER is not a path in quotes or angle brackets."},
      {"a new folder needs a room first", {"helpers/X.cpp", "\n"}, "helpers/X.cpp is in a folder that is not a room."},
      {"a source at the root needs a room as well", {"X.cpp", "\n"}, "X.cpp is in a folder that is not a room."},
  };
  for (const auto& [what, source, sentence] : cases) {
    SCOPED_TRACE(what);
    std::vector<Source> tree = orderly();
    tree.push_back(source);
    EXPECT_THAT(faultsIn(tree), ElementsAre(sentence));
  }
}

TEST(IncludeGraph, aLineThatOnlyLooksLikeAnIncludeIsIgnored) {
  std::vector<Source> tree = orderly();
  tree.push_back({"platform/X.cpp",
                  "// #include \"protocol/J.h\"\n"
                  "const char* text = \"#include <host/H.h>\";\n"
                  "#if __has_include(<protocol/J.h>)\n#endif\n"});
  EXPECT_THAT(faultsIn(tree), IsEmpty());
}

TEST(IncludeGraph, aCircleOfHeadersIsFound) {
  std::vector<Source> tree = orderly();
  tree.push_back({"protocol/A.h", "#include \"protocol/B.h\"\n"});
  tree.push_back({"protocol/B.h", "#include \"protocol/C.h\"\n#include \"platform/P.h\"\n"});
  tree.push_back({"protocol/C.h", "#include \"protocol/A.h\"\n"});
  EXPECT_THAT(faultsIn(tree),
              ElementsAre("These files include each other in a circle: protocol/A.h protocol/B.h protocol/C.h."));
}

TEST(IncludeGraph, aHeaderThatIncludesItselfIsFound) {
  EXPECT_THAT(faultsIn({{"protocol/A.h", "#include \"protocol/A.h\"\n"}}),
              ElementsAre("These files include each other in a circle: protocol/A.h."));
}

TEST(IncludeGraph, sourcesAreFoundInEveryFolderExceptBuildFolders) {
  const tests::TemporaryFolder folder;
  for (const char* path : {"b/deep/er/Two.h", "a/One.cpp", "build/Three.h", "build-asan/Four.cpp", ".git/Five.h",
                           "tests/clients/node_modules/x/Six.h", "builders/Seven.h", "a/Eight.txt"}) {
    const std::filesystem::path file = folder.path() / path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << path;
  }
  std::vector<std::string> paths;
  for (const Source& source : sourcesBelow(folder.path())) {
    EXPECT_EQ(source.text, source.path);
    paths.push_back(source.path);
  }
  EXPECT_THAT(paths, ElementsAre("a/One.cpp", "b/deep/er/Two.h", "builders/Seven.h"));
}

}  // namespace
}  // namespace kelvane::house
