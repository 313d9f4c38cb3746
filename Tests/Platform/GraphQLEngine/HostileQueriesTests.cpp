#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Platform/Base/Json.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Tests/Support/HostileQueries.h"

namespace ferrox {
namespace {

/// A host with objects as deep as anyone asks.
class EndlessObject : public GraphQLObject {
 public:
  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view name, const FRXDictionary&) const override {
    if (name == "a") return std::int64_t{1};
    if (name == "q") return std::make_shared<EndlessObject>();
    return GraphQLList(3, std::make_shared<EndlessObject>());
  }
};

TEST(HostileQueries, EachIsAnsweredWithAnError) {
  const auto engine = GraphQLEngine::engineWithSchema(test::hostileQuerySchema, {});
  for (const test::HostileQuery& query : test::hostileQueries()) {
    std::string response;
    engine->executeQuery(query.text, EndlessObject(), [&](const std::string& text) { response = text; });
    const auto answer = parseJson(response);
    ASSERT_TRUE(answer) << query.name << ": " << response.substr(0, 200);
    const FRXValue* const errors = answer->member("errors");
    ASSERT_TRUE(errors != nullptr && errors->asArray() != nullptr) << query.name;
    EXPECT_GE(errors->asArray()->size(), 1U) << query.name;
    EXPECT_LE(errors->asArray()->size(), GraphQLLimits().errors) << query.name;
    EXPECT_EQ(answer->member("data"), nullptr) << query.name;
  }
}

}  // namespace
}  // namespace ferrox
