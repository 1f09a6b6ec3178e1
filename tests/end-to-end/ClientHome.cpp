#include "tests/end-to-end/ClientHome.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace kelvane::tests {

ClientHome::ClientHome() {
  std::filesystem::create_directory(*this / "Scripts");
  put(".config/kelvane/org.quorvel.Quorvel.json",
      R"({"mcpEnabled": true, "libraryFolder": ")" + (*this / "Scripts").native() + R"("})");
}

Start ClientHome::start(std::vector<std::string> words) const {
  return {.arguments = std::move(words), .home = path()};
}

std::string ClientHome::connected(std::string_view client, std::string_view file) const {
  return std::string(client) + " now starts this program. It is registered in " + quoted(file) + ".\n";
}

std::string ClientHome::disconnected(std::string_view client, std::string_view file) const {
  return std::string(client) + " no longer starts this program. It is removed from " + quoted(file) + ".\n";
}

std::string ClientHome::keptBeside(std::string_view file, int number) const {
  const std::string suffix = number == 1 ? "" : "-" + std::to_string(number);
  return "The old text is in " + quoted(std::string(file) + ".before-kelvane" + suffix) + ".\n";
}

std::string ClientHome::connectedAlready(std::string_view file) const {
  return quoted(file) + " already registers this program. No change is needed.\n";
}

std::string ClientHome::notConnected(std::string_view file) const {
  return quoted(file) + " does not register this program. No change is needed.\n";
}

std::string ClientHome::wouldChange(std::string_view file) const {
  return quoted(file) + " would change like this:\n";
}

mode_t ClientHome::mode(std::string_view file) const {
  struct stat status;
  const std::filesystem::path path = *this / file;
  if (::lstat(path.c_str(), &status) != 0) throw std::system_error(errno, std::generic_category(), path.native());
  return status.st_mode & 07777U;
}

std::string builtProgram() {
  return std::filesystem::canonical(KELVANE_PROGRAM).native();
}

std::string withProgram(std::string_view text, std::string_view program) {
  constexpr std::string_view placeholder = "/bin/k";
  std::string result;
  for (std::size_t at = text.find(placeholder); at != std::string_view::npos; at = text.find(placeholder)) {
    result.append(text.substr(0, at)).append(program);
    text.remove_prefix(at + placeholder.size());
  }
  return result.append(text);
}

std::string claudeLines(std::string_view program) {
  return withProgram(R"({
  "mcpServers": {
    "kelvane": {
      "args": [],
      "command": "/bin/k"
    }
  }
}
)",
                     program);
}

std::string codexLines(std::string_view program) {
  return withProgram("[mcp_servers.kelvane]\nargs = []\ncommand = \"/bin/k\"\n", program);
}

std::string refused(std::string_view sentences, std::string_view lines) {
  return std::string(sentences).append("\nPaste these lines into the file:\n\n").append(lines).append("\n");
}

std::string droppedLines(const std::vector<std::string>& dropped) {
  if (dropped.empty()) return "";
  std::string text = "Also removed:\n";
  for (const std::string& line : dropped) text.append("  ").append(line).append("\n");
  return text;
}

void copyProgramTo(const std::filesystem::path& file) {
  std::filesystem::create_directories(file.parent_path());
  std::filesystem::copy_file(KELVANE_PROGRAM, file);
  std::filesystem::permissions(file, std::filesystem::perms(0755));
}

}  // namespace kelvane::tests
