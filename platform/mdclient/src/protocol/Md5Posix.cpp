#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "protocol/Md5.h"

namespace mdclient {

std::array<uint8_t, 16> Md5(std::string_view data) {
  std::array<uint8_t, 16> digest{};
  unsigned int length = 0;
  EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_md5(), nullptr);
  return digest;
}

void PrepareMd5() {
  // Starting OpenSSL before the I/O engine is complete registers its exit
  // handler earlier, so it runs after the engine has joined its threads and
  // their OpenSSL state is freed.
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
}

}  // namespace mdclient
