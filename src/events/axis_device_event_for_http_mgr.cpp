#include "events/axis_device_event_for_http_mgr.h"

#include <cstring>
#include <memory>

#include "ThreadManager.h"
#include "boundary/ExceptionBarrier.h"
#include "events/FileBak.h"
#include "events/event_messages.h"
#include "kor.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr char kRecvThreadKey[] = "axis.event_recv_single_thead";
constexpr char kResponseThreadKey[] = "axis.event_recv_response_single_thead";
constexpr char kListenAddress[] = "127.0.0.1";
constexpr char kConfigDirectory[] = "/../../META_INFO/extdev_axis.d/runtime_script/";
constexpr char kConfigFileName[] = "Setup.xml";
// The runtime finds it as netcam_plugin.so on Linux.
constexpr char kModuleFileName[] = "netcam_plugin.dll";
// Tasks either queue may hold before a flood is refused.
constexpr size_t kMaxPendingTasks = 10000;

// The directory of the loaded module `name`, cut before its last separator
// ("\\" on the platform, "/" here too).
bool GetDllModulePath(const char* name, std::string& directory) {
  char path[256] = {};
  if (KOR_GetModuleFileName(name, path, sizeof path) != KOR_OK) {
    PLG_ERROR("[%s]GetModuleHandle failed, dll-name[%s].[%s(%d)]", name);
    return false;
  }
  directory = path;
  const size_t separator = directory.find_last_of("\\/");
  if (separator != std::string::npos) directory.resize(separator);
  return true;
}

std::string DeviceIp(const CPlgDeviceObjectImplement* device) {
  const DeviceLoginParam& login = device->LoginParam();
  return std::string(login.ip, strnlen(login.ip, sizeof login.ip));
}

}  // namespace

CEventForHttpMgr& CEventForHttpMgr::Instance() {
  static CEventForHttpMgr instance;
  return instance;
}

// The task manager is made first so that it outlives the centre: at unload
// the centre's queues can still be released below.
CEventForHttpMgr::CEventForHttpMgr() { Tarn::Base::CThreadManager::Instance(); }

CEventForHttpMgr::~CEventForHttpMgr() {
  // A host that unloads the plug-in without Fini: the server has already been
  // stopped by its own library (made after us, so gone before us); no queue
  // may run a task on this object once it is gone.
  if (!m_bInit) return;
  for (const char* key : {kRecvThreadKey, kResponseThreadKey})
    Tarn::Base::CThreadManager::Instance().ReleaseThread(key, false);
}

bool CEventForHttpMgr::Init() {
  if (m_bInit) {
    PLG_INFO("[%s]Event centre already initialized.[%s(%d)]");
    return true;
  }
  PLG_INFO("[%s]Event centre init begin.[%s(%d)]");
  if (!ReadEventRecvPort(m_nListenPort)) {
    PLG_INFO("[%s]ReadEventRecvPort failed.[%s(%d)]");
    return false;
  }
  auto& threads = Tarn::Base::CThreadManager::Instance();
  for (const char* key : {kRecvThreadKey, kResponseThreadKey}) {
    if (!threads.GetAvailableThread_V2(key, kMaxPendingTasks)) {
      PLG_ERROR("[%s]GetAvailableThread_V2 failed, key[%s].[%s(%d)]", key);
      return false;
    }
  }
  // Port 0 would listen somewhere no camera is told about.
  if (m_nListenPort == 0 ||
      Tarn::Net::CHttpServer::StartHttpServer(
          m_nServerHandle, kListenAddress, m_nListenPort, [this](int32_t link, const Tarn::Net::HttpRequest& request) {
            netcam::Guarded("CEventForHttpMgr::HttpServerCallback", [&] { HttpServerCallback(link, request); });
          }) != 0) {
    PLG_ERROR("[%s]Start http server failed, listen-port[%d].[%s(%d)]", static_cast<int>(m_nListenPort));
    return false;
  }
  m_bInit = true;
  PLG_INFO("[%s]StartHttpServer success, listen-port[%d], server-handle[%d].[%s(%d)]", static_cast<int>(m_nListenPort),
           m_nServerHandle);
  PLG_INFO("[%s]Event centre init success.[%s(%d)]");
  return true;
}

