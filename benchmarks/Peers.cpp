#include "benchmarks/Peers.h"

#include <memory>

#include "protocol/JSON.h"

#ifdef KELVANE_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef KELVANE_PEER_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef KELVANE_PEER_BOOST
#include <boost/json.hpp>
#endif
#ifdef KELVANE_PEER_SIMDJSON
#include <simdjson.h>
#endif

namespace kelvane::benchmarks {
namespace {

Peer kelvanePeer() {
  return {
      "kelvane", [](const std::string& text) { return JSON::decoded(text).has_value(); },
      [](const std::string& text) { return [value = JSON::decoded(text).value()] { return value.encoded().size(); }; }};
}

#ifdef KELVANE_PEER_RAPIDJSON
/// `flags` 0 neither checks UTF-8 nor rounds every number right; `rapidjsonStrict` does both, as we do.
constexpr unsigned rapidjsonStrict = rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;

template <unsigned flags>
Peer rapidjsonPeer(const char* name) {
  return {name,
          [](const std::string& text) {
            rapidjson::Document document;
            document.Parse<flags>(text.data(), text.size());
            return !document.HasParseError();
          },
          [](const std::string& text) {
            auto document = std::make_shared<rapidjson::Document>();
            document->Parse<flags>(text.data(), text.size());
            return [document] {
              rapidjson::StringBuffer buffer;
              rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
              document->Accept(writer);
              return buffer.GetSize();
            };
          }};
}
#endif

#ifdef KELVANE_PEER_NLOHMANN
Peer nlohmannPeer() {
  return {
      "nlohmann", [](const std::string& text) { return !nlohmann::json::parse(text, nullptr, false).is_discarded(); },
      [](const std::string& text) { return [value = nlohmann::json::parse(text)] { return value.dump().size(); }; }};
}
#endif

#ifdef KELVANE_PEER_BOOST
Peer boostPeer() {
  return {"boost",
          [](const std::string& text) {
            boost::json::error_code error;
            const boost::json::value value = boost::json::parse(text, error);
            return !error;
          },
          [](const std::string& text) {
            return [value = boost::json::parse(text)] { return boost::json::serialize(value).size(); };
          }};
}
#endif

#ifdef KELVANE_PEER_SIMDJSON
/// Its tree belongs to the parser and is read-only; a new parser for each text is what owning a tree costs there.
Peer simdjsonPeer() {
  return {"simdjson",
          [](const std::string& text) {
            simdjson::dom::parser parser;
            return parser.parse(text).error() == simdjson::SUCCESS;
          },
          [](const std::string& text) {
            auto parser = std::make_shared<simdjson::dom::parser>();
            const simdjson::dom::element element = parser->parse(text);
            return [parser, element] { return simdjson::minify(element).size(); };
          }};
}
#endif

}  // namespace

std::vector<Peer> peers() {
  std::vector<Peer> all = {kelvanePeer()};
#ifdef KELVANE_PEER_RAPIDJSON
  all.push_back(rapidjsonPeer<rapidjsonStrict>("rapidjson"));
  all.push_back(rapidjsonPeer<0>("rapidjson-lax"));
#endif
#ifdef KELVANE_PEER_BOOST
  all.push_back(boostPeer());
#endif
#ifdef KELVANE_PEER_NLOHMANN
  all.push_back(nlohmannPeer());
#endif
#ifdef KELVANE_PEER_SIMDJSON
  all.push_back(simdjsonPeer());
#endif
  return all;
}

}  // namespace kelvane::benchmarks
