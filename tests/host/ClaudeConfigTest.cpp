#include "host/ClaudeConfig.h"

#include <gtest/gtest.h>

#include "host/CodexConfig.h"
#include "tests/support/Random.h"

namespace kelvane {
namespace {

/// The content of a client's file, or nullptr for a missing file.
std::optional<JSON> document(const char* text) {
  return text ? JSON::decoded(text) : std::nullopt;
}

struct EditCase {
  const char* description;
  const char* before;
  const char* after;
};

#define ENTRY R"({"args":[],"command":"/bin/k"})"
#define ONLY R"({"mcpServers":{"kelvane":)" ENTRY "}}"

TEST(ClaudeConfig, addsItsEntryAndKeepsEverythingElse) {
  const EditCase cases[] = {
      {"no document", nullptr, ONLY},
      {"an empty file", "", ONLY},
      {"no JSON", "{", ONLY},
      {"null", "null", ONLY},
      {"a Bool", "true", ONLY},
      {"a number", "7", ONLY},
      {"a text", R"("mcpServers")", ONLY},
      {"an array is discarded, not wrapped", R"([{"mcpServers":{"other":{}}}])", ONLY},
      {"an empty object", "{}", ONLY},
      {"other members and servers stay",
       R"({"a":null,"mcpServers":{"other":{"command":"x","args":["--y"],"env":{"K":"v"}},"zeta":3},"n":[1.5,{"b":true}]})",
       R"({"a":null,"mcpServers":{"kelvane":)" ENTRY
       R"(,"other":{"args":["--y"],"command":"x","env":{"K":"v"}},"zeta":3},"n":[1.5,{"b":true}]})"},
      {"servers that are a text", R"({"mcpServers":"none","a":1})", R"({"a":1,"mcpServers":{"kelvane":)" ENTRY "}}"},
      {"servers that are null", R"({"mcpServers":null})", ONLY},
      {"servers that are an array", R"({"mcpServers":["kelvane"]})", ONLY},
      {"servers that are a number", R"({"mcpServers":4})", ONLY},
      {"servers that are a Bool", R"({"mcpServers":true})", ONLY},
      {"an entry with more members",
       R"({"mcpServers":{"kelvane":{"command":"old","args":["--x"],"env":{},"type":"stdio"}}})", ONLY},
      {"an entry that is no object", R"({"mcpServers":{"kelvane":"old"}})", ONLY},
      {"a server in other letters is another", R"({"mcpServers":{"Kelvane":1}})",
       R"({"mcpServers":{"Kelvane":1,"kelvane":)" ENTRY "}}"},
      {"members in other letters are others", R"({"mcpservers":{"kelvane":1}})",
       R"({"mcpServers":{"kelvane":)" ENTRY R"(},"mcpservers":{"kelvane":1}})"},
      {"a member of that name deeper down", R"({"p":{"mcpServers":{"kelvane":1}}})",
       R"({"mcpServers":{"kelvane":)" ENTRY R"(},"p":{"mcpServers":{"kelvane":1}}})"},
  };
  for (const EditCase& row : cases) {
    const JSON added = ClaudeConfig::adding("/bin/k", document(row.before));
    EXPECT_EQ(added.encoded(), row.after) << row.description;
    EXPECT_EQ(ClaudeConfig::adding("/bin/k", added), added) << row.description;
  }
}

TEST(ClaudeConfig, storesTheCommandUnchanged) {
  const std::string commands[] = {"",
                                  " /a b/k ",
                                  R"(C:\k "x".exe)",
                                  "~/$HOME/k",
                                  "k --flag",
                                  "/\u00E9/\u65E5\u672C/k",
                                  "/cafe\u0301",
                                  std::string("a\0b", 3),
                                  "\n"};
  for (const std::string& command : commands) {
    const JSON added = ClaudeConfig::adding(command, std::nullopt);
    EXPECT_EQ(ClaudeConfig::command(added), command);
    const JSON& entry = *(*added["mcpServers"])["kelvane"];
    EXPECT_EQ(entry, (JSON::Object{{"command", command}, {"args", JSON::Array{}}}));
  }
}

TEST(ClaudeConfig, removesItsEntryAndNothingElse) {
  const EditCase cases[] = {
      {"no document", nullptr, "{}"},
      {"no JSON", "{", "{}"},
      {"null", "null", "{}"},
      {"an array", "[1]", "{}"},
      {"a text", R"("x")", "{}"},
      {"a number", "1", "{}"},
      {"a Bool", "false", "{}"},
      {"an empty object", "{}", "{}"},
      {"the only server", ONLY, R"({"mcpServers":{}})"},
      {"servers that are empty already", R"({"mcpServers":{}})", R"({"mcpServers":{}})"},
      {"one of two", R"({"mcpServers":{"kelvane":{},"other":{"command":"x"}},"a":[1]})",
       R"({"a":[1],"mcpServers":{"other":{"command":"x"}}})"},
      {"an entry that is no object", R"({"mcpServers":{"kelvane":7}})", R"({"mcpServers":{}})"},
      {"no such server", R"({"mcpServers":{"other":1}})", R"({"mcpServers":{"other":1}})"},
      {"no servers", R"({"kelvane":{"command":"x"}})", R"({"kelvane":{"command":"x"}})"},
      {"servers that are an array", R"({"mcpServers":["kelvane"]})", R"({"mcpServers":["kelvane"]})"},
      {"servers that are a text", R"({"mcpServers":"kelvane"})", R"({"mcpServers":"kelvane"})"},
      {"servers that are null", R"({"mcpServers":null})", R"({"mcpServers":null})"},
  };
  for (const EditCase& row : cases) {
    const JSON removed = ClaudeConfig::removing(document(row.before));
    EXPECT_EQ(removed.encoded(), row.after) << row.description;
    EXPECT_EQ(ClaudeConfig::removing(removed), removed) << row.description;
  }
}

TEST(ClaudeConfig, findsTheCommandOfItsEntry) {
  EXPECT_EQ(ClaudeConfig::command(document(ONLY)), "/bin/k");
  EXPECT_EQ(ClaudeConfig::command(document(R"({"mcpServers":{"kelvane":{"command":""}}})")), "");
  EXPECT_EQ(ClaudeConfig::command(document(R"({"mcpServers":{"kelvane":{"command":"x","args":7}}})")), "x");
  const EditCase without[] = {
      {"no document", nullptr, nullptr},
      {"no JSON", "{", nullptr},
      {"null", "null", nullptr},
      {"an array", "[]", nullptr},
      {"a text", R"("kelvane")", nullptr},
      {"no servers", R"({"kelvane":{"command":"x"}})", nullptr},
      {"servers that are an array", R"({"mcpServers":[{"kelvane":{"command":"x"}}]})", nullptr},
      {"servers that are a text", R"({"mcpServers":"kelvane"})", nullptr},
      {"no entry", R"({"mcpServers":{"other":{"command":"x"}}})", nullptr},
      {"an entry that is a text", R"({"mcpServers":{"kelvane":"x"}})", nullptr},
      {"an entry that is null", R"({"mcpServers":{"kelvane":null}})", nullptr},
      {"an entry without a command", R"({"mcpServers":{"kelvane":{"args":[]}}})", nullptr},
      {"a command that is a number", R"({"mcpServers":{"kelvane":{"command":1}}})", nullptr},
      {"a command that is a Bool", R"({"mcpServers":{"kelvane":{"command":true}}})", nullptr},
      {"a command that is null", R"({"mcpServers":{"kelvane":{"command":null}}})", nullptr},
      {"a command that is an array", R"({"mcpServers":{"kelvane":{"command":["x"]}}})", nullptr},
  };
  for (const EditCase& row : without) {
    EXPECT_EQ(ClaudeConfig::command(document(row.before)), std::nullopt) << row.description;
  }
}

TEST(ClaudeConfig, doesNotChangeTheGivenDocument) {
  const std::optional<JSON> before = document(R"({"mcpServers":{"kelvane":{"env":{}}},"a":1})");
  const std::string text = before->encoded();
  (void)ClaudeConfig::adding("x", before);
  (void)ClaudeConfig::removing(before);
  EXPECT_EQ(before->encoded(), text);
}

TEST(ClaudeConfig, usesTheSameServerNameAsTheOtherClient) {
  EXPECT_EQ(ClaudeConfig::serverName, "kelvane");
  EXPECT_EQ(ClaudeConfig::serverName, CodexConfig::serverName);
}

/// Random documents, with any kind of value at the root, as the servers, as the entry and in it.
class Documents {
 public:
  explicit Documents(std::mt19937_64 random) : random_(random) {}

