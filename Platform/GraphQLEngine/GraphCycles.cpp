#include "Platform/GraphQLEngine/GraphCycles.h"

#include <algorithm>
#include <limits>

namespace ferrox::graphql {
namespace {

/// Tarjan's algorithm, its recursion kept in a vector.
class Search {
 public:
  explicit Search(const Graph& graph)
      : graph_(graph), order_(graph.size(), unseen), lowest_(graph.size()), onCycle_(graph.size()) {}

  std::vector<bool> run() {
    for (std::size_t node = 0; node < graph_.size(); ++node) {
      if (order_[node] == unseen) walkFrom(node);
    }
    return std::move(onCycle_);
  }

 private:
  static constexpr std::size_t unseen = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t finished = unseen - 1;
  struct Step {
    std::size_t node;
    std::size_t nextEdge = 0;
  };

  void walkFrom(std::size_t start) {
    enter(start);
    while (!way_.empty()) {
      auto& [node, nextEdge] = way_.back();
      if (nextEdge == graph_[node].size()) {
        leave();
        continue;
      }
      const std::size_t next = graph_[node][nextEdge++];
      if (order_[next] == unseen) {
        enter(next);
      } else if (order_[next] != finished) {
        lowest_[node] = std::min(lowest_[node], order_[next]);
      }
    }
  }

  void enter(std::size_t node) {
    order_[node] = lowest_[node] = entered_++;
    open_.push_back(node);
    way_.push_back({node});
  }

  void leave() {
    const std::size_t node = way_.back().node;
    way_.pop_back();
    if (!way_.empty()) {
      std::size_t& lowest = lowest_[way_.back().node];
      lowest = std::min(lowest, lowest_[node]);
    }
    if (lowest_[node] == order_[node]) closeComponent(node);
  }

  /// All that was entered since `root` and is still open belongs together.
  void closeComponent(std::size_t root) {
    const auto& edges = graph_[root];
    const bool isCycle = open_.back() != root || std::find(edges.begin(), edges.end(), root) != edges.end();
    for (std::size_t node = unseen; node != root; open_.pop_back()) {
      node = open_.back();
      order_[node] = finished;
      onCycle_[node] = isCycle;
    }
  }

  const Graph& graph_;
  std::vector<std::size_t> order_, lowest_;
  std::vector<bool> onCycle_;
  std::vector<std::size_t> open_;
  std::vector<Step> way_;
  std::size_t entered_ = 0;
};

}  // namespace

std::vector<bool> nodesOnCycles(const Graph& graph) { return Search(graph).run(); }

}  // namespace ferrox::graphql
