// MDClient.cpp - the C entry points: client ids, argument checks, and the
// hand-off to the session objects.
#include "MDClient.h"

#include <asio/version.hpp>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "IoEngine.h"
#include "RtspSession.h"
#include "SessionSettings.h"
#include "evlog.h"
#include "protocol/RtspUrl.h"

namespace {

constexpr const char* kModule = "mdclient";

int32_t Code(uint32_t error) { return static_cast<int32_t>(error); }

// Client ids are a slot index in the low bits and the slot's generation above
// it, so an id kept after MDC_Destroy never reaches the slot's next session.
class ClientRegistry {
 public:
  static constexpr int kSlotBits = 12;
  static constexpr uint32_t kMaxClients = 1u << kSlotBits;
  static constexpr uint32_t kGenerationMask = (1u << (31 - kSlotBits)) - 1;

  // Never destroyed: sessions left at exit hold sockets of an engine that is
  // not torn down then either (see IoEngine.h).
  static ClientRegistry& Instance() {
    static ClientRegistry* registry = new ClientRegistry;
    return *registry;
  }

  // Reserves an id and stores the session made for it; negative when full.
  template <typename Make>
  int32_t Add(Make make) {
    std::lock_guard<std::mutex> lock(m_mutex);
    uint32_t index;
    if (!m_free.empty()) {
      index = m_free.front();
      m_free.pop_front();
    } else if (m_slots.size() < kMaxClients) {
      index = static_cast<uint32_t>(m_slots.size());
      m_slots.emplace_back();
    } else {
      return -1;
    }
    Slot& slot = m_slots[index];
    int32_t id = static_cast<int32_t>((slot.generation << kSlotBits) | index);
    slot.session = make(id);
    return id;
  }

  std::shared_ptr<mdclient::RtspSession> Find(int32_t id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Slot* slot = SlotOf(id);
    return slot != nullptr ? slot->session : nullptr;
  }

  std::shared_ptr<mdclient::RtspSession> Remove(int32_t id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Slot* slot = SlotOf(id);
    if (slot == nullptr) return nullptr;
    std::shared_ptr<mdclient::RtspSession> session = std::move(slot->session);
    slot->session.reset();
    slot->generation = (slot->generation + 1) & kGenerationMask;
    m_free.push_back(static_cast<uint32_t>(id) & (kMaxClients - 1));  // FIFO: reuse a slot as late as possible
    return session;
  }

 private:
  struct Slot {
    uint32_t generation = 0;
    std::shared_ptr<mdclient::RtspSession> session;
  };

  Slot* SlotOf(int32_t id) {
    if (id < 0) return nullptr;
    uint32_t index = static_cast<uint32_t>(id) & (kMaxClients - 1);
    uint32_t generation = static_cast<uint32_t>(id) >> kSlotBits;
    if (index >= m_slots.size()) return nullptr;
    Slot& slot = m_slots[index];
    if (slot.generation != generation || !slot.session) return nullptr;
    return &slot;
  }

  std::mutex m_mutex;
  std::vector<Slot> m_slots;
  std::deque<uint32_t> m_free;
};

std::shared_ptr<mdclient::RtspSession> FindOrLog(int32_t clientId, const char* operation) {
  std::shared_ptr<mdclient::RtspSession> session = ClientRegistry::Instance().Find(clientId);
  if (!session) evlog_write(EVLOG_ERROR, kModule, "%s: no client with id %d", operation, clientId);
  return session;
}

struct DefaultSettings {
  std::mutex mutex;
  mdclient::SessionSettings settings;
};

DefaultSettings& Defaults() {
  static DefaultSettings defaults;
  return defaults;
}

}  // namespace

namespace mdclient {

SessionSettings DefaultSessionSettings() {
  std::lock_guard<std::mutex> lock(Defaults().mutex);
  return Defaults().settings;
}

void SetDefaultSessionSettings(const SessionSettings& settings) {
  std::lock_guard<std::mutex> lock(Defaults().mutex);
  Defaults().settings = settings;
}

}  // namespace mdclient

