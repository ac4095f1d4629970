// axis_device_event_for_http_mgr.h - the process-wide event centre: an HTTP
// server on the loopback address receives the cameras' alarm notifications
// and routes each, by the sender's address, to the subscribed device object.
// The server thread only copies and posts; one receive queue delivers alarms
// one at a time in arrival order, one response queue sends the replies.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "HttpServer.h"

class CPlgDeviceObjectImplement;

class CEventForHttpMgr {
 public:
  static CEventForHttpMgr& Instance();

  // Reads the port, reserves both queues and starts the server. False leaves
  // the plug-in without alarms but otherwise working.
  bool Init();
  // Stops the server, then both queues: once it returns no alarm is delivered.
  bool UnInit();

  // Enters (subscribe) or removes the device's address. Removing waits for an
  // alarm being delivered to that device, unless called from the delivery itself.
  bool SetSubEventDev(CPlgDeviceObjectImplement* pAxisDevice, bool subscribe);
  CPlgDeviceObjectImplement* GetDevHandle(const std::string& ip);
  // A device being destroyed: drops every entry naming it and waits as above.
  void ForgetDevice(CPlgDeviceObjectImplement* pAxisDevice);

  bool ReadEventRecvPort(uint16_t& port);

  CEventForHttpMgr(const CEventForHttpMgr&) = delete;
  CEventForHttpMgr& operator=(const CEventForHttpMgr&) = delete;

 private:
  CEventForHttpMgr();
  ~CEventForHttpMgr();

  void HttpServerCallback(int32_t link, const Tarn::Net::HttpRequest& request);
  void OnProcessRawEvent(int32_t link, const std::string& ip, const std::string& url, const std::string& body);
  void HttpResponseTask(int32_t link, int32_t statusCode, const std::string& reply, const std::string& url);
  bool PostTask(const char* key, std::function<void()> work);

  // Looks the address up and marks the device as being delivered to, under
  // the table mutex, so that it cannot be destroyed until EndDelivery.
  CPlgDeviceObjectImplement* BeginDelivery(const std::string& ip);
  void EndDelivery();
  // Waits, with the table locked, until no alarm is being delivered to the device.
  void WaitForDelivery(std::unique_lock<std::mutex>& lock, const CPlgDeviceObjectImplement* pAxisDevice);

  std::map<std::string, CPlgDeviceObjectImplement*> m_mapSubDevices;
  std::mutex m_mutex;
  std::string m_strReserved;
  uint16_t m_nListenPort = 27691;
  int32_t m_nServerHandle = 0;
  std::atomic<bool> m_bInit{false};

  // The device whose callback runs now, on the receive queue's thread.
  CPlgDeviceObjectImplement* m_pDelivering = nullptr;
  std::thread::id m_deliveryThread;
  std::condition_variable m_deliveryDone;
};
