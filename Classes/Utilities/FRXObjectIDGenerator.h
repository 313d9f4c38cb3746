// Identifiers for objects of the host application, unique without asking anyone.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "Classes/Utilities/FRXObjectIDValuesProvider.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// Makes identifiers that grow with time: 4 bytes of seconds since 1970, 3 of the machine's digest, 2 of the
/// process, 3 of a counter, all big-endian. As text: the base64 (RFC 4648 section 4) of the type prefix, a
/// colon and the 24 lower-case hexadecimal digits of the bytes.
/// Two of one process in one second differ in the counter; they repeat after 16,777,216 in that second.
/// Thread: any; several may make identifiers at once
class FRX_EXPORT FRXObjectIDGenerator {
 public:
  static constexpr std::size_t identifierSize = 12;

  /// With the values of this machine and process.
  FRXObjectIDGenerator();
  /// An empty pointer stands for the default values.
  explicit FRXObjectIDGenerator(std::shared_ptr<FRXObjectIDValuesProvider> valuesProvider);

  /// The process-wide generator, made on first use.
  static FRXObjectIDGenerator& defaultInstance();

  /// An identifier of the current time.
  std::string IDWithTypePrefix(std::string_view prefix) const;
  /// An identifier of the given time: its whole seconds, cut towards zero, the low 32 bits of them.
  std::string IDWithTypePrefix(std::string_view prefix, FRXDate timestamp) const;

  /// The MD5 digest (RFC 1321) of the text's bytes; zeros, with an ERROR, where the system refuses MD5.
  static std::array<unsigned char, 16> getMD5Hash(std::string_view text);

  const std::shared_ptr<FRXObjectIDValuesProvider>& valuesProvider() const { return valuesProvider_; }

 private:
  using Identifier = std::array<unsigned char, identifierSize>;
  static Identifier initPrototype(const FRXObjectIDValuesProvider& values);

  const std::shared_ptr<FRXObjectIDValuesProvider> valuesProvider_;
  /// Machine and process in their places; time and counter are filled into a copy, so that threads never mix
  /// theirs.
  const Identifier prototype_;
};

}  // namespace ferrox
