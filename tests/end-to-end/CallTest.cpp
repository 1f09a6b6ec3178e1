#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

using testing::HasSubstr;

class Call : public testing::Test {
 protected:
  Outcome call(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "call");
    arguments.insert(arguments.end(), {"--library", library.text()});
    return run(std::move(arguments));
  }

  Outcome writing(std::vector<std::string> arguments) {
    arguments.emplace_back("--allow-writes");
    return call(std::move(arguments));
  }

  Folder library;
};

TEST_F(Call, saysSoWhereThereIsNotEnoughMemory) {
  if (isSanitized()) GTEST_SKIP() << "A sanitizer takes more memory than any limit that could be set here.";
  const std::filesystem::path script = std::filesystem::path(library.text()) / "Large.md";
  std::ofstream(script).close();
  std::filesystem::resize_file(script, std::uintmax_t{200} << 20);
  const std::string limited = "ulimit -v 150000; exec \"$0\" call read_script id=Large.md --library \"$1\"";
  EXPECT_EQ(run(Start{.arguments = {"-c", limited, KELVANE_PROGRAM, library.text()}, .program = "/bin/sh"}, ""),
            (Outcome{1, "", "There is not enough memory for this. Close some programs and try again.\n"}));
}

TEST_F(Call, printsTheTextAndALineFeedWhereTheLastLineHasNone) {
  const std::pair<std::string, std::string> cases[] = {
      {"one line", "one line\n"},
      {"one line\n", "one line\n"},
      {"two\nlines", "two\nlines\n"},
      {"CR LF\r\n", "CR LF\r\n"},
      {"CR\r", "CR\r\n"},
      {"blank lines\n\n\n", "blank lines\n\n\n"},
      {"\n", "\n"},
      {"", ""},
      {"not UTF-8: \x80\xFF", "not UTF-8: \x80\xFF\n"},
      {std::string("a NUL \0 within", 14), std::string("a NUL \0 within\n", 15)},
      {"\xEF\xBB\xBFwith a mark", "\xEF\xBB\xBFwith a mark\n"},
  };
  for (const auto& [text, output] : cases) {
    library.put("Talk.md", text);
    EXPECT_EQ(call({"read_script", "id=Talk.md"}), (Outcome{0, output, ""}));
  }
}

TEST_F(Call, takesAllBehindTheFirstEqualsSignAsTheValue) {
  for (const std::string& value :
       std::vector<std::string>{"plain", "a=b", "a = b == c", "line\nbreak", " blanks ", "--library", "[a,b]", "{}",
                                "\"quoted\"", "Übung 😀", "a,b;c", "-x", "\\n", "$HOME", "%PATH%"}) {
    library.put("Talk.md", "old");
    EXPECT_EQ(writing({"update_script", "id=Talk.md", "text=" + value, "note=n"}).status, 0) << value;
    EXPECT_EQ(library.bytes("Talk.md"), value);
  }
}

TEST_F(Call, takesALongTextFromAFileOrFromStandardInput) {
  library.put("new.txt", "from a file\n\x80");
  library.put("empty.txt", "");
  const std::string file = (library / "new.txt").native();
  const struct {
    const char* what;
    std::string typed;
    std::string text;
  } cases[] = {
      {"a file", "@" + file, "from a file\n\x80"},
      {"an empty file", "@" + (library / "empty.txt").native(), ""},
      {"standard input", "-", "from a pipe\n"},
      {"standard input as a file", "@/dev/stdin", "from a pipe\n"},
      {"a text that begins like a file", "=@" + file, "@" + file},
      {"a dash", "=-", "-"},
      {"an equals sign", "==", "="},
      {"an empty text", "=", ""},
      {"more than a dash", "--", "--"},
  };
  for (const auto& [what, typed, text] : cases) {
    library.put("Talk.md", "old");
    EXPECT_EQ(run({"call", "update_script", "id=Talk.md", "text=" + typed, "note=n", "--allow-writes", "--library",
                   library.text()},
                  "from a pipe\n")
                  .errors,
              text.empty() ? "Missing \"text\"\n" : "")
        << what;
    EXPECT_EQ(library.bytes("Talk.md"), text.empty() ? "old" : text) << what;
  }
}