extern "C" {

int32_t MDC_Create(const char* url, int32_t /*flags: none defined*/) {
  if (url == nullptr) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_Create: no URL given");
    return Code(MDC_ERR_INVALID_ARG);
  }
  std::string reason;
  std::optional<mdclient::RtspUrl> parsed = mdclient::ParseRtspUrl(url, &reason);
  if (!parsed) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_Create: bad URL %s: %s", mdclient::RedactUrl(url).c_str(), reason.c_str());
    return Code(MDC_ERR_BAD_URL);
  }
  ClientRegistry& registry = ClientRegistry::Instance();
  asio::io_context* context = mdclient::IoEngine::Acquire();
  if (context == nullptr) return Code(MDC_ERR_NO_SESSION);
  const mdclient::SessionSettings settings = mdclient::DefaultSessionSettings();
  int32_t id = registry.Add(
      [&](int32_t newId) { return std::make_shared<mdclient::RtspSession>(newId, *parsed, *context, settings); });
  if (id < 0) {
    mdclient::IoEngine::Release();
    evlog_write(EVLOG_ERROR, kModule, "MDC_Create: %u clients exist already, %s refused", ClientRegistry::kMaxClients,
                parsed->RequestUri().c_str());
    return Code(MDC_ERR_NO_SESSION);
  }
  evlog_write(EVLOG_TRACE, kModule, "client %d created for %s", id, parsed->RequestUri().c_str());
  return id;
}

int32_t MDC_SetMsgCallBack(int32_t clientId, MDC_MsgCallBack callback, void* user) {
  std::shared_ptr<mdclient::RtspSession> session = FindOrLog(clientId, "MDC_SetMsgCallBack");
  return session ? session->SetMessageCallback(callback, user) : Code(MDC_ERR_NO_SESSION);
}

int32_t MDC_SetInfoV1(int32_t clientId, const MDC_PlayInfoV1* info) {
  std::shared_ptr<mdclient::RtspSession> session = FindOrLog(clientId, "MDC_SetInfoV1");
  if (!session) return Code(MDC_ERR_NO_SESSION);
  if (info == nullptr) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_SetInfoV1: client %d: no play information given", clientId);
    return Code(MDC_ERR_INVALID_ARG);
  }
  return session->SetPlayRange(info->startPosition, info->endPosition);
}

int32_t MDC_Open(int32_t clientId, MDC_DataCallBack callback, void* user) {
  std::shared_ptr<mdclient::RtspSession> session = FindOrLog(clientId, "MDC_Open");
  if (!session) return Code(MDC_ERR_NO_SESSION);
  if (callback == nullptr) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_Open: client %d: no data callback given", clientId);
    return Code(MDC_ERR_INVALID_ARG);
  }
  return session->Open(callback, user);
}

int32_t MDC_ChangeStatus(int32_t clientId, const MDC_StatusChange* status) {
  std::shared_ptr<mdclient::RtspSession> session = FindOrLog(clientId, "MDC_ChangeStatus");
  if (!session) return Code(MDC_ERR_NO_SESSION);
  if (status == nullptr) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_ChangeStatus: client %d: no status given", clientId);
    return Code(MDC_ERR_INVALID_ARG);
  }
  int32_t result = session->ChangeStatus(status->kind, status->speed);
  if (result == Code(MDC_ERR_INVALID_ARG)) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_ChangeStatus: client %d: invalid kind %d or speed %f", clientId,
                status->kind, status->speed);
  }
  return result;
}

int32_t MDC_Close(int32_t clientId) {
  std::shared_ptr<mdclient::RtspSession> session = FindOrLog(clientId, "MDC_Close");
  return session ? session->Close() : Code(MDC_ERR_NO_SESSION);
}

int32_t MDC_Destroy(int32_t clientId) {
  std::shared_ptr<mdclient::RtspSession> session = ClientRegistry::Instance().Remove(clientId);
  if (!session) {
    evlog_write(EVLOG_ERROR, kModule, "MDC_Destroy: no client with id %d", clientId);
    return Code(MDC_ERR_NO_SESSION);
  }
  session->Close();
  // The last session takes the engine's threads with it, joined here.
  session.reset();
  mdclient::IoEngine::Release();
  return 0;
}

int32_t MDC_GetVersion(char* buffer, int32_t size) {
  if (buffer == nullptr || size <= 0) return Code(MDC_ERR_INVALID_ARG);
  char text[96];
  std::snprintf(text, sizeof text, "netcam MDClient 1.0.0 (asio %d.%d.%d)", ASIO_VERSION / 100000,
                ASIO_VERSION / 100 % 1000, ASIO_VERSION % 100);
  size_t length = std::strlen(text);
  size_t capacity = static_cast<size_t>(size);
  size_t copied = length < capacity ? length : capacity - 1;
  std::memcpy(buffer, text, copied);
  buffer[copied] = '\0';
  return copied == length ? 0 : Code(MDC_ERR_INVALID_ARG);
}

}  // extern "C"
