// MuxConvert.cpp - the C entry points: argument checks, and deferring a
// Release made from inside a callback until the session's stack has unwound.
#include "MuxConvert.h"

#include <memory>

#include "MuxSession.h"
#include "evlog.h"

namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(MUXC_ERR_INVALID_ARG);

template <typename Operation>
int32_t WithSession(MUXC_HANDLE handle, Operation operation) {
  if (handle == nullptr) return kInvalidArg;
  auto* session = static_cast<muxc::MuxSession*>(handle);
  if (session->releaseRequested) return static_cast<int32_t>(MUXC_ERR_STATE);
  ++session->callDepth;
  const int32_t result = operation(*session);
  if (--session->callDepth == 0 && session->releaseRequested) delete session;
  return result;
}

}  // namespace

extern "C" {

int32_t MUXC_CreateEx(MUXC_HANDLE* handle, int32_t mode, const MUXC_CreateParam* param) {
  if (handle == nullptr || param == nullptr) {
    evlog_write(EVLOG_ERROR, "muxconvert", "create: null %s", handle == nullptr ? "handle pointer" : "parameters");
    return kInvalidArg;
  }
  *handle = nullptr;
  if (mode != MUXC_MODE_DEFAULT) {
    evlog_write(EVLOG_ERROR, "muxconvert", "create: unsupported mode %d", mode);
    return static_cast<int32_t>(MUXC_ERR_UNSUPPORTED);
  }
  std::unique_ptr<muxc::MuxSession> session;
  const int32_t result = muxc::MuxSession::Create(*param, &session);
  if (result == 0) *handle = session.release();
  return result;
}

int32_t MUXC_SetGlobalTime(MUXC_HANDLE handle, const MUXC_GlobalTime* time) {
  if (time == nullptr) return kInvalidArg;
  return WithSession(handle, [&](muxc::MuxSession& s) { return s.SetGlobalTime(*time); });
}

int32_t MUXC_RegisterModifyGlobalTimeCallBack(MUXC_HANDLE handle, MUXC_GlobalTimeCallBack callback, void* user) {
  return WithSession(handle, [&](muxc::MuxSession& s) { return s.RegisterTimeCallback(callback, user); });
}

int32_t MUXC_RegisterOutputDataCallBack(MUXC_HANDLE handle, MUXC_OutputDataCallBack callback, void* user) {
  return WithSession(handle, [&](muxc::MuxSession& s) { return s.RegisterOutputCallback(callback, user); });
}

int32_t MUXC_Start(MUXC_HANDLE handle, int32_t /*reserved0*/, int32_t /*reserved1*/) {
  return WithSession(handle, [](muxc::MuxSession& s) { return s.Start(); });
}

int32_t MUXC_InputData(MUXC_HANDLE handle, int32_t kind, const uint8_t* data, int32_t length) {
  if (handle == nullptr || data == nullptr || length <= 0) return kInvalidArg;
  if (kind != 0) return static_cast<int32_t>(MUXC_ERR_UNSUPPORTED);
  return WithSession(handle, [&](muxc::MuxSession& s) { return s.InputPacket(data, static_cast<size_t>(length)); });
}

int32_t MUXC_Stop(MUXC_HANDLE handle) {
  return WithSession(handle, [](muxc::MuxSession& s) { return s.Stop(); });
}

int32_t MUXC_Release(MUXC_HANDLE handle) {
  if (handle == nullptr) return kInvalidArg;
  auto* session = static_cast<muxc::MuxSession*>(handle);
  if (session->callDepth > 0) {  // called from one of our callbacks
    if (session->releaseRequested) return static_cast<int32_t>(MUXC_ERR_STATE);
    session->Stop();
    session->releaseRequested = true;
    return 0;
  }
  session->Stop();  // logs the session summary; a second Stop is harmless
  delete session;
  return 0;
}

}  // extern "C"
