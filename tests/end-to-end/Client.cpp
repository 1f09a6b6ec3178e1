#include "tests/end-to-end/Client.h"

#include <ostream>
#include <stdexcept>
#include <utility>

namespace kelvane::tests {
namespace {

Start serving(const std::string& library, bool allowingWrites, bool asNobody) {
  Start start{.arguments = {"serve", "--library", library}, .asNobody = asNobody};
  if (allowingWrites) start.arguments.emplace_back("--allow-writes");
  return start;
}

JSON::Object requestObject(int id, std::string_view method, const JSON::Object& params) {
  return {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}};
}

const JSON& member(const JSON& value, std::string_view key) {
  const JSON* found = value[key];
  if (found == nullptr) throw std::runtime_error("No \"" + std::string(key) + "\" in " + value.encoded());
  return *found;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << (answer.isError ? "failure: " : "success: ") << answer.text;
}

Answer success(std::string_view text) {
  return {false, std::string(text)};
}

Answer failure(std::string_view text) {
  return {true, std::string(text)};
}

std::string callRequest(int id, std::string_view tool, const JSON::Object& arguments) {
  return JSON(requestObject(id, "tools/call", {{"name", tool}, {"arguments", arguments}})).encoded();
}

std::string ping(int id) {
  return "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(id) + ",\"method\":\"ping\"}";
}

std::string pong(int id) {
  return "{\"id\":" + std::to_string(id) + ",\"jsonrpc\":\"2.0\",\"result\":{}}";
}

Client::Client(const std::string& library, bool allowingWrites, bool asNobody)
    : program_(serving(library, allowingWrites, asNobody)) {
}

JSON Client::request(std::string_view method, const JSON::Object& params) {
  const int id = ++lastID_;
  program_.write(JSON(requestObject(id, method, params)).encoded() + '\n');
  const std::optional<std::string> line = program_.line();
  if (!line) throw std::runtime_error("The server ended without a reply.");
  const std::optional<JSON> reply = JSON::decoded(*line);
  if (!reply || member(*reply, "id") != JSON(id)) throw std::runtime_error("Not the reply: " + *line);
  return member(*reply, "result");
}

Answer Client::call(std::string_view tool, const JSON::Object& arguments) {
  const JSON result = request("tools/call", {{"name", tool}, {"arguments", arguments}});
  const JSON content = member(result, "content");
  const JSON& text = member((*content.items())[0], "text");
  return {member(result, "isError") == JSON(true), std::string(*text.string())};
}

std::vector<std::string> Client::tools() {
  std::vector<std::string> names;
  const JSON result = request("tools/list");
  for (const JSON& tool : *member(result, "tools").items()) names.emplace_back(*member(tool, "name").string());
  return names;
}

void Client::finish() {
  const Outcome outcome = program_.finish();
  if (outcome.status != 0 || !outcome.errors.empty()) {
    throw std::runtime_error("The server ended with status " + std::to_string(outcome.status) + ": " + outcome.errors);
  }
}

}  // namespace kelvane::tests
