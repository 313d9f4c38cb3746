// Reading and writing of one message of 500 bytes, by the library and by general JSON libraries. Every reader
// ends with the same record: seven texts and numbers of its own, and the payload as the library's tree. Every
// writer begins with that record.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <boost/json.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "Benchmarks/Support/AllocationCount.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"

namespace {

using ferrox::FRXWebsocketMessage;

/// What the other libraries read into.
template <typename Tree>
struct Record {
  std::string id, subject, message, from, serviceSessionId;
  std::uint32_t type = 0;
  std::int64_t timestamp = 0, port = 0;
  Tree userInfo;
};

const std::string& text() {
  static const std::string json =
      R"({"id":"8C0B6C9E-57B4-4E1B-9B3C-3B8F0A1D2E4F","type":0,"subject":"TimelineDidChange","message":"reel 7 of the final cut, second half of the day",)"
      R"("userInfo":{"project":"The Long Take","reel":7,"in":"01:00:10:00","out":"01:02:24:12","locked":false,)"
      R"("rate":23.976,"editors":["Ana","J\u00fcrgen"],"range":{"start":86640,"length":3228}},)"
      R"("timestamp":1709298309123,"from":"0123456789ABCDEF0123456789ABCDEF-MTIZNDU=/EDIT SUITE 3 MACHINE ROOM",)"
      R"("port":16654,"serviceSessionId":"2F7C1D5A-9B1E-4C60-8B0E-6B0F7A9C1E22"})";
  return json;
}

// Readers

FRXWebsocketMessage readFerrox() {
  auto message = FRXWebsocketMessage::fromJson(text());
  if (!message) std::abort();
  return std::move(*message);
}

using BoostRecord = Record<boost::json::value>;

std::string boostText(const boost::json::object& object, const char* key) {
  return std::string(object.at(key).as_string());
}

BoostRecord boostRecord(boost::json::value tree, boost::json::storage_ptr payloadStorage) {
  boost::json::object& object = tree.as_object();
  BoostRecord record;
  record.id = boostText(object, "id");
  record.type = object.at("type").to_number<std::uint32_t>();
  record.subject = boostText(object, "subject");
  record.message = boostText(object, "message");
  record.userInfo = boost::json::value(std::move(object.at("userInfo")), std::move(payloadStorage));
  record.timestamp = object.at("timestamp").to_number<std::int64_t>();
  record.from = boostText(object, "from");
  record.port = object.at("port").to_number<std::int64_t>();
  record.serviceSessionId = boostText(object, "serviceSessionId");
  return record;
}

BoostRecord readBoost() { return boostRecord(boost::json::parse(text()), {}); }

/// The quickest form of that library: a kept parser, its tree in a buffer on the stack; the payload is copied
/// out.
BoostRecord readBoostReused() {
  static boost::json::parser parser;
  std::array<unsigned char, 8192> buffer;
  boost::json::monotonic_resource memory(buffer.data(), buffer.size());
  parser.reset(&memory);
  parser.write(text());
  BoostRecord record = boostRecord(parser.release(), {});
  return record;
}

using NlohmannRecord = Record<nlohmann::json>;

NlohmannRecord readNlohmann() {
  nlohmann::json tree = nlohmann::json::parse(text());
  NlohmannRecord record;
  record.id = std::move(tree["id"].get_ref<std::string&>());
  record.type = tree["type"].get<std::uint32_t>();
  record.subject = std::move(tree["subject"].get_ref<std::string&>());
  record.message = std::move(tree["message"].get_ref<std::string&>());
  record.userInfo = std::move(tree["userInfo"]);
  record.timestamp = tree["timestamp"].get<std::int64_t>();
  record.from = std::move(tree["from"].get_ref<std::string&>());
  record.port = tree["port"].get<std::int64_t>();
  record.serviceSessionId = std::move(tree["serviceSessionId"].get_ref<std::string&>());
  return record;
}

/// Holds the whole tree, because the payload cannot leave its document.
using RapidRecord = Record<rapidjson::Document>;

RapidRecord readRapid() {
  RapidRecord record;
  rapidjson::Document& tree = record.userInfo;
  tree.Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag>(text().data(),
                                                                                         text().size());
  if (tree.HasParseError()) std::abort();
  const auto textOf = [&](const char* key) {
    return std::string(tree[key].GetString(), tree[key].GetStringLength());
  };
  record.id = textOf("id");
  record.type = tree["type"].GetUint();
  record.subject = textOf("subject");
  record.message = textOf("message");
  record.timestamp = tree["timestamp"].GetInt64();
  record.from = textOf("from");
  record.port = tree["port"].GetInt64();
  record.serviceSessionId = textOf("serviceSessionId");
  return record;
}

// Writers

std::string writeBoost(const BoostRecord& record) {
  const boost::json::value tree{{"id", record.id},
                                {"type", record.type},
                                {"subject", record.subject},
                                {"message", record.message},
                                {"userInfo", record.userInfo},
                                {"timestamp", record.timestamp},
                                {"from", record.from},
                                {"port", record.port},
                                {"serviceSessionId", record.serviceSessionId}};
  return boost::json::serialize(tree);
}

std::string writeNlohmann(const NlohmannRecord& record) {
  const nlohmann::json tree{{"id", record.id},
                            {"type", record.type},
                            {"subject", record.subject},
                            {"message", record.message},
                            {"userInfo", record.userInfo},
                            {"timestamp", record.timestamp},
                            {"from", record.from},
                            {"port", record.port},
                            {"serviceSessionId", record.serviceSessionId}};
  return tree.dump();
}

std::string writeRapid(const RapidRecord& record) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  const auto member = [&](const char* key, const std::string& content) {
    writer.Key(key);
    writer.String(content.data(), static_cast<rapidjson::SizeType>(content.size()));
  };
  writer.StartObject();
  member("id", record.id);
  writer.Key("type");
  writer.Uint(record.type);
  member("subject", record.subject);
  member("message", record.message);
  writer.Key("userInfo");
  record.userInfo["userInfo"].Accept(writer);
  writer.Key("timestamp");
  writer.Int64(record.timestamp);
  member("from", record.from);
  writer.Key("port");
  writer.Int64(record.port);
  member("serviceSessionId", record.serviceSessionId);
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

std::string writeFerrox(const FRXWebsocketMessage& message) {
  auto json = message.toJson();
  if (!json) std::abort();
  return std::move(*json);
}

/// All of them mean the same message, or there is nothing to compare.
void checkAgreement() {
  const auto expected = nlohmann::json::parse(text());
  const std::pair<const char*, std::string> written[] = {{"ferrox", writeFerrox(readFerrox())},
                                                         {"boost", writeBoost(readBoost())},
                                                         {"boost, reused", writeBoost(readBoostReused())},
                                                         {"nlohmann", writeNlohmann(readNlohmann())},
                                                         {"rapidjson", writeRapid(readRapid())}};
  for (const auto& [name, json] : written) {
    if (nlohmann::json::parse(json) == expected) continue;
    std::fprintf(stderr, "%s lost something: %s\n", name, json.c_str());
    std::exit(1);
  }
}

template <typename Job>
void measure(benchmark::State& state, const Job& job) {
  const std::uint64_t before = ferrox::bench::allocationCount();
  for (auto _ : state) {
    auto result = job();
    benchmark::DoNotOptimize(result);
  }
  const auto allocations = static_cast<double>(ferrox::bench::allocationCount() - before);
  state.counters["allocations"] = allocations / static_cast<double>(state.iterations());
}

template <typename Job>
void add(const char* name, Job job) {
  benchmark::RegisterBenchmark(name, [job](benchmark::State& state) { measure(state, job); });
}

void addAll() {
  add("read/ferrox", readFerrox);
  add("read/Boost.JSON", readBoost);
  add("read/Boost.JSON, kept parser", readBoostReused);
  add("read/nlohmann", readNlohmann);
  add("read/RapidJSON", readRapid);
  static const FRXWebsocketMessage ours = readFerrox();
  static const BoostRecord boost = readBoost();
  static const NlohmannRecord nlohmann = readNlohmann();
  static const RapidRecord rapid = readRapid();
  add("write/ferrox", [] { return writeFerrox(ours); });
  add("write/Boost.JSON", [] { return writeBoost(boost); });
  add("write/nlohmann", [] { return writeNlohmann(nlohmann); });
  add("write/RapidJSON", [] { return writeRapid(rapid); });
}

}  // namespace

int main(int argc, char** argv) {
  checkAgreement();
  std::fprintf(stderr, "%zu bytes\n", text().size());
  addAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