bool CEventForHttpMgr::UnInit() {
  if (!m_bInit) {
    PLG_INFO("[%s]Event centre no initialized.[%s(%d)]");
    return true;
  }
  m_bInit = false;
  PLG_INFO("[%s]Event centre uninit begin.[%s(%d)]");
  const int32_t stopped = Tarn::Net::CHttpServer::StopServer(m_nServerHandle);
  if (stopped != 0) PLG_ERROR("[%s]StopServer failed, handle[%d].[%s(%d)]", m_nServerHandle);
  m_nServerHandle = 0;
  auto& threads = Tarn::Base::CThreadManager::Instance();
  for (const char* key : {kRecvThreadKey, kResponseThreadKey}) {
    if (!threads.ReleaseThread(key, false)) PLG_ERROR("[%s]ReleaseThread failed, key[%s].[%s(%d)]", key);
  }
  PLG_INFO("[%s]Event centre uninit success.[%s(%d)]");
  return true;
}

bool CEventForHttpMgr::ReadEventRecvPort(uint16_t& port) {
  std::string directory;
  if (!GetDllModulePath(kModuleFileName, directory)) {
    PLG_ERROR("[%s]GetDllModulePath failed,.[%s(%d)]");
    return false;
  }
  const std::string path = directory + kConfigDirectory + kConfigFileName;
  std::string text;
  if (!CFileBak::ReadWholeFile(path, text) || text.empty()) {
    PLG_INFO("[%s]File %s config not exist[%s(%d)]", path.c_str());
    return false;
  }
  if (!ParseEventPort(text, port)) {
    PLG_ERROR("[%s]Xml data invalid, path[%s], data[%s].[%s(%d)]", path.c_str(), text.c_str());
    return false;
  }
  PLG_INFO("[%s]Event recv port[%d], path[%s], data[%s].[%s(%d)]", static_cast<int>(port), path.c_str(), text.c_str());
  return true;
}

bool CEventForHttpMgr::SetSubEventDev(CPlgDeviceObjectImplement* pAxisDevice, bool subscribe) {
  if (pAxisDevice == nullptr) {
    PLG_ERROR("[%s]pAxisDevice is null.[%s(%d)]");
    return false;
  }
  const std::string ip = DeviceIp(pAxisDevice);
  std::unique_lock<std::mutex> lock(m_mutex);
  auto found = m_mapSubDevices.find(ip);
  if (subscribe) {
    if (found != m_mapSubDevices.end()) {
      PLG_ERROR("[%s]The device address already exists, ip[%s], devie-ptr[%p].[%s(%d)]", ip.c_str(),
                static_cast<void*>(found->second));
      m_mapSubDevices.erase(found);
    }
    PLG_INFO("[%s]Subscribe event success, ip[%s], axis-obj[%p].[%s(%d)]", ip.c_str(), static_cast<void*>(pAxisDevice));
    m_mapSubDevices.emplace(ip, pAxisDevice);
    return true;
  }
  if (found == m_mapSubDevices.end()) {
    PLG_ERROR("[%s]Device address does not exist, ip[%s].[%s(%d)]", ip.c_str());
  } else {
    PLG_INFO("[%s]Unsubscribe event success, ip[%s], axis-obj[%p].[%s(%d)]", ip.c_str(),
             static_cast<void*>(pAxisDevice));
    m_mapSubDevices.erase(found);
  }
  WaitForDelivery(lock, pAxisDevice);
  return true;
}

void CEventForHttpMgr::ForgetDevice(CPlgDeviceObjectImplement* pAxisDevice) {
  std::unique_lock<std::mutex> lock(m_mutex);
  std::erase_if(m_mapSubDevices, [pAxisDevice](const auto& entry) { return entry.second == pAxisDevice; });
  WaitForDelivery(lock, pAxisDevice);
}

void CEventForHttpMgr::WaitForDelivery(std::unique_lock<std::mutex>& lock,
                                       const CPlgDeviceObjectImplement* pAxisDevice) {
  // The platform may unsubscribe from inside its own alarm callback.
  if (m_deliveryThread == std::this_thread::get_id()) return;
  m_deliveryDone.wait(lock, [&] { return m_pDelivering != pAxisDevice; });
}

CPlgDeviceObjectImplement* CEventForHttpMgr::GetDevHandle(const std::string& ip) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto found = m_mapSubDevices.find(ip);
  if (found == m_mapSubDevices.end()) {
    PLG_WARN("[%s]Device address does not exist, ip[%s].[%s(%d)]", ip.c_str());
    return nullptr;
  }
  return found->second;
}

