#include "Platform/HTTP/Server/HTTPDataResponse.h"

#include <algorithm>

namespace ferrox {

std::string HTTPDataResponse::readDataOfLength(std::size_t length) {
  if (offset_ >= data_.size()) return {};
  const auto start = static_cast<std::size_t>(offset_);
  std::string piece = data_.substr(start, std::min(length, data_.size() - start));
  offset_ += piece.size();
  return piece;
}

}  // namespace ferrox
