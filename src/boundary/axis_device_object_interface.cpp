// The exported entry points: the discovery record and its function tables,
// process start and stop, and the thin layer that checks each handle and
// forwards to the device object. Operations this camera family does not offer
// answer "not supported" without touching the object and without logging.
// Every entry point that runs any code does so inside netcam::Guarded: the
// platform never sees an exception, only the entry point's failure result.
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include "MDClient.h"
#include "ThreadManager.h"
#include "boundary/DeviceObjectError.h"
#include "boundary/ExceptionBarrier.h"
#include "events/axis_device_event_for_http_mgr.h"
#include "kor.h"
#include "netcam_plugin.h"
#include "session/PluginLog.h"
#include "session/TimeConversions.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr char kPluginVersion[] = "1.0.0.0";

CPlgDeviceObjectImplement* Device(PluginDeviceHandle handle) { return static_cast<CPlgDeviceObjectImplement*>(handle); }

// Stored for the platform, never called: lines go to the platform's logger.
PluginLogCallback g_pfnLogCallback = nullptr;

// The shape of most entry points: a missing handle answers `noHandle`,
// otherwise the device object's operation answers; anything thrown is -1.
template <typename Operation>
int32_t Forward(const char* entry, PluginDeviceHandle handle, int32_t noHandle, Operation&& operation) {
  return netcam::Guarded(entry, NETCAM_FAIL,
                         [&]() -> int32_t { return handle == nullptr ? noHandle : operation(*Device(handle)); });
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------
// Lifecycle
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_Init(void* /*reserved*/) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [] {
    PLG_INFO("[%s]DeviceObject_Init begin.[%s(%d)]");
    if (KOR_InitEx() != 0) {
      PLG_ERROR("[%s]KOR_InitEx failed, err[%d][%s(%d)]", KOR_GetSystemLastError());
      return NETCAM_FAIL;
    }
    if (!Tarn::Base::CThreadManager::Instance().Init_V2()) {
      PLG_ERROR("[%s]ThreadManager init failed.[%s(%d)]");
      return NETCAM_FAIL;
    }
    char version[128] = {};
    MDC_GetVersion(version, sizeof version);
    PLG_INFO("[%s]MDC_Version:%s.[%s(%d)]", version);
    // Without alarms the plug-in still works.
    if (!CEventForHttpMgr::Instance().Init()) PLG_INFO("[%s]Event mgr init failed![%s(%d)]");
    PLG_INFO("[%s]DeviceObject_Init success.[%s(%d)]");
    return NETCAM_OK;
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_Fini(void) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [] {
    PLG_INFO("[%s]DeviceObject_Fini begin.[%s(%d)]");
    if (!CEventForHttpMgr::Instance().UnInit()) PLG_ERROR("[%s]Event mgr unInit failed.![%s(%d)]");
    Tarn::Base::CThreadManager::Instance().UnInit();
    KOR_FiniEx();
    PLG_INFO("[%s]DeviceObject_Fini success.[%s(%d)]");
    return NETCAM_OK;
  });
}

