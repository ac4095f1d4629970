// ClientSink.h - collects what one media-client session delivers, for tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "MDClient.h"

namespace mdclient_test {

struct Sink {
  // Upper bound against hangs only; nothing is asserted about speed.
  static constexpr std::chrono::seconds kPatience{60};

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<int> types;
  std::string sdp;
  std::vector<int> messages;
  std::vector<uint32_t> frames;  // the RTP timestamp of each video picture, in arrival order
  size_t videoBytes = 0;
  // Set by a test once MDC_Close returned: any later callback is counted.
  std::atomic<bool> closeReturned{false};
  std::atomic<int> afterClose{0};

  static void OnData(int32_t, int32_t type, const uint8_t* data, int32_t length, void* user) {
    static_cast<Sink*>(user)->Record(&Sink::types, type, data, length);
  }
  static void OnMessage(int32_t, int32_t type, const char*, int32_t, void* user) {
    static_cast<Sink*>(user)->Record(&Sink::messages, type, nullptr, 0);
  }
  void Record(std::vector<int> Sink::*list, int type, const uint8_t* data, int32_t length) {
    if (closeReturned) ++afterClose;
    std::lock_guard<std::mutex> lock(mutex);
    if (list == &Sink::types && type == MDC_DATA_SDP) sdp.assign(reinterpret_cast<const char*>(data), size_t(length));
    if (list == &Sink::types && type == MDC_DATA_VIDEO) videoBytes += size_t(length);
    if (list == &Sink::types && type == MDC_DATA_VIDEO && length >= 8) {
      const uint32_t timestamp = uint32_t{data[4]} << 24 | uint32_t{data[5]} << 16 | uint32_t{data[6]} << 8 | data[7];
      if (frames.empty() || frames.back() != timestamp) frames.push_back(timestamp);
    }
    (this->*list).push_back(type);
    changed.notify_all();
  }
  bool WaitFor(const std::function<bool()>& condition) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, kPatience, condition);
  }
  bool WaitForPackets(size_t count) {
    return WaitFor([&] { return size_t(std::count(types.begin(), types.end(), MDC_DATA_VIDEO)) >= count; });
  }
  // Any message, or one of `type`.
  bool WaitForMessage(int type = -1) {
    return WaitFor([&] {
      return type < 0 ? !messages.empty() : std::find(messages.begin(), messages.end(), type) != messages.end();
    });
  }
};

// Creates, subscribes and opens; the result of MDC_Open in *openResult.
inline int32_t OpenClient(const std::string& url, Sink& sink, int32_t* openResult,
                          const MDC_PlayInfoV1* info = nullptr) {
  int32_t id = MDC_Create(url.c_str(), 0);
  EXPECT_GE(id, 0);
  EXPECT_EQ(MDC_SetMsgCallBack(id, &Sink::OnMessage, &sink), 0);
  if (info != nullptr) {
    EXPECT_EQ(MDC_SetInfoV1(id, info), 0);
  }
  *openResult = MDC_Open(id, &Sink::OnData, &sink);
  return id;
}

}  // namespace mdclient_test
