#include "TestEnvironment.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <stdexcept>

namespace netcam_test {

void SetEnvironment(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value != nullptr ? value : "");
#else
  if (value != nullptr) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
#endif
}

void SetTimeZone(const char* tz) {
  SetEnvironment("TZ", tz);
#ifdef _WIN32
  _tzset();
#else
  tzset();
#endif
}

std::string MakeTempDirectory(const std::string& prefix) {
  std::random_device seed;
  std::mt19937_64 random(seed());
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path candidate = base / (prefix + std::to_string(random()));
    if (std::filesystem::create_directory(candidate)) return candidate.string();
  }
  throw std::runtime_error("no temporary directory could be made under " + base.string());
}

}  // namespace netcam_test
