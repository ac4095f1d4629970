#include <windows.h>

#include <bcrypt.h>

#include <algorithm>

#include "protocol/Md5.h"

namespace mdclient {
namespace {

// The algorithm provider is opened once and shared: CNG providers are
// thread-safe, and hash objects are per call.
BCRYPT_ALG_HANDLE Md5Provider() {
  static const BCRYPT_ALG_HANDLE provider = [] {
    BCRYPT_ALG_HANDLE handle = nullptr;
    return BCryptOpenAlgorithmProvider(&handle, BCRYPT_MD5_ALGORITHM, nullptr, 0) >= 0 ? handle : nullptr;
  }();
  return provider;
}

}  // namespace

std::array<uint8_t, 16> Md5(std::string_view data) {
  std::array<uint8_t, 16> digest{};
  BCRYPT_HASH_HANDLE hash = nullptr;
  if (Md5Provider() == nullptr || BCryptCreateHash(Md5Provider(), &hash, nullptr, 0, nullptr, 0, 0) < 0) {
    return digest;
  }
  // CNG takes at most a ULONG per call.
  bool hashed = true;
  for (size_t offset = 0; offset < data.size() && hashed;) {
    const ULONG chunk = static_cast<ULONG>(std::min<size_t>(data.size() - offset, 1u << 30));
    hashed = BCryptHashData(hash, reinterpret_cast<PUCHAR>(const_cast<char*>(data.data() + offset)), chunk, 0) >= 0;
    offset += chunk;
  }
  if (hashed) BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0);
  BCryptDestroyHash(hash);
  return digest;
}

void PrepareMd5() { Md5Provider(); }

}  // namespace mdclient
