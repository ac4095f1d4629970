// axis_device_object_implement.h - the per-camera device object behind every
// handle the platform holds, and the one header every area of src/ includes.
// Its operations live in one source file per feature area, grouped by subsystem:
//   session/     construction, opening, identity and the VAPIX requests
//   media/       live stream, delivery of stream blocks, playback
//   recordings/  recording list and search cursor, recording status, month view
//   schedule/    SOAP services, the weekly plan, stream profiles, TransMethod
//   control/     PTZ, time and NTP, the device documents, snapshot
//   events/      the alarm subscription (the event centre itself is not per device)
// Where an area reads or writes a text, the pure function sits in the file
// named in CamelCase beside it (RecordingList, SoapServices, ControlText, ...).
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "MDClient.h"
#include "MuxConvert.h"
#include "kor.h"
#include "netcam_plugin.h"
#include "schedule/StreamProfiles.h"

namespace Tarn::Proto {
class IProto;
}

// Camera identity as the camera reports it.
struct DeviceBasicInfo {
  std::string brand;
  std::string productFullName;
  std::string serialNumber;
  std::string firmwareVersion;
};

// One usable disk of the camera, numbered from 1.
struct DiskEntry {
  uint32_t index = 0;
  int32_t totalSize = 0;  // KB
  int32_t freeSize = 0;   // KB
  int32_t status = 0;     // 0 OK, 5 disconnected, 2 anything else
};

// One recording on the camera's storage.
struct RecordingInfo {
  std::string recordingId;
  std::string startTime;       // camera UTC text
  std::string stopTime;        // camera UTC text
  std::string startTimeLocal;
  std::string stopTimeLocal;
  bool inProgress = false;
};

// One recording span within a day; an end of 23:59 means until midnight.
struct ScheduleSegment {
  uint8_t startHour = 0;
  uint8_t startMinute = 0;
  uint8_t endHour = 0;
  uint8_t endMinute = 0;
};
// Day index 0 ("SU") to 6 ("SA") -> its segments, in the order they were added.
using WeeklySchedule = std::map<int, std::vector<ScheduleSegment>>;

// The camera's action rules, recording action configurations and scheduled
// events as the SOAP services list them (schedule/).
struct ActionRuleRecord {
  int32_t ruleId = 0;
  std::string name;
  bool enabled = false;
  int32_t primaryAction = 0;
  std::vector<std::string> scheduleEventIds;
};
struct ActionConfigRecord {
  int32_t configurationId = 0;
  std::string name;
  int32_t preDuration = 0;   // ms
  int32_t postDuration = 0;  // ms
  std::string streamProfile;
};
struct ScheduledEventRecord {
  std::string eventId;
  std::string name;
  WeeklySchedule schedule;
};

class CPlgDeviceObjectImplement {
 public:
  CPlgDeviceObjectImplement();
  ~CPlgDeviceObjectImplement();
  CPlgDeviceObjectImplement(const CPlgDeviceObjectImplement&) = delete;
  CPlgDeviceObjectImplement& operator=(const CPlgDeviceObjectImplement&) = delete;

  // Session and identity.
  int32_t OpenDevice(const DeviceLoginParam* param);
  int32_t CloseDevice();
  bool GetDeviceInfo(DeviceBasicInfo& out);
  std::string GetDeviceAddress() const;
  bool IsLoggedIn() const { return m_hLoginHandle != -1; }

  // VAPIX requests with the device's credentials handed in by the caller.
  bool SendHttpGetReqWithRsp(std::string& out, const std::string& url, const std::string& user,
                             const std::string& password);
  bool SendHttpPostReqWithRsp(std::string& out, const std::string& url, const std::string& body,
                              const std::string& user, const std::string& password, const std::string& contentType);

  // Configuration commands and the camera's disks.
  int32_t GetConfigParam(uint32_t command, void* outBuffer, uint32_t length, void* extra);
  int32_t SetConfigParam(uint32_t command, const void* inBuffer, uint32_t length, void* extra);
  int32_t GetDevInfoParam(DeviceInfoParam* out);
  int32_t GetDevVersionParam(DeviceVersionParam* out);
  bool GetDeviceDiskList(std::vector<DiskEntry>& disks);
  // Ability and work-status documents (control/status_documents.cpp).
  int32_t GetDevcieAbility(const char* pInBuf, int32_t inLength, char* pOutBuf, int32_t outLength);
  int32_t GetWorkStatus(char* pOutBuffer, int32_t outLength);