TEST_F(Call, ofATextThatCannotBeReadChangesNothing) {
  library.put("Talk.md", "old");
  library.put("Folder/in.md", "");
  const std::string folder = (library / "Folder").native();
  const struct {
    std::string typed;
    std::string errors;
  } cases[] = {
      {"@", "There is no file \"\".\n"},
      {"@/nonexistent/new.md", "There is no file \"/nonexistent/new.md\".\n"},
      {"@" + folder,
       "\"" + folder + "\" could not be read, because it is a folder now. Look at what is there now and try again.\n"},
      {"@/dev/zero",
       "\"/dev/zero\" has more than 256 MiB, which is more than a script can hold. Give a shorter text.\n"},
  };
  for (const auto& [typed, errors] : cases) {
    EXPECT_EQ(writing({"update_script", "id=Talk.md", "text=" + typed, "note=n"}), (Outcome{1, "", errors}));
    EXPECT_EQ(library.bytes("Talk.md"), "old");
  }
}

TEST_F(Call, saysWhatIsNearANameAtWhichNothingIs) {
  library.put("Talks/Opening.md", "1");
  library.put("Talks/Über uns.md", "2");
  library.put("Closing.md", "3");
  const std::pair<const char*, const char*> cases[] = {
      {"Talks/Opening", "Talks/Opening.md"},
      {"talks/OPENING.MD", "Talks/Opening.md"},
      {"Talks/U\xCC\x88"
       "ber uns.md",
       "Talks/Über uns.md"},
      {"Opening.md", "Talks/Opening.md"},
      {"opening", "Talks/Opening.md"},
      {"Closng.md", "Closing.md"},
      {"Talks/Closing.md", "Closing.md"},
  };
  for (const auto& [typed, meant] : cases) {
    const std::string errors = "Nothing at \"" + std::string(typed) + "\". Did you mean \"" + meant + "\"?\n";
    EXPECT_EQ(call({"read_script", "id=" + std::string(typed)}), (Outcome{1, "", errors}));
  }
  EXPECT_EQ(call({"read_script", "id=x"}), (Outcome{1, "", "Nothing at \"x\"\n"}));
}

TEST_F(Call, findsScriptsWithEvilNames) {
  for (const std::string& id : std::vector<std::string>{"a=b.md", "-dash.md", "--library.md", " blank .md",
                                                        "line\nbreak.md", "\"q\".md", "[x].md", "Ordner/Übung.md"}) {
    library.put(id, "text of " + id);
    EXPECT_EQ(call({"read_script", "id=" + id}), (Outcome{0, "text of " + id + '\n', ""}));
  }
}

TEST_F(Call, ofAToolThatFailsIsStatusOneWithItsTextOnStandardError) {
  library.put("Talk.md", "text");
  const struct {
    std::vector<std::string> arguments;
    const char* errors;
  } cases[] = {
      {{"read_script", "id=nope.md"}, "Nothing at \"nope.md\"\n"},
      {{"read_script"}, "Missing \"id\"\n"},
      {{"read_script", "id="}, "Missing \"id\"\n"},
      {{"read_script", "id=/etc/passwd"}, "\"/etc/passwd\" is not inside the library\n"},
      {{"read_chapter", "id=Talk.md"}, "Missing \"chapter\"\n"},
      {{"update_script", "id=Talk.md", "text=new", "--allow-writes"}, "Missing \"note\"\n"},
      {{"rename", "id=", "name=x", "--allow-writes"}, "Missing \"id\"\n"},
  };
  for (const auto& [arguments, errors] : cases) {
    EXPECT_EQ(call(arguments), (Outcome{1, "", errors})) << testing::PrintToString(arguments);
  }
}

TEST_F(Call, ofAToolThatThereIsNotSaysWhichThereAre) {
  const std::string tools =
      " The tools are list_scripts, list_folders, list_versions, read_script, list_chapters, read_chapter and, with "
      "--allow-writes, create_script, create_folder, rename, save_version, update_script, append_to_script, "
      "add_chapter, rename_chapter, update_chapter, move_chapter, remove_chapter.\n";
  EXPECT_EQ(call({"red_script"}),
            (Outcome{2, "", "There is no tool \"red_script\". Did you mean \"read_script\"?" + tools}));
  EXPECT_EQ(writing({"Rename"}), (Outcome{2, "", "There is no tool \"Rename\". Did you mean \"rename\"?" + tools}));
  EXPECT_EQ(call({"serve"}), (Outcome{2, "", "There is no tool \"serve\"." + tools}));
  EXPECT_EQ(call({"tools/list"}), (Outcome{2, "", "There is no tool \"tools/list\"." + tools}));
}

