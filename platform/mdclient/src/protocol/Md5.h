// Md5.h - MD5 for Digest authentication, from the system's own cryptography:
// OpenSSL's libcrypto on Linux (Md5Posix.cpp), CNG's bcrypt on Windows
// (Md5Windows.cpp).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace mdclient {

std::array<uint8_t, 16> Md5(std::string_view data);

// Readies the hash for use from the I/O threads; call before starting them.
void PrepareMd5();

}  // namespace mdclient
