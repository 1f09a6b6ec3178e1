// Shows a conversation between an MCP client and the server: kelvane_demo PROGRAM LIBRARY. For each request it prints a
// sentence, the line that is sent, and the reply in readable form. The exit status is 0 if every reply is as expected.

#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "examples/demo/Page.h"
#include "examples/demo/ServerProcess.h"
#include "protocol/JSON.h"

namespace kelvane::demo {
namespace {

constexpr std::string_view podcast = "Podcast/Night Ferries/Opening, take 10.md";
constexpr std::string_view bread = "Tutorials/Your First Loaf of Bread.md";
constexpr std::string_view toast = "Family/A Toast for My Sister.md";

/// The client: it numbers its requests and checks the replies.
class Client {
 public:
  Client(ServerProcess& server, const Page& page) : server_(server), page_(page) {}

  /// The "result" of a request.
  JSON request(std::string_view method, const JSON::Object& params) {
    const std::string line =
        JSON(JSON::Object{{"jsonrpc", "2.0"}, {"id", ++requests_}, {"method", method}, {"params", params}}).encoded();
    page_.sent(line);
    const auto reply = JSON::decoded(server_.ask(line));
    const JSON* result = reply ? (*reply)["result"] : nullptr;
    if (result == nullptr) throw std::runtime_error("The server refused a request that is right.");
    return *result;
  }

  void notify(std::string_view method) {
    const std::string line = JSON(JSON::Object{{"jsonrpc", "2.0"}, {"method", method}}).encoded();
    page_.sent(line);
    server_.tell(line);
  }

  /// The text of a tool's result.
  std::string call(std::string_view tool, const JSON::Object& arguments) { return text(tool, arguments, false); }

  /// The message of a tool's failed result.
  std::string mistake(std::string_view tool, const JSON::Object& arguments) { return text(tool, arguments, true); }

  /// The message of the error for a line that is not a request.
  std::string nonsense(std::string_view line) {
    page_.sent(line);
    const auto reply = JSON::decoded(server_.ask(line));
    const JSON* error = reply ? (*reply)["error"] : nullptr;
    const JSON* message = error != nullptr ? (*error)["message"] : nullptr;
    if (message == nullptr || !message->string()) throw std::runtime_error("The server took nonsense for a request.");
    return "Error: " + std::string(*message->string());
  }

 private:
  std::string text(std::string_view tool, const JSON::Object& arguments, bool isError) {
    const JSON result = request("tools/call", {{"name", tool}, {"arguments", arguments}});
    const JSON* failed = result["isError"];
    const JSON* content = result["content"];
    const JSON* item = content != nullptr && content->items() != nullptr ? content->items()->begin() : nullptr;
    const JSON* text = item != nullptr ? (*item)["text"] : nullptr;
    if (failed == nullptr || text == nullptr || !text->string()) throw std::runtime_error("Not a tool result.");
    if (*failed != JSON(isError)) throw std::runtime_error("Unexpected: " + std::string(*text->string()));
    return std::string(*text->string());
  }

  ServerProcess& server_;
  const Page& page_;
  int requests_ = 0;
};

void introduce(Client& client, const Page& page) {
  page.heading("Getting to know each other");
  page.sentence("The client introduces itself, and the server answers.");
  page.answer(
      asIntroduction(client.request("initialize", {{"protocolVersion", "2025-06-18"},
                                                   {"capabilities", JSON::Object()},
                                                   {"clientInfo", JSON::Object{{"name", "demo"}, {"version", "1"}}}})));
  client.notify("notifications/initialized");

  page.sentence("What can you do for me?");
  page.answer(asCatalogue(client.request("tools/list", {})));
}

void read(Client& client, const Page& page) {
  page.heading("Reading");
  page.sentence("Which scripts are there?");
  page.answer(asTree(client.call("list_scripts", {})));

  page.sentence("Read me the tenth take of the podcast's opening.");
  page.answer(beginning(client.call("read_script", {{"id", podcast}}), 2));

  page.sentence("Are there earlier versions of it?");
  page.answer(asVersions(client.call("list_versions", {{"id", podcast}})));

  page.sentence("How is the tutorial on bread divided, and when does each chapter start when it is read aloud?");
  page.answer(asChapters(client.call("list_chapters", {{"id", bread}})));

  page.sentence("What does its third chapter say?");
  page.answer(client.call("read_chapter", {{"id", bread}, {"chapter", "3"}}));
}

void err(Client& client, const Page& page) {
  page.heading("Mistakes");
  page.sentence("And the ninth chapter? It does not exist, and the answer says which ones do.");
  page.answer(client.mistake("read_chapter", {{"id", bread}, {"chapter", "9"}}));

  page.sentence("Can it be talked into reading a file outside the library?");
  page.answer(client.mistake("read_script", {{"id", "../../etc/passwd"}}));

  page.sentence("What does it make of a line that broke off?");
  page.answer(client.nonsense(R"({"jsonrpc":"2.0","id":99,"meth)"));

  page.sentence("Is it still there after that?");
  client.request("ping", {});
  page.answer("It is.");
}

void write(Client& client, const Page& page) {
  page.heading("Writing");
  page.sentence("The toast should begin more gently. How does it begin?");
  std::string text = client.call("read_script", {{"id", toast}});
  page.answer(beginning(text, 1));

  page.sentence("Then begin it like this. (The old text is kept before the new one is written.)");
  text.replace(0, text.find('\n'),
               "Dear Hanna, dear Tomas, dear friends. I was told to keep this short, and I have tried.");
  page.answer(
      asSummary(client.call("update_script", {{"id", toast}, {"text", text}, {"note", "a gentler beginning"}})));

  page.sentence("What is in its history now?");
  page.answer(asVersions(client.call("list_versions", {{"id", toast}})));

  page.sentence("The tutorial needs a word on mistakes, as its last chapter.");
  page.answer(asChapters(client.call(
      "add_chapter", {{"id", bread},
                      {"title", "When it goes wrong"},
                      {"text",
                       "It will, once. If it is flat, it had too little time. If it is pale, it had too little "
                       "fire. Eat it all the same, with butter."}})));

  page.sentence("On second thoughts, that belongs before the baking.");
  page.answer(asChapters(client.call("move_chapter", {{"id", bread}, {"chapter", "6"}, {"to", "5"}})));

  page.sentence("Both changes saved the old text in the history.");
  page.answer(asVersions(client.call("list_versions", {{"id", bread}})));
}

int converse(const std::string& program, const std::string& library) {
  const Page page;
  page.remark("A person has scripts in a folder. A client starts the server for it with");
  page.remark("    kelvane serve --library " + library + " --allow-writes");
  page.remark("Then they exchange lines of JSON: a request (->) and its reply (<-), shown here in readable form.");
  ServerProcess server({program, "serve", "--library", library, "--allow-writes"});
  Client client(server, page);
  introduce(client, page);
  read(client, page);
  err(client, page);
  write(client, page);

  page.heading("Goodbye");
  const int status = server.hangUp();
  page.remark("The client closes the connection, and the server exits with status " + std::to_string(status) + ".");
  return status;
}

}  // namespace
}  // namespace kelvane::demo

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "Usage: kelvane_demo PROGRAM LIBRARY\n";
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return kelvane::demo::converse(argv[1], argv[2]);
  } catch (const std::exception& error) {
    std::cout << std::flush;
    std::cerr << error.what() << '\n';
    return 1;
  }
}