TEST_F(Call, ofAToolThatWritesNeedsTheOption) {
  library.put("Talk.md", "text");
  for (const char* tool :
       {"create_script", "create_folder", "rename", "save_version", "update_script", "append_to_script", "add_chapter",
        "rename_chapter", "update_chapter", "move_chapter", "remove_chapter"}) {
    const std::string errors = std::string("The tool \"") + tool + "\" changes scripts. Add --allow-writes.\n";
    EXPECT_EQ(call({tool, "id=Talk.md", "name=New"}), (Outcome{2, "", errors}));
  }
  EXPECT_EQ(call({"list_scripts"}).output, "[{\"id\":\"Talk.md\",\"kind\":\"script\",\"name\":\"Talk\"}]\n");
}

TEST_F(Call, withAnArgumentThatTheToolDoesNotTakeIsWrongUsage) {
  library.put("Talk.md", "text");
  const struct {
    std::vector<std::string> arguments;
    const char* errors;
  } cases[] = {
      {{"list_scripts", "id=x"}, "The tool \"list_scripts\" has no argument \"id\". It takes no arguments.\n"},
      {{"read_script", "ID=Talk.md"}, "The tool \"read_script\" has no argument \"ID\". It takes id.\n"},
      {{"read_script", "=Talk.md"}, "The tool \"read_script\" has no argument \"\". It takes id.\n"},
      {{"read_script", "Talk.md"}, "\"Talk.md\" is not a tool's argument. Write NAME=VALUE, such as id=Opening.md.\n"},
      {{"read_script", ""}, "\"\" is not a tool's argument. Write NAME=VALUE, such as id=Opening.md.\n"},
      {{"read_script", "id=Talk.md", "id=Talk.md"}, "\"id\" is given twice. Give it once.\n"},
      {{"create_script", "name=x", "foldr=y", "--allow-writes"},
       "The tool \"create_script\" has no argument \"foldr\". Did you mean \"folder\"? It takes folder, name, text.\n"},
  };
  for (const auto& [arguments, errors] : cases) {
    EXPECT_EQ(call(arguments), (Outcome{2, "", errors})) << testing::PrintToString(arguments);
  }
}

TEST_F(Call, runsEveryToolThatWrites) {
  const struct {
    std::vector<std::string> arguments;
    const char* text;
  } steps[] = {
      {{"create_folder", "name=Talks"}, R"({"id":"Talks","kind":"folder","name":"Talks"})"},
      {{"create_script", "name=Opening", "folder=Talks", "text=Good evening."},
       R"({"id":"Talks/Opening.md","kind":"script","name":"Opening"})"},
      {{"append_to_script", "id=Talks/Opening.md", "text=Welcome.", "note=a greeting"},
       R"({"id":"Talks/Opening.md","kind":"script","name":"Opening","words":3})"},
      {{"add_chapter", "id=Talks/Opening.md", "title=Thanks", "first_title=Hello", "text=Thank you all."},
       R"("title":"Thanks")"},
      {{"move_chapter", "id=Talks/Opening.md", "chapter=2", "to=1"}, R"("title":"Thanks")"},
      {{"rename_chapter", "id=Talks/Opening.md", "chapter=1", "title=Thank you"}, R"("title":"Thank you")"},
      {{"update_chapter", "id=Talks/Opening.md", "chapter=1", "text=Many thanks."}, R"("title":"Thank you")"},
      {{"remove_chapter", "id=Talks/Opening.md", "chapter=1", "keep_text=no"}, R"("title":"Hello")"},
      {{"save_version", "id=Talks/Opening.md", "note=short"}, R"("name":"short","saved":"2)"},
      {{"update_script", "id=Talks/Opening.md", "text=All new.", "note=again"}, R"("words":2)"},
      {{"rename", "id=Talks", "name=Speeches"}, R"({"id":"Speeches","kind":"folder","name":"Speeches"})"},
  };
  for (const auto& [arguments, text] : steps) {
    const Outcome outcome = writing(arguments);
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(arguments) << outcome;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(outcome.output, HasSubstr(text));
  }
  EXPECT_EQ(library.bytes("Speeches/Opening.md"), "All new.");
  const std::string versions = call({"list_versions", "id=Speeches/Opening.md"}).output;
  std::size_t from = 0;
  for (const char* label : {"Before — again", "short", "Before — removed chapter 1", "Before — rewrote chapter 1",
                            "Before — renamed chapter 1", "Before — moved chapter 2 to 1",
                            "Before — added chapter Thanks", "Before — a greeting"}) {
    const std::size_t found = versions.find(std::string("\"name\":\"") + label + '"', from);
    EXPECT_NE(found, std::string::npos) << label << " is not there, or not in its place, in " << versions;
    if (found != std::string::npos) from = found;
  }
}

}  // namespace
}  // namespace kelvane::tests
