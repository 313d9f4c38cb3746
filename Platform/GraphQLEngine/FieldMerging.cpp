#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

/// A field among those that are selected together, and the one whose selection it is part of.
struct Member {
  const Field* field = nullptr;
  const NamedType* parent = nullptr;
  const Member* above = nullptr;
};

/// A selection set whose fields are to be merged with others.
struct Part {
  const SelectionSet* set = nullptr;
  const NamedType* parent = nullptr;
  const Member* above = nullptr;
};

void appendText(std::string& out, std::string_view text) {
  out += std::to_string(text.size());
  out += ':';
  out += text;
}

/// The same text for values that mean the same: the fields of an object have no order.
void appendCanonical(std::string& out, const Value& value) {
  out += static_cast<char>('a' + static_cast<int>(value.kind));
  appendText(out, value.text);
  out += '[';
  for (const Value& item : value.items) appendCanonical(out, item);
  out += ']';
  std::map<std::string_view, const Value*> fields;
  for (const ObjectField& field : value.fields) fields.emplace(field.name, &field.value);
  for (const auto& [name, content] : fields) {
    appendText(out, name);
    appendCanonical(out, *content);
  }
  out += '.';
}

/// FieldsInSetCanMerge (section 5.3.2), but instead of each field with each other it compares all fields of
/// one response key with the first of them, and looks into their selections together. Every field of a set is
/// thus seen once, and sets that were looked at together are not so again.
///
/// Without interfaces and unions, a field's name and its parent tell its type, and fields of different
/// parents meet only in fragments that can never apply: what is left of SameResponseShape holds by itself.
class FieldMerging {
 public:
  explicit FieldMerging(ValidationContext& context) : context_(context) {}

  void checkAll() {
    for (const OperationDefinition& operation : context_.document.operations) {
      const bool isQuery = operation.kind == OperationDefinition::Kind::Query;
      check({{&operation.selectionSet, isQuery ? &context_.schema.queryType() : nullptr, nullptr}});
    }
    for (const FragmentDefinition& fragment : context_.document.fragments) {
      if (entered_.contains(&fragment)) continue;
      check({{&fragment.selectionSet, context_.compositeType(fragment.typeCondition), nullptr}});
    }
    for (const Conflict& conflict : conflicts_) {
      context_.report("Different fields would answer to " + quoted(conflict.responseKey),
                      {conflict.locations.begin(), conflict.locations.end()});
    }
  }

 private:
  struct Conflict {
    std::string_view responseKey;
    std::set<Location> locations;
  };
  using Groups = std::map<std::pair<std::string_view, const NamedType*>, std::vector<Member>>;

  /// The fields of a merged selection set by response key.
  class Collector {
   public:
    Collector(FieldMerging& merging, Groups& groups) : merging_(merging), groups_(groups) {}

    void collect(const Part& part) {
      for (const Selection& selection : part.set->selections) {
        merging_.context_.visit();
        if (const auto* const field = std::get_if<Field>(&selection.node)) {
          groups_[{field->responseKey(), part.parent}].push_back({field, part.parent, part.above});
        } else if (const auto* const inlined = std::get_if<InlineFragment>(&selection.node)) {
          const auto condition = inlined->typeCondition;
          collect({&inlined->selectionSet,
                   condition.empty() ? part.parent : merging_.context_.compositeType(condition), part.above});
        } else {
          collect(std::get<FragmentSpread>(selection.node), part.above);
        }
      }
    }

   private:
    void collect(const FragmentSpread& spread, const Member* above) {
      const FragmentDefinition* const fragment = merging_.context_.fragment(spread.name);
      if (fragment == nullptr || !visited_.insert(fragment).second) return;
      merging_.entered_.insert(fragment);
      collect({&fragment->selectionSet, merging_.context_.compositeType(fragment->typeCondition), above});
    }

    FieldMerging& merging_;
    Groups& groups_;
    std::set<const FragmentDefinition*> visited_;
  };

  void check(const std::vector<Part>& parts) {
    if (!isNew(parts)) return;
    Groups groups;
    Collector collector(*this, groups);
    for (const Part& part : parts) collector.collect(part);
    for (const auto& [key, members] : groups) checkGroup(members);
  }

  void checkGroup(const std::vector<Member>& members) {
    std::vector<Part> merged;
    for (const Member& member : members) {
      if (isSame(members.front(), member)) {
        merged.push_back(partOf(member));
      } else {
        note(members.front(), member);
        check({partOf(member)});
      }
    }
    check(merged);
  }

  Part partOf(const Member& member) const {
    const auto* const definition =
        member.parent == nullptr ? nullptr : context_.schema.field(*member.parent, member.field->name);
    const NamedType* const type = definition == nullptr ? nullptr : &definition->type.innermost();
    return {&member.field->selectionSet, type != nullptr && type->isComposite() ? type : nullptr, &member};
  }

  bool isNew(const std::vector<Part>& parts) {
    std::vector<const SelectionSet*> sets;
    for (const Part& part : parts) {
      if (!part.set->empty()) sets.push_back(part.set);
    }
    std::sort(sets.begin(), sets.end());
    return !sets.empty() && checked_.insert(std::move(sets)).second;
  }

  bool isSame(const Member& first, const Member& other) {
    return first.field == other.field ||
           (first.field->name == other.field->name && argumentsOf(*first.field) == argumentsOf(*other.field));
  }

  const std::string& argumentsOf(const Field& field) {
    const auto [known, isNew] = arguments_.try_emplace(&field);
    if (!isNew) return known->second;
    std::multimap<std::string_view, const Value*> sorted;
    for (const Argument& argument : field.arguments) sorted.emplace(argument.name, &argument.value);
    for (const auto& [name, value] : sorted) {
      appendText(known->second, name);
      appendCanonical(known->second, *value);
    }
    return known->second;
  }

  /// One error for two fields, however many of the fields inside them conflict.
  void note(const Member& first, const Member& other) {
    const Member* one = &first;
    const Member* two = &other;
    std::set<Location> locations{one->field->location, two->field->location};
    while (one->above != two->above) {
      one = one->above;
      two = two->above;
      locations.insert({one->field->location, two->field->location});
    }
    const auto [known, isNew] = conflictOf_.try_emplace({one->field, two->field}, conflicts_.size());
    if (isNew) conflicts_.push_back({first.field->responseKey(), {}});
    conflicts_[known->second].locations.merge(locations);
  }

  ValidationContext& context_;
  std::set<std::vector<const SelectionSet*>> checked_;
  std::set<const FragmentDefinition*> entered_;
  std::map<const Field*, std::string> arguments_;
  std::vector<Conflict> conflicts_;
  std::map<std::pair<const Field*, const Field*>, std::size_t> conflictOf_;
};

}  // namespace

void checkFieldMerging(ValidationContext& context) { FieldMerging(context).checkAll(); }

}  // namespace ferrox::graphql
