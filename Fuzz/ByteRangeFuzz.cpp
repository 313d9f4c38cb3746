// The value of a Range header.
#include <algorithm>

#include "Classes/Utilities/FRXUtilities.h"
#include "Fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string value(ferrox::fuzz::asText(data, size));
  const auto range = ferrox::FRXUtilities::readSimpleByteRangeHeader(value);
  const bool hasForm = value.starts_with("bytes=") && std::count(value.begin(), value.end(), '-') == 1;
  FUZZ_REQUIRE(range.isValid == hasForm);
  // So that sums and differences of the offsets stay within 64 bits.
  FUZZ_REQUIRE(range.start <= INT64_MAX);
  FUZZ_REQUIRE(range.end <= INT64_MAX);
  return 0;
}
