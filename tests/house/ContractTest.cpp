#include <concepts>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/ClaudeConfig.h"
#include "host/CodexConfig.h"
#include "host/Preferences.h"
#include "platform/QuorvelCore.h"
#include "platform/QuorvelLibrary.h"
#include "platform/UserDefaults.h"
#include "protocol/JSON.h"
#include "protocol/RPCError.h"
#include "protocol/Server.h"
#include "protocol/Tool.h"
#include "protocol/Transport.h"
#include "scripttools/ScriptTools.h"

/// The names that applications use. Renaming one, or changing its parameters or its result, breaks their builds, so
/// then this does not compile.
namespace kelvane {
namespace {

using std::same_as;

// A type with static operations only.
template <class Type>
constexpr bool isNamespace = !std::is_constructible_v<Type>;

// A type that no JSON value is made of.
struct Foreign {};

// JSON: sixteen bytes, made of nullptr, bool (but nothing that converts to it), numbers, strings, Array and Object.

static_assert(sizeof(JSON) == 16 && std::copyable<JSON> && std::is_nothrow_copy_constructible_v<JSON>);

template <class From>
constexpr bool makes = std::is_convertible_v<From, JSON>;
static_assert(makes<std::nullptr_t> && makes<bool> && makes<JSON::Array> && makes<JSON::Object>);
static_assert(makes<int> && makes<unsigned> && makes<long> && makes<std::size_t> && makes<std::int64_t> &&
              makes<float> && makes<double>);
static_assert(makes<const char*> && makes<const char (&)[5]> && makes<std::string> && makes<const std::string&> &&
              makes<std::string_view>);
static_assert(!makes<const void*> && !makes<int*> && !makes<char**> && !makes<Foreign>);

constexpr JSON::Kind kinds[] = {JSON::Kind::null,   JSON::Kind::boolean, JSON::Kind::number,
                                JSON::Kind::string, JSON::Kind::array,   JSON::Kind::object};
static_assert(std::size(kinds) == 6);

template <class Value>
concept HasTheAccessors = requires(const Value& value, std::string_view text) {
  { value.kind() }
  noexcept->same_as<JSON::Kind>;
  { value.string() }
  noexcept->same_as<std::optional<std::string_view>>;
  { value.number() }
  noexcept->same_as<std::optional<double>>;
  { value.items() }
  noexcept->same_as<const JSON::Array*>;
  { value.object() }
  noexcept->same_as<const JSON::Object*>;
  { value[text] }
  noexcept->same_as<const JSON*>;
  { value == value } -> same_as<bool>;
  { value != value } -> same_as<bool>;
  { Value::decoded(text) } -> same_as<std::optional<JSON>>;
  { value.encoded() } -> same_as<std::string>;
};
static_assert(HasTheAccessors<JSON>);

// Values have equality, but no order and no hash.
template <class Value>
concept HasAnOrder = requires(const Value& value) {
  value < value;
};
template <class Value>
concept HasAHash = requires(const Value& value) {
  std::hash<Value>()(value);
};
static_assert(!HasAnOrder<JSON> && !HasAHash<JSON>);

// Accessors that return views are deleted for temporaries.
template <class Value>
concept HandsOutText = requires(Value value) {
  std::forward<Value>(value).string();
};
template <class Value>
concept HandsOutItems = requires(Value value) {
  std::forward<Value>(value).items();
};
template <class Value>
concept HandsOutMembers = requires(Value value) {
  std::forward<Value>(value).object();
};
template <class Value>
concept HandsOutAMember = requires(Value value) {
  std::forward<Value>(value)["key"];
};
static_assert(HandsOutText<const JSON&> && HandsOutItems<const JSON&> && HandsOutMembers<const JSON&> &&
              HandsOutAMember<const JSON&>);
static_assert(!HandsOutText<JSON&&> && !HandsOutItems<JSON&&> && !HandsOutMembers<JSON&&> && !HandsOutAMember<JSON&&>);

template <class Array>
concept HoldsItems = requires(const Array& items) {
  { items.size() } -> same_as<std::size_t>;
  { *items.begin() } -> same_as<const JSON&>;
  { items.end() - items.begin() } -> std::integral;
  { items[std::size_t{}] } -> same_as<const JSON&>;
};
static_assert(HoldsItems<JSON::Array> && std::constructible_from<JSON::Array, std::initializer_list<JSON>>);

template <class Object>
concept HoldsMembers = requires(const Object& members, Object& changing, std::string_view key, JSON value) {
  { members.find(key) } -> same_as<const JSON*>;
  { members.size() } -> same_as<std::size_t>;
  { members.begin()->key() } -> same_as<std::string_view>;
  { members.begin()->value() } -> same_as<const JSON&>;
  { members.end() - members.begin() } -> std::integral;
  changing.set(key, value);
  changing.erase(key);
};
static_assert(HoldsMembers<JSON::Object>);

// Tool, its builders, errors, the server and its transport.

template <class Type>
concept IsATool = requires(const Type& tool, const JSON::Object& arguments) {
  { tool.name() } -> same_as<const std::string&>;
  { tool.description() } -> same_as<const std::string&>;
  { tool.schema() } -> same_as<const JSON&>;
  { tool.run(arguments) } -> same_as<std::string>;
};
static_assert(IsATool<Tool> && std::copyable<Tool>);
static_assert(std::constructible_from<Tool, std::string, std::string, JSON, std::string (*)(const JSON::Object&)>);

static_assert(same_as<decltype(schema({}, {})), JSON>);
static_assert(same_as<decltype(schema({{"id", "Identifier of the script"}}, {"id"})), JSON>);
static_assert(same_as<decltype(requiredString("id", std::declval<const JSON::Object&>())), std::string_view>);
static_assert(same_as<decltype(toolResult("text", true)), JSON>);

static_assert(std::derived_from<RPCError, std::exception>);
static_assert(same_as<decltype(RPCError::parse()), RPCError> &&
              same_as<decltype(RPCError::invalidRequest()), RPCError>);
static_assert(same_as<decltype(RPCError::methodNotFound("method")), RPCError>);
static_assert(same_as<decltype(RPCError::invalidParams("A sentence.")), RPCError>);
static_assert(same_as<decltype(std::declval<const RPCError&>().code()), int>);
static_assert(same_as<decltype(std::declval<const RPCError&>().what()), const char*>);

static_assert(std::copyable<Server> && std::constructible_from<Server, std::string, std::vector<Tool>>);
static_assert(same_as<decltype(std::declval<const Server&>().handle("line")), std::optional<std::string>>);
static_assert(Server::version == std::string_view("2025-06-18"));

static_assert(isNamespace<Transport>);
static_assert(same_as<decltype(Transport::run(std::declval<const Server&>())), void>);

// The script tools.

static_assert(std::copyable<ScriptTools>);
static_assert(std::constructible_from<ScriptTools, std::shared_ptr<quorvel::ScriptLibrary>,
                                      std::shared_ptr<quorvel::VersionStore>>);
static_assert(same_as<decltype(std::declval<const ScriptTools&>().tools(false)), std::vector<Tool>>);

// The user's switches and the clients' configurations.

static_assert(std::constructible_from<Preferences, const UserDefaults*> &&
              !std::is_convertible_v<const UserDefaults*, Preferences>);
static_assert(same_as<decltype(std::declval<const Preferences&>().isEnabled()), bool>);
static_assert(same_as<decltype(std::declval<const Preferences&>().allowsWrites()), bool>);
static_assert(Preferences::bundleID == std::string_view("org.quorvel.Quorvel"));
static_assert(same_as<decltype(Preferences::defaults("domain", std::optional<std::string_view>())),
                      std::shared_ptr<const UserDefaults>>);

static_assert(isNamespace<ClaudeConfig> && ClaudeConfig::serverName == std::string_view("kelvane"));
static_assert(same_as<decltype(ClaudeConfig::adding("command", std::optional<JSON>())), JSON>);
static_assert(same_as<decltype(ClaudeConfig::removing(std::optional<JSON>())), JSON>);
static_assert(same_as<decltype(ClaudeConfig::command(std::optional<JSON>())), std::optional<std::string>>);

static_assert(isNamespace<CodexConfig> && CodexConfig::serverName == std::string_view("kelvane"));
static_assert(same_as<decltype(CodexConfig::adding("command", "text")), std::string>);
static_assert(same_as<decltype(CodexConfig::removing("text")), std::string>);
static_assert(same_as<decltype(CodexConfig::names("command", "text")), bool>);

// What an application provides: abstract classes, and the definitions in the library that the build links.

using quorvel::ScriptItem;
using quorvel::ScriptVersion;

template <class Library>
concept IsALibrary = requires(Library& library, const Library& reading, const ScriptItem& item,
                              const std::filesystem::path& path, std::optional<std::string> folder) {
  { reading.root() } -> same_as<const std::filesystem::path&>;
  { reading.fileExtension() } -> same_as<std::string>;
  { reading.contents(path) } -> same_as<std::vector<ScriptItem>>;
  { reading.read(item) } -> same_as<std::string>;
  { reading.identifier(path) } -> same_as<std::string>;
  { library.write("text", item) } -> same_as<void>;
  { library.create("name", folder) } -> same_as<ScriptItem>;
  { library.createFolder("name", folder) } -> same_as<ScriptItem>;
  { library.rename(item, "name") } -> same_as<ScriptItem>;
};
static_assert(IsALibrary<quorvel::ScriptLibrary> && std::is_abstract_v<quorvel::ScriptLibrary>);

template <class Store>
concept IsAVersionStore = requires(Store& store, const Store& reading, const std::filesystem::path& script) {
  { store.snapshot("text", script, "label") } -> same_as<std::optional<ScriptVersion>>;
  { reading.versions(script) } -> same_as<std::vector<ScriptVersion>>;
};
static_assert(IsAVersionStore<quorvel::VersionStore> && std::is_abstract_v<quorvel::VersionStore>);

static_assert(std::is_abstract_v<UserDefaults>);
static_assert(same_as<decltype(std::declval<const UserDefaults&>().boolForKey("key")), bool>);
static_assert(same_as<decltype(UserDefaults::standard()), std::shared_ptr<const UserDefaults>>);
static_assert(same_as<decltype(UserDefaults::suite("name")), std::shared_ptr<const UserDefaults>>);

static_assert(std::constructible_from<quorvel::Script, std::string>);
static_assert(isNamespace<quorvel::ScriptChapters> && isNamespace<quorvel::ChapterEdits> &&
              isNamespace<quorvel::ScriptHeadings> && isNamespace<quorvel::ControllerStatus> &&
              isNamespace<quorvel::ScriptText>);
static_assert(same_as<decltype(quorvel::ScriptChapters::chapters(std::declval<const quorvel::Script&>())),
                      std::vector<quorvel::ScriptChapter>>);
static_assert(same_as<decltype(std::declval<const quorvel::TextEdit&>().applied("text")), std::string>);
static_assert(same_as<decltype(quorvel::ControllerStatus::clock(0)), std::string>);
static_assert(same_as<decltype(quorvel::ScriptText::appending("added", "existing")), std::string>);
static_assert(same_as<decltype(quorvel::ScriptHeadings::marker), const std::string_view>);

}  // namespace
}  // namespace kelvane
