#include "Platform/GraphQLEngine/Execution.h"

#include <exception>
#include <optional>
#include <utility>

#include "Platform/Base/Json.h"
#include "Platform/GraphQLEngine/Introspection.h"
#include "Platform/GraphQLEngine/LeafCoercion.h"

namespace ferrox::graphql {
namespace {

/// Writes the answer while it walks the objects. What a failing field had written is taken back.
class Executor {
 public:
  Executor(const Schema& schema, const GraphQLLimits& limits) : schema_(schema), limits_(limits) {}

  ExecutionResult execute(const PlannedSelection& selection, const GraphQLObject& root) {
    const bool succeeded = executeSelection(selection, root, nullptr);
    if (isExhausted_) {
      return {{}, {{"The answer would take more work than this service gives one query", {}, {}}}};
    }
    if (!succeeded) json_ = "null";
    return {std::move(json_), std::move(errors_)};
  }

 private:
  /// Where the answer is being written, from the innermost field or list item outwards.
  struct PathStep {
    const PathStep* parent;
    std::string_view responseKey;
    std::size_t index;

    bool isIndex() const { return responseKey.empty(); }
  };

  /// ExecuteSelectionSet (section 6.3). False when the object has to be null.
  bool executeSelection(const PlannedSelection& selection, const GraphQLObject& object,
                        const PathStep* path) {
    if (selection.failure) return fail(*selection.failure, {}, path);
    json_ += '{';
    const char* opening = "\"";
    for (const PlannedField& field : selection.fields) {
      // A name needs no escapes.
      json_.append(std::exchange(opening, ",\"")).append(field.responseKey).append("\":");
      const PathStep step{path, field.responseKey, 0};
      if (!executeField(field, object, step)) return false;
    }
    json_ += '}';
    return true;
  }

  /// ExecuteField (section 6.4). False when the object around has to be null.
  bool executeField(const PlannedField& field, const GraphQLObject& object, const PathStep& path) {
    if (!takeStep()) return false;
    const std::size_t begin = json_.size();
    const auto value = resolve(field, object, path);
    if (value && completeValue(field.definition->type, field, *value, path)) return true;
    return absorb(field.definition->type, begin);
  }

  /// ResolveFieldValue (section 6.4.2); nothing when it failed.
  std::optional<GraphQLValue> resolve(const PlannedField& field, const GraphQLObject& object,
                                      const PathStep& path) {
    if (field.arguments.error) {
      fail(*field.arguments.error, field.locations, &path);
      return std::nullopt;
    }
    const std::string_view name = field.definition->name;
    if (name == "__typename") return GraphQLValue(std::string(object.typeName()));
    if (name == "__schema") return introspectedSchema(schema_);
    if (name == "__type") return introspectedType(schema_, field.arguments.values);
    try {
      return object.property(name, field.arguments.values);
    } catch (const std::exception& failure) {
      fail({failure.what(), {}, {}}, field.locations, &path);
    } catch (...) {
      fail({"The field could not be resolved", {}, {}}, field.locations, &path);
    }
    return std::nullopt;
  }

  /// CompleteValue (section 6.4.3). False when it failed; then what was written is not to stay.
  bool completeValue(const TypeReference& type, const PlannedField& field, const GraphQLValue& value,
                     const PathStep& path) {
    if (value.isNull()) {
      if (type.isNonNull()) {
        return fail({"The field \"" + field.definition->name + "\" must not be null", {}, {}},
                    field.locations, &path);
      }
      json_ += "null";
      return true;
    }
    const TypeReference& nullable = type.nullable();
    if (nullable.isList()) return completeList(*nullable.of, field, value, path);
    if (nullable.named->isComposite()) {
      const auto* const object = std::get_if<std::shared_ptr<const GraphQLObject>>(&value.storage());
      if (object != nullptr) return executeSelection(field.subfields, **object, &path);
    } else if (appendLeafResult(json_, value, *nullable.named)) {
      return true;
    }
    return fail(
        {"The field \"" + field.definition->name + "\" has a value that is no " + nullable.named->name,
         {},
         {}},
        field.locations, &path);
  }

  bool completeList(const TypeReference& itemType, const PlannedField& field, const GraphQLValue& value,
                    const PathStep& path) {
    const auto* const list = std::get_if<GraphQLList>(&value.storage());
    if (list == nullptr) {
      return fail({"The field \"" + field.definition->name + "\" has a value that is no list", {}, {}},
                  field.locations, &path);
    }
    json_ += '[';
    for (std::size_t index = 0; index < list->size(); ++index) {
      if (!takeStep()) return false;
      if (index > 0) json_ += ',';
      const std::size_t begin = json_.size();
      if (!completeValue(itemType, field, (*list)[index], {&path, {}, index}) && !absorb(itemType, begin)) {
        return false;
      }
    }
    json_ += ']';
    return true;
  }

  /// A failed value becomes null where its type allows that, else what is around it fails (section 6.4.4).
  bool absorb(const TypeReference& type, std::size_t begin) {
    if (isExhausted_ || type.isNonNull()) return false;
    json_.resize(begin);
    json_ += "null";
    return true;
  }

  bool fail(GraphQLError error, const std::vector<Location>& locations, const PathStep* path) {
    if (error.locations.empty()) error.locations = locations;
    for (; path != nullptr; path = path->parent) {
      if (path->isIndex()) {
        error.path.emplace_back(path->index);
      } else {
        error.path.emplace_back(std::string(path->responseKey));
      }
    }
    error.path = {error.path.rbegin(), error.path.rend()};
    if (errors_.size() < limits_.errors) errors_.push_back(std::move(error));
    return false;
  }

  bool takeStep() {
    if (++steps_ <= limits_.steps && json_.size() <= limits_.responseBytes) return true;
    isExhausted_ = true;
    return false;
  }

  const Schema& schema_;
  const GraphQLLimits& limits_;
  std::string json_;
  std::vector<GraphQLError> errors_;
  std::size_t steps_ = 0;
  bool isExhausted_ = false;
};

}  // namespace

ExecutionResult executeQuery(const Schema& schema, const PlannedSelection& selection,
                             const GraphQLObject& root, const GraphQLLimits& limits) {
  return Executor(schema, limits).execute(selection, root);
}

}  // namespace ferrox::graphql
