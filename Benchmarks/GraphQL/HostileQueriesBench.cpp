// Answers each of the queries that mean to cost much, from its text to the error.
//   ferrox_bench_graphql_hostile ROUNDS    prints each one's milliseconds, as JSON
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Tests/Support/HostileQueries.h"

namespace {

using namespace ferrox;
using Clock = std::chrono::steady_clock;

/// A host with objects as deep as anyone asks.
class EndlessObject final : public GraphQLObject {
 public:
  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view name, const FRXDictionary&) const override {
    if (name == "a") return std::int64_t{1};
    if (name == "q") return std::make_shared<EndlessObject>();
    return GraphQLList(3, std::make_shared<EndlessObject>());
  }
};

double milliseconds(const GraphQLEngine& engine, const std::string& query) {
  const EndlessObject root;
  bool isRefused = false;
  const auto began = Clock::now();
  engine.executeQuery(query, root,
                      [&](const std::string& response) { isRefused = response.starts_with("{\"errors\""); });
  const std::chrono::duration<double, std::milli> took = Clock::now() - began;
  if (!isRefused) std::exit(1);
  return took.count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto engine = GraphQLEngine::engineWithSchema(test::hostileQuerySchema, {});
  const char* separator = "[";
  for (const test::HostileQuery& query : test::hostileQueries()) {
    std::printf(R"(%s{"name": "%s", "bytes": %zu, "milliseconds": )", separator, query.name.c_str(),
                query.text.size());
    separator = ",\n ";
    for (int round = 0; round < std::atoi(argv[1]); ++round) {
      std::printf("%s%.4f", round == 0 ? "[" : ", ", milliseconds(*engine, query.text));
    }
    std::printf("]}");
  }
  std::puts("]");
  return 0;
}
