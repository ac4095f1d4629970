// AlarmPoster.h - the camera's side of an HTTP alarm notification: one POST,
// sent from the camera's own address so that the receiver can tell cameras apart.
#pragma once

#include <string>

namespace camsim {

// POSTs `body` to `url` from `fromAddress`. True on a 2xx answer.
bool PostAlarm(const std::string& url, const std::string& fromAddress, const std::string& body, std::string* error);

// The URL without user information, for log lines.
std::string RedactUrl(const std::string& url);

}  // namespace camsim
