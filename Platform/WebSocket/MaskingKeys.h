// Masking keys for a client's frames (RFC 6455 section 5.3).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace ferrox {

using MaskingKey = std::array<unsigned char, 4>;

/// Keys of the system's random source, drawn in blocks. A key of zeros, which would mask nothing, is passed
/// by. Throws `std::system_error` when the system has no random bytes. Thread: one at a time
class MaskingKeys {
 public:
  MaskingKey next();

 private:
  static constexpr std::size_t blockSize = 1024;
  void refill();

  std::array<unsigned char, blockSize> block_{};
  std::size_t used_ = blockSize;
};

/// Fills `bytes` from the system's random source. Throws `std::system_error` when it has none. Thread: any
void fillWithRandomBytes(unsigned char* bytes, std::size_t count);

}  // namespace ferrox