  // PTZ (control/ptz_control.cpp).
  int32_t PTZControl(uint32_t type, const void* pInBuffer, uint32_t length, uint32_t extra);
  int32_t GetPTZConfig(uint32_t command, void* pOutBuffer, uint32_t length, uint32_t extra);
  int32_t SetPTZConfig(uint32_t command, const void* pInBuffer, uint32_t length, uint32_t extra);
  int32_t PtzNormalControl(const void* pInBuffer, uint32_t length, uint32_t extra);
  bool GetPTZPosition(float& pan, float& tilt, int32_t& zoom);

  // Device time and NTP (control/device_time.cpp).
  int32_t SetDevTime(const NET_DEV_TIME* time);
  int32_t SetDevTimeNTP(const char* document, uint32_t length);
  int32_t SetNtpCfg(const DeviceNtpConfig* config);
  int32_t GetNtpCfg(DeviceNtpConfig* config);

  // Snapshot (control/snapshot.cpp).
  int32_t CapturePicture(int32_t ChanNum, char* ContrlValue, int32_t bufferSize, uint32_t* lpSizeReturned);
  bool GetResolutions(std::vector<std::string>& resolutions);

  // Live stream (live_stream.cpp) and its delivery (stream_delivery.cpp).
  int32_t StartStream(const PluginStreamRequest* request, PluginStreamDataCallback pfnDataCB, void* pUser);
  int32_t StopStream();
  static bool GetUrlParam(std::string& value, const std::string& url, const std::string& name);
  static void PullDataCallback(int32_t clientId, int32_t dataType, const uint8_t* pData, int32_t dataLen, void* user);
  static void PullMsgCallback(int32_t clientId, int32_t msgType, const char* pszMsg, int32_t msgLen, void* user);
  static bool OpenTransBySDP(CPlgDeviceObjectImplement* pStream, const char* sdp, int32_t sdpLength);
  static void TransDataFun(const MUXC_OutputUnit* pstDataInfo, void* user);
  static void MUXCGlobalTimeFun(const MUXC_GlobalTime* pGlobalTime, void* user);
  // Playback (playback.cpp).
  int32_t StartPlayBack(const PluginPlaybackCondition* condition, PluginStreamDataCallback pfnDataCB, void* pUser,
                        const PluginGlobalTime* startLocal, const PluginGlobalTime* endLocal);
  int32_t StopPlayBack();
  int32_t PauseStream();
  int32_t ResumeStream();
  int32_t SetStreamScale(double fScale);
  static void CheckFileEnd(CPlgDeviceObjectImplement* pStream, const PluginGlobalTime* pGlobalTime);

  // Recordings on the camera (recordings/recording_search.cpp, recordings/month_search.cpp).
  bool GetRecordingList(std::vector<RecordingInfo>& list, const std::string& address, int port,
                        const std::string& startText, const std::string& stopText, const std::string& user,
                        const std::string& password);
  static bool AnalysisRecordingFile(std::vector<RecordingInfo>& list, const std::string& responseText,
                                    const std::string& stopText);
  int32_t FindRecordFiles(const RecordSearchCondition* pstFindRecordPara);
  int32_t FindNextRecordFile(RecordFileInfo* pstRecordFileInfo);
  int32_t CloseFindRecord();
  bool GetRecordingStatus(bool* recording);
  // The response document is created when the caller passes none.
  int32_t SearchRecordByMonth(const std::shared_ptr<Tarn::Proto::IProto>& request,
                              std::shared_ptr<Tarn::Proto::IProto>& response);

  // SOAP action and event services (schedule/soap_services.cpp).
  bool GetActionRules(std::map<int32_t, ActionRuleRecord>& rules);
  bool GetActionConfigurations(std::map<int32_t, ActionConfigRecord>& configurations);
  bool GetScheduledEvents(std::map<std::string, ScheduledEventRecord>& events);
  bool RemoveActionRules(const std::vector<int32_t>& ruleIds);
  bool RemoveActionConfigurations(const std::vector<int32_t>& configurationIds);
  bool RemoveScheduledEvents(const std::vector<std::string>& eventIds);
  bool AddActionRules(int32_t& ruleId, const std::string& name, int32_t primaryAction,
                      const std::vector<std::string>& scheduleEventIds);
  bool AddActionConfigurations(int32_t& configurationId, const std::string& name, int32_t preDuration,
                               int32_t postDuration, const std::string& streamProfile);
  bool AddScheduledEvent(std::string& eventId, const std::string& name, const std::string& calendar);
  // Weekly record plan (schedule/record_schedule.cpp).
  int32_t SetRecordConfig(void* pstDevice, const RecordConfigInfo* pstRecConfigInfo);
  int32_t GetRecordConfig(void* pstDevice, RecordConfigInfo* pstRecConfigInfo);
  bool RemoveRecordSetting();
  bool SetRecordSettingHelper(const std::vector<std::string>& calendars, int32_t preDuration, int32_t postDuration);
  bool GetRecordSetting(std::vector<std::vector<bool>>& marks, int32_t& preDuration, int32_t& postDuration);
  // Stream profiles and the JSON command channel (schedule/stream_profiles.cpp, schedule/trans_method.cpp).
  int32_t TransMethod(const char* request, uint32_t requestLength, char* response, uint32_t* responseLength);
  int32_t GetProfile(const std::shared_ptr<Tarn::Proto::IProto>& request,
                     std::shared_ptr<Tarn::Proto::IProto>& response);
  int32_t SetProfile(const std::shared_ptr<Tarn::Proto::IProto>& request,
                     std::shared_ptr<Tarn::Proto::IProto>& response);
  bool GetProfileConfigByActionConfigurations(std::string& profileName);