  std::optional<JSON> next() {
    if (oneIn(12)) return std::nullopt;
    if (oneIn(8)) return scalar();
    JSON::Object root;
    for (const char* key : {"a", "mcpServer", "z\u00E9", ""}) {
      if (oneIn(2)) root.set(key, scalar());
    }
    if (!oneIn(4)) root.set("mcpServers", oneIn(4) ? scalar() : JSON(servers()));
    return root;
  }

  std::string text() {
    static const char* const pieces[] = {"/", "k", "\"", "\\", " ", "\u00E9", "\u0301", "\r\n", "\t", "kelvane"};
    std::string text;
    for (std::size_t i = tests::below(6, random_); i > 0; --i) {
      text += tests::oneOf(pieces, random_);
    }
    return text;
  }

 private:
  bool oneIn(std::size_t count) { return tests::below(count, random_) == 0; }

  JSON::Object servers() {
    JSON::Object servers;
    for (const char* key : {"b", "kelvane", "kelvane2"}) {
      if (oneIn(2)) servers.set(key, oneIn(3) ? scalar() : JSON(entry()));
    }
    return servers;
  }

  JSON::Object entry() {
    JSON::Object entry;
    for (const char* key : {"command", "args", "env"}) {
      if (!oneIn(3)) entry.set(key, scalar());
    }
    return entry;
  }

