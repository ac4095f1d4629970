// TestEnvironment.h - the process environment as tests change it, on Linux and
// on Windows.
#pragma once

#include <string>

namespace netcam_test {

// Sets (or with nullptr removes) an environment variable of this process.
void SetEnvironment(const char* name, const char* value);

// Gives this process the POSIX time zone `tz` ("CST-8", "EST5EDT") and has the
// C runtime read it again.
void SetTimeZone(const char* tz);

// A new, empty directory under the system's temporary directory.
std::string MakeTempDirectory(const std::string& prefix);

}  // namespace netcam_test
