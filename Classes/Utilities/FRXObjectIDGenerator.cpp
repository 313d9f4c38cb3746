#include "Classes/Utilities/FRXObjectIDGenerator.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

#include "Platform/Host/Digest.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

constexpr std::size_t machineAt = 4, machineSize = 3, processAt = 7, counterAt = 9;

void writeBigEndian(unsigned char* to, std::uint32_t value, std::size_t size) {
  for (std::size_t i = size; i > 0; --i, value >>= 8) to[i - 1] = static_cast<unsigned char>(value & 0xFF);
}

template <typename Bytes>
void appendHexadecimal(std::string& to, const Bytes& bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const unsigned char byte : bytes) to.append({digits[byte >> 4], digits[byte & 15]});
}

}  // namespace

FRXObjectIDGenerator::FRXObjectIDGenerator() : FRXObjectIDGenerator(nullptr) {}

FRXObjectIDGenerator::FRXObjectIDGenerator(std::shared_ptr<FRXObjectIDValuesProvider> valuesProvider)
    : valuesProvider_(valuesProvider ? std::move(valuesProvider)
                                     : std::make_shared<FRXObjectIDValuesProvider>()),
      prototype_(initPrototype(*valuesProvider_)) {}

FRXObjectIDGenerator& FRXObjectIDGenerator::defaultInstance() {
  static auto& instance = *new FRXObjectIDGenerator;
  return instance;
}

FRXObjectIDGenerator::Identifier FRXObjectIDGenerator::initPrototype(
    const FRXObjectIDValuesProvider& values) {
  Identifier prototype{};
  const auto digest = getMD5Hash(values.machineID());
  std::copy_n(digest.begin(), machineSize, prototype.begin() + machineAt);
  writeBigEndian(prototype.data() + processAt, values.processID(), counterAt - processAt);
  return prototype;
}

std::string FRXObjectIDGenerator::IDWithTypePrefix(std::string_view prefix) const {
  return IDWithTypePrefix(prefix, std::chrono::system_clock::now());
}

std::string FRXObjectIDGenerator::IDWithTypePrefix(std::string_view prefix, FRXDate timestamp) const {
  Identifier identifier = prototype_;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timestamp.time_since_epoch()).count();
  writeBigEndian(identifier.data(), static_cast<std::uint32_t>(seconds), machineAt);
  writeBigEndian(identifier.data() + counterAt, valuesProvider_->counter(), identifierSize - counterAt);
  std::string text(prefix);
  text += ':';
  appendHexadecimal(text, identifier);
  return text::base64Encoded(text);
}

std::array<unsigned char, 16> FRXObjectIDGenerator::getMD5Hash(std::string_view text) {
  if (const auto digest = digest::md5(text)) return *digest;
  FRX_LOG_ERROR("The system refuses to compute MD5: object identifiers do not tell machines apart");
  return {};
}

}  // namespace ferrox
