// The JSON of a peer's record.
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ferrox::FRXNetService;
  ferrox::FRXError error;
  const auto record = FRXNetService::fromJson(ferrox::fuzz::asText(data, size), &error);
  FUZZ_REQUIRE(record || !error.domain.empty());
  if (!record) return 0;
  (void)ferrox::FRXUtilities::isUWPService(record.get());

  const auto json = record->toJson();
  FUZZ_REQUIRE(json.has_value() == (record->hostName() && record->name()));
  if (!json) return 0;
  const auto copy = FRXNetService::fromJson(*json);
  FUZZ_REQUIRE(copy && copy->isEqual(*record) && copy->hash() == record->hash());
  FUZZ_REQUIRE(copy->serviceId() == record->serviceId() && copy->name() == record->name());
  return 0;
}
