#include "benchmarks/Peers.h"

#include <memory>

#include "protocol/JSON.h"

#ifdef KELVANE_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef KELVANE_PEER_RAPIDJSON
#define RAPIDJSON_SSE2
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
/// It checks UTF-8 and rounds every number right, as we do, and is given a text that ends with a NUL: only there does
/// it use vector instructions.
Peer rapidjsonPeer() {
  constexpr unsigned flags = rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;
  return {"rapidjson",
          [](const std::string& text) {
            rapidjson::Document document;
            document.Parse<flags>(text.c_str());
            return !document.HasParseError();
          },
          [](const std::string& text) {
            auto document = std::make_shared<rapidjson::Document>();
            document->Parse<flags>(text.c_str());
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
/// Its values are in memory that is freed as a whole, as its manual advises where values are only read.
struct BoostDocument {
  boost::json::monotonic_resource memory;
  boost::json::value value;

  explicit BoostDocument(const std::string& text) : value(boost::json::parse(text, &memory)) {}
};

Peer boostPeer() {
  return {"boost", [](const std::string& text) { return !BoostDocument(text).value.is_null(); },
          [](const std::string& text) {
            auto document = std::make_shared<BoostDocument>(text);
            return [document] { return boost::json::serialize(document->value).size(); };
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
#ifdef KELVANE_PEER_SIMDJSON
  all.push_back(simdjsonPeer());
#endif
#ifdef KELVANE_PEER_RAPIDJSON
  all.push_back(rapidjsonPeer());
#endif
#ifdef KELVANE_PEER_BOOST
  all.push_back(boostPeer());
#endif
#ifdef KELVANE_PEER_NLOHMANN
  all.push_back(nlohmannPeer());
#endif
  return all;
}

}  // namespace kelvane::benchmarks