NETCAM_API PluginDeviceHandle NETCAM_CALL DeviceObject_CreateInstance(void) {
  return netcam::Guarded(__func__, PluginDeviceHandle{nullptr},
                         []() -> PluginDeviceHandle { return new (std::nothrow) CPlgDeviceObjectImplement(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_DestroyInstance(PluginDeviceHandle handle) {
  return netcam::Guarded(__func__, NETCAM_OK, [handle] {
    delete Device(handle);
    return NETCAM_OK;
  });
}

NETCAM_API void NETCAM_CALL DeviceObject_SetLogCB(PluginLogCallback callback) {
  netcam::Guarded(__func__, [callback] {
    PLG_INFO("[%s]DeviceObject_SetLogCB called.[%s(%d)]");
    g_pfnLogCallback = callback;
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetLastError(void) {
  return netcam::Guarded(__func__, 0,
                         [] { return static_cast<int32_t>(CDeviceObjectError::Instance()->TakeLastError()); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetLastErrorEx(char* buffer, int32_t size) {
  return netcam::Guarded(__func__, 0, [&]() -> int32_t {
    char local[256] = {};
    if (buffer == nullptr || size <= 0) return 0;
    const int32_t code = CDeviceObjectError::Instance()->GetLastErrorJson(local, sizeof local);
    KOR_Strncpy_s(buffer, static_cast<size_t>(size), local, static_cast<size_t>(size) - 1);
    return code;
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetPluginAbility(PluginAbility* ability) {
  for (int32_t& flag : ability->flags) flag = 1;
  for (int32_t& value : ability->array0) value = 1;
  for (int32_t& value : ability->array1) value = 1;
  return NETCAM_OK;
}

// ---------------------------------------------------------------------------
// Device session
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_OpenDevice(PluginDeviceHandle handle, const DeviceLoginParam* param) {
  return Forward(__func__, handle, NETCAM_FAIL,
                 [&](auto& device) { return param == nullptr ? NETCAM_FAIL : device.OpenDevice(param); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseDevice(PluginDeviceHandle handle) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.CloseDevice(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetDeviceAbility(PluginDeviceHandle handle, const char* inBuf,
                                                             int32_t inLength, char* outBuf, int32_t outLength) {
  return Forward(__func__, handle, NETCAM_FAIL,
                 [&](auto& device) { return device.GetDevcieAbility(inBuf, inLength, outBuf, outLength); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_RebootDevice(PluginDeviceHandle handle) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetLocalIP(PluginDeviceHandle handle, const char* /*ip*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SendData(PluginDeviceHandle handle, const void* /*data*/,
                                                     int32_t /*length*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

// ---------------------------------------------------------------------------
// Live stream
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartStream(PluginDeviceHandle handle, const PluginStreamRequest* request,
                                                        PluginStreamDataCallback callback, void* user) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) {
    return request == nullptr ? NETCAM_FAIL : device.StartStream(request, callback, user);
  });
}

NETCAM_API void NETCAM_CALL DeviceObject_StopStream(PluginDeviceHandle handle) {
  netcam::Guarded(__func__, [handle] {
    if (handle != nullptr) Device(handle)->StopStream();
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_ForceIFrame(PluginDeviceHandle handle, int32_t /*channel*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_OK;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetVideoParam(PluginDeviceHandle handle, int32_t /*channel*/,
                                                          void* /*param*/) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.GetVideoParam(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetVideoParam(PluginDeviceHandle handle, int32_t /*channel*/,
                                                          const void* /*param*/) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.SetVideoParam(); });
}

// One function serves both extended video-parameter slots.
static int32_t NETCAM_CALL VideoParamExNotSupported(PluginDeviceHandle /*handle*/, int32_t /*channel*/,
                                                    void* /*param*/) {
  return NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetVideoParamEx(PluginDeviceHandle handle, int32_t channel, void* param) {
  return VideoParamExNotSupported(handle, channel, param);
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetVideoParamEx(PluginDeviceHandle handle, int32_t channel, void* param) {
  return VideoParamExNotSupported(handle, channel, param);
}

// ---------------------------------------------------------------------------
// Recordings and playback
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetRecordConfig(PluginDeviceHandle handle, RecordConfigInfo* info) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.GetRecordConfig(handle, info); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetRecordConfig(PluginDeviceHandle handle, const RecordConfigInfo* info) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.SetRecordConfig(handle, info); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_FindRecordFiles(PluginDeviceHandle handle,
                                                            const RecordSearchCondition* condition) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.FindRecordFiles(condition); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_FindNextRecordFile(PluginDeviceHandle handle, RecordFileInfo* file) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.FindNextRecordFile(file); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseFindRecord(PluginDeviceHandle handle) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.CloseFindRecord(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBack(PluginDeviceHandle handle,
                                                          const PluginPlaybackCondition* condition,
                                                          PluginStreamDataCallback callback, void* user) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) {
    return condition == nullptr ? NETCAM_FAIL : device.StartPlayBack(condition, callback, user, nullptr, nullptr);
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBackEx(PluginDeviceHandle handle,
                                                            const PluginPlaybackConditionEx* condition,
                                                            PluginStreamDataCallback callback, void* user) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [&]() -> int32_t {
    if (handle == nullptr || condition == nullptr || condition->request == nullptr || condition->start == nullptr ||
        condition->end == nullptr) {
      PLG_ERROR("[%s]Input param invalid.[%s(%d)]");
      return NETCAM_FAIL;
    }
    // Local copy of the basic request: the fields the platform defines, the rest zero.
    PluginStreamRequest request{};
    request.reserved0 = condition->request->reserved0;
    request.reserved1 = condition->request->reserved1;
    request.streamType = condition->request->streamType;
    request.port = condition->request->port;
    request.channel = condition->request->channel;
    request.reserved2 = condition->request->reserved2;
    request.address = condition->request->address;
    request.user = condition->request->user;
    request.password = condition->request->password;
    request.params = condition->request->params;
    request.reserved3 = condition->request->reserved3;
    request.reserved4 = condition->request->reserved4;

    // A span whose times cannot be read is refused (the conversion logged
    // why), rather than played from year 0.
    PluginTime utcStart{};
    PluginTime utcEnd{};
    if (!ConvertUTCTime(&utcStart, condition->start) || !ConvertUTCTime(&utcEnd, condition->end)) return NETCAM_FAIL;
    PluginGlobalTime localStart{};
    PluginGlobalTime localEnd{};
    ConvertTime(&localStart, condition->start);
    ConvertTime(&localEnd, condition->end);

    const PluginPlaybackCondition forwarded{&request,          &utcStart,         &utcEnd,
                                            condition->value0, condition->value1, condition->value2};
    return Device(handle)->StartPlayBack(&forwarded, callback, user, &localStart, &localEnd);
  });
}

NETCAM_API void NETCAM_CALL DeviceObject_StopPlayBack(PluginDeviceHandle handle) {
  netcam::Guarded(__func__, [handle] {
    if (handle != nullptr) Device(handle)->StopPlayBack();
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_PauseStream(PluginDeviceHandle handle) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.PauseStream(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_ResumeStream(PluginDeviceHandle handle) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.ResumeStream(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetStreamScale(PluginDeviceHandle handle, double scale) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.SetStreamScale(scale); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SeekStreamByRelTime(PluginDeviceHandle handle, int32_t /*seconds*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SeekStreamByAbsTime(PluginDeviceHandle handle, const PluginTime* /*time*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBackByReverse(PluginDeviceHandle /*handle*/,
                                                                   const PluginPlaybackCondition* /*condition*/,
                                                                   PluginStreamDataCallback /*callback*/,
                                                                   void* /*user*/) {
  return NETCAM_NOT_SUPPORTED;
}

NETCAM_API void NETCAM_CALL DeviceObject_StopPlayBackByReverse(PluginDeviceHandle /*handle*/) {}

// ---------------------------------------------------------------------------
// Talk
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartVoice(PluginDeviceHandle handle, const PluginTalkRequest* request,
                                                       PluginStreamDataCallback /*callback*/, void* /*user*/) {
  return Forward(__func__, handle, NETCAM_FAIL,
                 [&](auto& device) { return request == nullptr ? NETCAM_FAIL : device.StartVoiceTalk(request); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StopVoice(PluginDeviceHandle handle) {
  return Forward(__func__, handle, NETCAM_FAIL, [&](auto& device) { return device.StopVoiceTalk(); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SendVoiceData(PluginDeviceHandle handle, const void* /*data*/,
                                                          int32_t /*length*/) {
  return handle == nullptr ? NETCAM_FAIL : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartVoiceEx(PluginDeviceHandle handle, const PluginTalkRequest* request,
                                                         PluginStreamDataCallback /*callback*/, void* /*user*/) {
  (void)handle;
  (void)request;
  return NETCAM_FAIL;  // the extended talk path is refused outright
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_StopVoiceEx(PluginDeviceHandle /*handle*/) { return NETCAM_FAIL; }

NETCAM_API int32_t NETCAM_CALL DeviceObject_SendVoiceDataEx(PluginDeviceHandle /*handle*/, const void* /*data*/,
                                                            int32_t /*length*/) {
  return NETCAM_FAIL;
}

// ---------------------------------------------------------------------------
// Parameters, PTZ, control, status, logs, commands, NTP
// ---------------------------------------------------------------------------

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetConfigParam(PluginDeviceHandle handle, uint32_t command, void* outBuffer,
                                                           uint32_t length, void* extra) {
  return Forward(__func__, handle, NETCAM_FAIL,
                 [&](auto& device) { return device.GetConfigParam(command, outBuffer, length, extra); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetConfigParam(PluginDeviceHandle handle, uint32_t command,
                                                           const void* inBuffer, uint32_t length, void* extra) {
  return Forward(__func__, handle, 0,
                 [&](auto& device) { return device.SetConfigParam(command, inBuffer, length, extra); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_PTZControl(PluginDeviceHandle handle, uint32_t type, const void* inBuffer,
                                                       uint32_t length, uint32_t extra) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.PTZControl(type, inBuffer, length, extra); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetPTZConfig(PluginDeviceHandle handle, uint32_t command, void* outBuffer,
                                                         uint32_t length, uint32_t extra) {
  return Forward(__func__, handle, 0,
                 [&](auto& device) { return device.GetPTZConfig(command, outBuffer, length, extra); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetPTZConfig(PluginDeviceHandle handle, uint32_t command,
                                                         const void* inBuffer, uint32_t length, uint32_t extra) {
  return Forward(__func__, handle, 0,
                 [&](auto& device) { return device.SetPTZConfig(command, inBuffer, length, extra); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetEventCallBack(PluginDeviceHandle handle, PluginAlarmCallback callback,
                                                             void* user) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.SetEventCallBack(callback, user); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetAlarmOut(PluginDeviceHandle /*handle*/, int32_t /*output*/,
                                                        int32_t /*state*/) {
  return NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetAlarmOut(PluginDeviceHandle /*handle*/, int32_t /*output*/,
                                                        int32_t* /*state*/) {
  return NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_CapturePicture(PluginDeviceHandle handle, int32_t chanNum,
                                                           int32_t /*pictureType*/, char* contrlValue,
                                                           int32_t bufferSize, uint32_t* lpSizeReturned) {
  return Forward(__func__, handle, 0,
                 [&](auto& device) { return device.CapturePicture(chanNum, contrlValue, bufferSize, lpSizeReturned); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetWorkStatus(PluginDeviceHandle handle, char* outBuffer,
                                                          int32_t outLength) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.GetWorkStatus(outBuffer, outLength); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_FindDeviceLog(PluginDeviceHandle handle, const void* /*condition*/) {
  return handle == nullptr ? 0 : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_FindNextDeviceLog(PluginDeviceHandle handle, void* /*entry*/) {
  return handle == nullptr ? 0 : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseFindDeviceLog(PluginDeviceHandle handle) {
  return handle == nullptr ? 0 : NETCAM_NOT_SUPPORTED;
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_TransMethod(PluginDeviceHandle handle, const char* request,
                                                        uint32_t requestLength, char* response,
                                                        uint32_t* responseLength) {
  return Forward(__func__, handle, 0,
                 [&](auto& device) { return device.TransMethod(request, requestLength, response, responseLength); });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_SetNtpCfg(PluginDeviceHandle handle, const DeviceNtpConfig* config) {
  return Forward(__func__, handle, 0, [&](auto& device) {
    // The whole record and never more: the platform's record is 44 bytes.
    // No record is no request: a zeroed one would turn the camera's NTP client off.
    if (config == nullptr) {
      PLG_ERROR("[%s]Input param is null.[%s(%d)]");
      return NETCAM_FAIL;
    }
    DeviceNtpConfig local{};
    std::memcpy(&local, config, sizeof local);
    return device.SetNtpCfg(&local);
  });
}

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetNtpCfg(PluginDeviceHandle handle, DeviceNtpConfig* config) {
  return Forward(__func__, handle, 0, [&](auto& device) { return device.GetNtpCfg(config); });
}

}  // extern "C"

// ---------------------------------------------------------------------------
// Discovery
// ---------------------------------------------------------------------------

static int32_t NETCAM_CALL DeviceObject_InitEnvParams(void* /*params*/) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [] {
    PLG_INFO("[%s]DeviceObject_InitEnvParams called.[%s(%d)]");
    return NETCAM_OK;
  });
}

namespace {

const PluginCommonTable kCommonTable = {
    DeviceObject_SetLogCB,   DeviceObject_InitEnvParams, DeviceObject_GetLastError,     DeviceObject_GetPluginAbility,
    DeviceObject_OpenDevice, DeviceObject_CloseDevice,   DeviceObject_GetDeviceAbility, DeviceObject_RebootDevice,
    DeviceObject_SetLocalIP, DeviceObject_SendData,      DeviceObject_GetLastErrorEx,
};
const PluginStreamTable kStreamTable = {
    DeviceObject_StartStream,   DeviceObject_StopStream,      DeviceObject_GetVideoParam,
    DeviceObject_SetVideoParam, DeviceObject_GetVideoParamEx, DeviceObject_SetVideoParamEx,
};
const PluginRecordTable kRecordTable = {
    DeviceObject_GetRecordConfig,     DeviceObject_SetRecordConfig,        DeviceObject_FindRecordFiles,
    DeviceObject_FindNextRecordFile,  DeviceObject_CloseFindRecord,        DeviceObject_StartPlayBack,
    DeviceObject_StartPlayBackEx,     DeviceObject_StopPlayBack,           DeviceObject_PauseStream,
    DeviceObject_ResumeStream,        DeviceObject_SetStreamScale,         DeviceObject_SeekStreamByRelTime,
    DeviceObject_SeekStreamByAbsTime, DeviceObject_StartPlayBackByReverse, DeviceObject_StopPlayBackByReverse,
};
const PluginTalkTable kTalkTable = {DeviceObject_StartVoice, DeviceObject_StopVoice, DeviceObject_SendVoiceData};
const PluginTalkExTable kTalkExTable = {DeviceObject_StartVoiceEx, DeviceObject_StopVoiceEx,
                                        DeviceObject_SendVoiceDataEx};
const PluginParamsTable kParamsTable = {DeviceObject_GetConfigParam, DeviceObject_SetConfigParam};
const PluginPtzTable kPtzTable = {DeviceObject_PTZControl, DeviceObject_GetPTZConfig, DeviceObject_SetPTZConfig};
const PluginControlTable kControlTable = {DeviceObject_SetEventCallBack, DeviceObject_SetAlarmOut,
                                          DeviceObject_GetAlarmOut, DeviceObject_CapturePicture};
const PluginStatusTable kStatusTable = {DeviceObject_GetWorkStatus};
const PluginLogTable kLogTable = {DeviceObject_FindDeviceLog, DeviceObject_FindNextDeviceLog,
                                  DeviceObject_CloseFindDeviceLog};
const PluginTransMethodTable kTransMethodTable = {DeviceObject_TransMethod};
const PluginNtpTable kNtpTable = {DeviceObject_SetNtpCfg, DeviceObject_GetNtpCfg};

// Advertised keys; "talk_ex", "status", "log", "transmethod" and "ntp" are
// answered without being listed.
const char* const kInterfaceKeys[] = {"common", "stream", "record", "talk", "params", "ptz", "control", nullptr};

struct InterfaceMap {
  kor::CMutex mutex;
  std::map<std::string, const void*> tables;
};

InterfaceMap& ZPLUGIN_InterfaceMap() {
  static InterfaceMap map;  // lives until the module is unloaded
  return map;
}

}  // namespace

static int32_t NETCAM_CALL ZPLUGIN_Init(void) {
  DeviceObject_Init(nullptr);
  return netcam::Guarded(__func__, NETCAM_FAIL, [] {
    InterfaceMap& map = ZPLUGIN_InterfaceMap();
    kor::CGuard guard(map.mutex);
    map.tables.emplace("common", &kCommonTable);
    map.tables.emplace("stream", &kStreamTable);
    map.tables.emplace("record", &kRecordTable);
    map.tables.emplace("talk", &kTalkTable);
    map.tables.emplace("talk_ex", &kTalkExTable);
    map.tables.emplace("params", &kParamsTable);
    map.tables.emplace("ptz", &kPtzTable);
    map.tables.emplace("control", &kControlTable);
    map.tables.emplace("status", &kStatusTable);
    map.tables.emplace("log", &kLogTable);
    map.tables.emplace("transmethod", &kTransMethodTable);
    map.tables.emplace("ntp", &kNtpTable);
    return NETCAM_OK;
  });
}

static int32_t NETCAM_CALL ZPLUGIN_Fini(void) {
  DeviceObject_Fini();
  return NETCAM_OK;
}

static int32_t NETCAM_CALL ZPLUGIN_CreateInstance(PluginDeviceHandle* out) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [out] {
    if (out == nullptr) {
      PLG_ERROR("[%s]param instance should not be NULL[%s(%d)]");
      return NETCAM_FAIL;
    }
    *out = nullptr;
    auto* device = new (std::nothrow) CPlgDeviceObjectImplement();
    if (device == nullptr) {
      PLG_ERROR(
          "[%s]QelPlugin DeviceObject_CreateInstance: new windows system internal memory fail, plalse check system "
          "memory![%s(%d)]");
      return NETCAM_FAIL;
    }
    *out = device;
    return NETCAM_OK;
  });
}

static int32_t NETCAM_CALL ZPLUGIN_QueryInterface(void* /*instance*/, const char* key, const void** table) {
  return netcam::Guarded(__func__, NETCAM_FAIL, [key, table] {
    if (table == nullptr) {
      PLG_ERROR("[%s]param interface should not be NULL[%s(%d)]");
      return NETCAM_FAIL;
    }
    *table = nullptr;
    if (key == nullptr) {
      PLG_ERROR("[%s]param ikey should not be NULL[%s(%d)]");
      return NETCAM_FAIL;
    }
    InterfaceMap& map = ZPLUGIN_InterfaceMap();
    kor::CGuard guard(map.mutex);
    auto found = map.tables.find(key);
    if (found == map.tables.end()) {
      PLG_ERROR("[%s]qeldevlayer_interface fail[%s(%d)]");
      return NETCAM_FAIL;
    }
    *table = found->second;
    PLG_ERROR("[%s]get qeldevlayer_interface scucssful[%s(%d)]");
    return NETCAM_OK;
  });
}

static const char* const* NETCAM_CALL ZPLUGIN_GetInterfaceKeys(void) { return kInterfaceKeys; }

static const char* NETCAM_CALL ZPLUGIN_GetVersion(void) { return kPluginVersion; }

extern "C" NETCAM_API const ZPLUGIN_Interface* NETCAM_CALL ZPLUGIN_GetPluginInterface(void) {
  static const ZPLUGIN_Interface kInterface = {
      ZPLUGIN_Init,           ZPLUGIN_Fini,
      ZPLUGIN_CreateInstance, DeviceObject_DestroyInstance,
      ZPLUGIN_QueryInterface, ZPLUGIN_GetInterfaceKeys,
      ZPLUGIN_GetVersion,
  };
  return &kInterface;
}
