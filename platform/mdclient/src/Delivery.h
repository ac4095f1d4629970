// Delivery.h - one session's way to the platform. Packets and messages queue
// here on the I/O threads, which never run platform code; delivery threads
// run the callbacks, one session at a time each, in order. A callback that
// blocks holds its own session and the thread it runs on, nothing else: the
// delivery threads grow in number while callbacks block, so the other sessions
// go on. Each queue is bounded: when its consumer falls behind, packets are
// dropped up to the next key frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "MDClient.h"

namespace mdclient {

class Delivery : public std::enable_shared_from_this<Delivery> {
 public:
  Delivery(int32_t clientId, size_t boundBytes);
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // API side. Both false once closed.
  bool SetMessageCallback(MDC_MsgCallBack callback, void* user);
  bool SetDataCallback(MDC_DataCallBack callback, void* user);
  // The session opens: what is queued is held back until Release.
  void Start();
  // The session is open: held records go out.
  void Release();
  // No callback runs once this returns, and none is running unless the
  // caller is that callback. What is queued is thrown away.
  void Close();
  bool InOwnCallback() const;

  // I/O side: never blocks on a callback. Packets may be dropped; the SDP and
  // messages never are. `resumePoint`: a decoder can start at this packet, so
  // delivery may resume here after a drop. `complete`: with this packet the
  // consumer can make something of what is queued (a whole picture).
  void PushData(int32_t type, const uint8_t* data, size_t size, bool resumePoint, bool complete);
  void PushDescription(const std::string& sdp);
  void PushMessage(int32_t type, const std::string& text);
  // Hands what was pushed since to the delivery threads once it completes
  // something or grows large; called once per read, not per packet.
  void Flush();
  // Packets dropped for a slow consumer so far.
  uint64_t Dropped() const;

  // Delivery thread side: runs the callbacks for what is queued.
  void DeliverQueued();

 private:
  void Append(uint8_t kind, int32_t type, const uint8_t* data, size_t size);
  // Unlocks; hands the session to the delivery threads when `wanted` and it
  // is not with them already. `urgent`: not at the next tick but now.
  void ScheduleAfter(std::unique_lock<std::mutex>& lock, bool wanted, bool urgent);
  void DeliverBatch();

  const int32_t m_clientId;
  const size_t m_boundBytes;

  // Held while a callback runs; recursive so that a callback may close its
  // own session.
  mutable std::recursive_mutex m_gateMutex;
  bool m_closed = false;
  MDC_DataCallBack m_dataCallback = nullptr;
  void* m_dataUser = nullptr;
  MDC_MsgCallBack m_msgCallback = nullptr;
  void* m_msgUser = nullptr;

  mutable std::mutex m_queueMutex;
  std::vector<uint8_t> m_incoming;  // records: kind, type, length, bytes
  std::vector<uint8_t> m_draining;  // the batch a delivery thread is working through
  bool m_started = false;
  bool m_held = true;
  bool m_stop = false;
  bool m_scheduled = false;  // queued for or being served by a delivery thread
  bool m_complete = false;   // something whole is queued since the last hand-over
  bool m_dropping = false;
  bool m_dropLogged = false;
  uint64_t m_dropped = 0;
};

// The delivery threads, started with the I/O engine for the first session
// and stopped with it after the last. Stop joins every thread but the
// caller's own (a callback that destroyed the last session), which leaves by
// itself once its callback returns.
void StartDeliveryThreads();
void StopDeliveryThreads();

}  // namespace mdclient
