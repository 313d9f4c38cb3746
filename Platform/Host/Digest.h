// Digests that formats of the system ask for.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace ferrox::digest {

using MD5 = std::array<unsigned char, 16>;

/// MD5 (RFC 1321): to spread names evenly, never to protect anything. Nothing where the cryptographic library
/// of the system refuses to compute it. Thread: any
std::optional<MD5> md5(std::string_view bytes);

}  // namespace ferrox::digest