  JSON scalar() {
    const JSON values[] = {
        nullptr, true, 1.5, text(), JSON::Array{text()}, JSON::Object{}, JSON::Object{{"k", text()}}};
    return tests::oneOf(values, random_);
  }

  std::mt19937_64 random_;
};

/// Every member of an object except one.
std::vector<std::pair<std::string, JSON>> without(std::string_view key, const JSON* value) {
  std::vector<std::pair<std::string, JSON>> others;
  if (value == nullptr || value->object() == nullptr) return others;
  for (const JSON::Member& member : *value->object()) {
    if (member.key() != key) others.emplace_back(member.key(), member.value());
  }
  return others;
}

TEST(ClaudeConfig, editsOnlyItsEntryInRandomDocuments) {
  Documents documents(tests::seededGenerator());
  for (int i = 0; i < 5000; ++i) {
    const std::optional<JSON> before = documents.next();
    SCOPED_TRACE(before ? before->encoded() : "no document");
    const JSON* root = before ? &*before : nullptr;
    const JSON* servers = root ? (*root)["mcpServers"] : nullptr;
    const std::string command = documents.text();

    const JSON added = ClaudeConfig::adding(command, before);
    EXPECT_EQ(ClaudeConfig::command(added), command);
    EXPECT_EQ(without("mcpServers", &added), without("mcpServers", root));
    EXPECT_EQ(without("kelvane", added["mcpServers"]), without("kelvane", servers));
    EXPECT_EQ(ClaudeConfig::adding(command, added), added);
    EXPECT_EQ(ClaudeConfig::adding(command, ClaudeConfig::adding("other", before)), added);

    const JSON removed = ClaudeConfig::removing(before);
    EXPECT_EQ(ClaudeConfig::command(removed), std::nullopt);
    EXPECT_EQ(without("mcpServers", &removed), without("mcpServers", root));
    const bool hasServers = servers != nullptr && servers->object() != nullptr;
    if (hasServers) {
      EXPECT_EQ(without("", removed["mcpServers"]), without("kelvane", servers));
      EXPECT_EQ(ClaudeConfig::removing(added), removed);
    } else if (servers != nullptr) {
      EXPECT_EQ(*removed["mcpServers"], *servers);
    } else {
      EXPECT_EQ(removed["mcpServers"], nullptr);
    }
  }
}

}  // namespace
}  // namespace kelvane
