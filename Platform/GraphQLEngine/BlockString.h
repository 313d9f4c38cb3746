// What a block string means (GraphQL October 2021, section 2.9.4).
#pragma once

#include <string>
#include <string_view>

namespace ferrox::graphql {

/// `raw` is what stands between the quotes, with \""" already replaced. Takes away the indentation that all
/// lines but the first have in common, and the blank lines at both ends. Thread: any
std::string blockStringValue(std::string_view raw);

}  // namespace ferrox::graphql
