// Which nodes of a directed graph lead back to themselves.
#pragma once

#include <cstddef>
#include <vector>

namespace ferrox::graphql {

/// For each node the nodes that it leads to.
using Graph = std::vector<std::vector<std::size_t>>;

/// For each node whether some way leads from it back to it. Takes time in proportion to the graph, and no
/// more stack for a long way. Thread: any
std::vector<bool> nodesOnCycles(const Graph& graph);

}  // namespace ferrox::graphql
