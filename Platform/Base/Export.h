// Which symbols leave the shared library. All that is not marked stays inside it.
#pragma once

/// Marks classes and functions of public headers: what has code in the library, and what is thrown, cast or
/// asked for its type on both sides. Means nothing to who links the static library.
#define FRX_EXPORT [[gnu::visibility("default")]]
/// Marks the definition of a class that is nested in an exported one, and none of an application's business.
#define FRX_HIDDEN [[gnu::visibility("hidden")]]
