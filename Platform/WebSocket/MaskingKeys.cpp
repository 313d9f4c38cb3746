#include "Platform/WebSocket/MaskingKeys.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace ferrox {

void fillWithRandomBytes(unsigned char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t drawn = ::getrandom(bytes, count, 0);
    if (drawn < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    bytes += drawn;
    count -= static_cast<std::size_t>(drawn);
  }
}

MaskingKey MaskingKeys::next() {
  MaskingKey key{};
  do {
    if (used_ == blockSize) refill();
    std::memcpy(key.data(), block_.data() + used_, key.size());
    used_ += key.size();
  } while (std::all_of(key.begin(), key.end(), [](unsigned char byte) { return byte == 0; }));
  return key;
}

void MaskingKeys::refill() {
  fillWithRandomBytes(block_.data(), block_.size());
  used_ = 0;
}

}  // namespace ferrox