CPlgDeviceObjectImplement* CEventForHttpMgr::BeginDelivery(const std::string& ip) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto found = m_mapSubDevices.find(ip);
  if (found == m_mapSubDevices.end()) {
    PLG_WARN("[%s]Device address does not exist, ip[%s].[%s(%d)]", ip.c_str());
    return nullptr;
  }
  m_pDelivering = found->second;
  m_deliveryThread = std::this_thread::get_id();
  return m_pDelivering;
}

void CEventForHttpMgr::EndDelivery() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pDelivering = nullptr;
    m_deliveryThread = std::thread::id();
  }
  m_deliveryDone.notify_all();
}

bool CEventForHttpMgr::PostTask(const char* key, std::function<void()> work) {
  if (!Tarn::Base::CThreadManager::Instance().PostTask(key,
                                                       std::make_unique<Tarn::Base::CTaskCommon>(std::move(work)))) {
    PLG_ERROR("[%s]Tarn::Base::CThreadManager::Instance().PostTask failed. key[%s]\n[%s(%d)]", key);
    return false;
  }
  return true;
}

void CEventForHttpMgr::HttpServerCallback(int32_t link, const Tarn::Net::HttpRequest& request) {
  std::string body(request.pBody != nullptr ? request.pBody : "", request.nBodyLength);
  PLG_TRACE("[%s]Receive axis HTTP event, ip[%s], url[%s], msg[%s].[%s(%d)]", request.strPeerAddress.c_str(),
            request.strUrl.c_str(), body.c_str());
  PostTask(kRecvThreadKey, [this, link, ip = request.strPeerAddress, url = request.strUrl, body = std::move(body)] {
    netcam::Guarded("CEventForHttpMgr::OnProcessRawEvent", [&] { OnProcessRawEvent(link, ip, url, body); });
  });
}

void CEventForHttpMgr::OnProcessRawEvent(int32_t link, const std::string& ip, const std::string& url,
                                         const std::string& /*body*/) {
  EventOutcome outcome = EventOutcome::kUnsupported;
  if (IsMotionAlarmUrl(url)) {
    if (CPlgDeviceObjectImplement* device = BeginDelivery(ip)) {
      KOR_ExpTime now{};
      KOR_ExpTimeFromTimeLocal(&now, KOR_TimeNow());
      PluginAlarmRecord record;
      FillAlarmRecord(record, now);
      {
        // Ends the delivery however the callback leaves, or a device being
        // destroyed would wait for it for ever.
        struct DeliveryEnd {
          CEventForHttpMgr* centre;
          ~DeliveryEnd() { centre->EndDelivery(); }
        } end{this};
        PLG_INFO("[%s]InvokeEvent alarm begin, ip[%s], url[%s].[%s(%d)]", ip.c_str(), url.c_str());
        device->InvokeEvent(PLUGIN_ALARM_EVENT_TYPE, 1, &record, 0);
      }
      PLG_INFO("[%s]InvokeEvent alarm end, ip[%s], url[%s].[%s(%d)]", ip.c_str(), url.c_str());
      outcome = EventOutcome::kDelivered;
    } else {
      outcome = EventOutcome::kNoSubscriber;
      PLG_WARN("[%s]No user subscribes, ip[%s], url[%s].[%s(%d)]", ip.c_str(), url.c_str());
    }
  } else {
    PLG_WARN("[%s]Unsupported alarm, ip[%s], url[%s].[%s(%d)]", ip.c_str(), url.c_str());
  }
  PostTask(kResponseThreadKey, [this, link, reply = FormatEventReply(outcome), url] {
    netcam::Guarded("CEventForHttpMgr::HttpResponseTask", [&] { HttpResponseTask(link, 200, reply, url); });
  });
}

void CEventForHttpMgr::HttpResponseTask(int32_t link, int32_t statusCode, const std::string& reply,
                                        const std::string& url) {
  if (reply.empty()) {
    PLG_ERROR("[%s]send_msg is empty.[%s(%d)]");
    return;
  }
  PLG_TRACE("[%s]send_msg:%s[%s(%d)]", reply.c_str());
  Tarn::Net::HttpResponse response;
  response.nStatusCode = statusCode;
  response.nTimeoutMs = 5000;
  const int32_t result = Tarn::Net::CHttpServer::HttpServerSyncSend(link, response, reply.size(), reply.data());
  if (result != 0) {
    PLG_ERROR("[%s]Network HttpServerSynSend failed, ret[%d], handle[%d], url[%s][%s(%d)]", result, link, url.c_str());
  } else {
    PLG_TRACE("[%s]Network HttpServerSynSend success, ret[%d], handle[%d], url[%s][%s(%d)]", result, link, url.c_str());
  }
}
