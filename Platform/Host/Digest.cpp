#include "Platform/Host/Digest.h"

#include <openssl/evp.h>

#include <memory>

namespace ferrox::digest {
namespace {

struct AlgorithmDeleter {
  void operator()(EVP_MD* algorithm) const { EVP_MD_free(algorithm); }
};

}  // namespace

std::optional<MD5> md5(std::string_view bytes) {
  // A system set to approved algorithms only would refuse without this: nothing here is a secret.
  const std::unique_ptr<EVP_MD, AlgorithmDeleter> algorithm(EVP_MD_fetch(nullptr, "MD5", "-fips"));
  MD5 digest{};
  if (!algorithm ||
      EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, algorithm.get(), nullptr) != 1) {
    return std::nullopt;
  }
  return digest;
}

}  // namespace ferrox::digest