  // Named Unsupport answers of the stream table.
  int32_t GetVideoParam();
  int32_t SetVideoParam();
  int32_t StartVoiceTalk(const PluginTalkRequest* request);
  int32_t StopVoiceTalk();

  // Alarm subscription (events/device_events.cpp).
  int32_t SetEventCallBack(PluginAlarmCallback callback, void* user);
  int32_t InvokeEvent(uint32_t type, uint32_t value, const void* record, intptr_t extra);

  const DeviceLoginParam& LoginParam() const { return m_stLoginParam; }

 private:
  // Creates, wires and opens a media client session; on failure nothing is left behind.
  bool OpenMediaSession(const std::string& sessionUrl, const std::string& logUrl);
  // The two halves of it, with room for a play range in between: a client id
  // with the message callback set (-1 on failure), then PLAY.
  int32_t CreateMediaSession(const std::string& sessionUrl, const std::string& logUrl);
  bool PlayMediaSession(int32_t clientId, const std::string& logUrl);
  // Pauses delivery, closes and destroys the session, releases the repackager.
  void CloseMediaSession();
  // A start while a session is still open closes that session first.
  void CloseReplacedSession();
  void ForgetMediaSession();
  void ReleaseTransform();
  void DeliverEndBlock();
  bool ChangeSessionStatus(int32_t kind, double speed);

  std::string Ip() const;
  // PTZ control type 2: the same commands as type 1.
  int32_t PtzExtendedControl(const void* pInBuffer, uint32_t length, uint32_t extra);
  std::string User() const;
  std::string Password() const;

  // 1. Open parameters, copied from the platform.
  DeviceLoginParam m_stLoginParam{};
  // 2-6. Playback span and stream state.
  std::string m_strPlaybackStartUtc;
  std::string m_strPlaybackEndUtc;
  PluginGlobalTime m_stPlaybackStartTime{};
  PluginGlobalTime m_stPlaybackEndTime{};
  std::atomic<bool> m_bPlayback{false};
  // Read by the media threads without the stream lock; 1 = paused.
  std::atomic<int32_t> m_nPaused{0};
  double m_dScale = 1.0;
  // 7-10. Media client session and delivery.
  std::atomic<int32_t> m_nClientId{-1};
  void* m_pStreamUser = nullptr;
  std::string m_strStreamUrl;  // without credentials
  std::atomic<PluginStreamDataCallback> m_pfnStreamDataCB{nullptr};
  void* m_hTransHandle = nullptr;
  // 11. -1 until OpenDevice succeeds, then 1.
  int32_t m_hLoginHandle = -1;
  // 12. PTZ state: the zoom is refreshed from the camera before every command;
  // focus and iris are counted here only.
  int32_t m_nCurrentZoom = 0;
  int32_t m_nCurrentFocus = 0;
  int32_t m_nCurrentIris = 0;
  // 13. Alarm callback; the pair changes on a platform thread and is read on
  // the event centre's receive thread, so it is read and written whole.
  PluginAlarmCallback m_pfnAlarmCB = nullptr;
  void* m_pAlarmUser = nullptr;
  std::mutex m_alarmLock;
  // 14-15. Recording search.
  bool m_bSearchStarted = false;
  uint64_t m_nSearchCursor = 0;
  std::vector<RecordingInfo> m_vecRecordings;
  // 16. Locks: record search; stream (also guards the recording profile name).
  kor::CMutex m_searchLock;
  kor::CMutex m_streamLock;
  // 17. Stream profile that scheduled recording uses.
  std::string m_strRecordProfileName;
  // 18. Held by a schedule write from removal to the end of creation.
  kor::CMutex m_scheduleLock;
};
