// SDL text to its definitions (GraphQL October 2021, section 3).
#pragma once

#include <string_view>

#include "Platform/GraphQLEngine/Lexer.h"
#include "Platform/GraphQLEngine/TypeSystemDocument.h"

namespace ferrox::graphql {

/// Reads a source that stays where it is; decoded strings are added to `texts`. Throws a `Refusal` for what
/// the grammar does not allow, and for what is not supported: interfaces, unions and extensions.
TypeSystemDocument parseTypeSystem(std::string_view source, Lexer::Texts& texts);

}  // namespace ferrox::graphql
