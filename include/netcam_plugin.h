/*
 * netcam_plugin.h - the boundary between the video-management platform and the
 * camera plug-in: entry points, the discovery record, and every record that
 * crosses in either direction.
 *
 * All records are little-endian with the exact sizes and offsets the platform
 * uses; each one is checked below with static assertions, so a change that
 * moves a field fails the build instead of corrupting the platform's memory.
 */
#ifndef NETCAM_PLUGIN_H
#define NETCAM_PLUGIN_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define NETCAM_API __declspec(dllexport)
#define NETCAM_CALL __cdecl
#else
#define NETCAM_API __attribute__((visibility("default")))
#define NETCAM_CALL
#endif

#ifdef __cplusplus
#define NETCAM_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
extern "C" {
#else
#define NETCAM_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* ------------------------------------------------------------------------ */
/* Return codes and constants                                               */
/* ------------------------------------------------------------------------ */

#define NETCAM_OK 0
#define NETCAM_FAIL (-1)
#define NETCAM_NOT_SUPPORTED (-2)

/* Record cursor results. */
#define NETCAM_FIND_FILE_WRITTEN 1000
#define NETCAM_FIND_NO_MORE_FILES 1003

/* Stream block types handed to the stream data callback. */
#define PLUGIN_STREAM_HEAD 1
#define PLUGIN_STREAM_DATA 2
#define PLUGIN_STREAM_INFO 10
#define PLUGIN_STREAM_END 100

/* Constant fields of every stream block. */
#define PLUGIN_STREAM_FORMAT_PS 96

/* Alarm delivered to the alarm callback. */
#define PLUGIN_ALARM_EVENT_TYPE 10000u
#define PLUGIN_ALARM_KIND_MOTION 131331 /* 0x00020103 */

/* Configuration commands of DeviceObject_GetConfigParam/SetConfigParam. */
#define PLUGIN_CFG_GET_DEVICE_INFO 4
#define PLUGIN_CFG_GET_VERSION 7
#define PLUGIN_CFG_SET_TIME 23
#define PLUGIN_CFG_SET_TIME_NTP 24

/* Ability command understood by DeviceObject_GetDeviceAbility. */
#define PLUGIN_ABILITY_VIDEO_PIC 14

typedef void* PluginDeviceHandle;

/* ------------------------------------------------------------------------ */
/* Records                                                                  */
/* ------------------------------------------------------------------------ */

#pragma pack(push, 1)
/* Open parameters of DeviceObject_OpenDevice, copied verbatim: 146 bytes. */
typedef struct DeviceLoginParam {
  char ip[16];        /* device address text, NUL-terminated */
  uint16_t port;      /* HTTP port */
  char user[64];      /* user name, NUL-terminated */
  char password[64];  /* password, NUL-terminated */
} DeviceLoginParam;
#pragma pack(pop)
NETCAM_STATIC_ASSERT(sizeof(DeviceLoginParam) == 146, "DeviceLoginParam size");
NETCAM_STATIC_ASSERT(offsetof(DeviceLoginParam, port) == 16, "DeviceLoginParam.port");
NETCAM_STATIC_ASSERT(offsetof(DeviceLoginParam, user) == 18, "DeviceLoginParam.user");
NETCAM_STATIC_ASSERT(offsetof(DeviceLoginParam, password) == 82, "DeviceLoginParam.password");

/* Six-word time used by the time-setting command: year, month, day, hour,
 * minute, second. */
typedef struct NET_DEV_TIME {
  uint32_t year;
  uint32_t month;
  uint32_t day;
  uint32_t hour;
  uint32_t minute;
  uint32_t second;
} NET_DEV_TIME;
NETCAM_STATIC_ASSERT(sizeof(NET_DEV_TIME) == 24, "NET_DEV_TIME size");

/* The platform's 96-byte time record of search conditions and file records;
 * only the six leading fields carry meaning here. */
typedef struct PluginTime {
  int32_t year;
  int32_t month;
  int32_t day;
  int32_t hour;
  int32_t minute;
  int32_t second;
  uint8_t reserved[72];
} PluginTime;
NETCAM_STATIC_ASSERT(sizeof(PluginTime) == 96, "PluginTime size");

/* Zoned time of the extended playback call: 40 bytes. */
typedef struct PluginZonedTime {
  int32_t year;
  int32_t month;
  int32_t day;
  int32_t hour;
  int32_t minute;
  int32_t second;
  int32_t reserved0;  /* not read */
  int32_t reserved1;  /* not read */
  int32_t zoneHours;  /* negative: west of UTC */
  int32_t zoneMinutes;
} PluginZonedTime;
NETCAM_STATIC_ASSERT(sizeof(PluginZonedTime) == 40, "PluginZonedTime size");
NETCAM_STATIC_ASSERT(offsetof(PluginZonedTime, zoneHours) == 32, "PluginZonedTime.zoneHours");

/* Stream time of the repackager and the playback start/end members:
 * eight 32-bit fields, 32 bytes. dwReserved 1 means "live: use wall clock". */
typedef struct PluginGlobalTime {
  int32_t year;
  int32_t month;
  int32_t day;
  int32_t hour;
  int32_t minute;
  int32_t second;
  int32_t millisecond;
  int32_t dwReserved;
} PluginGlobalTime;
NETCAM_STATIC_ASSERT(sizeof(PluginGlobalTime) == 32, "PluginGlobalTime size");

/* Basic stream / playback / talk request: 72 bytes. */
typedef struct PluginStreamRequest {
  int64_t reserved0;
  int64_t reserved1;
  int32_t streamType;
  int32_t port;        /* camera HTTP port */
  int32_t channel;     /* counting from 0 */
  int32_t reserved2;
  const char* address; /* camera address text */
  const char* user;
  const char* password;
  const char* params;  /* URL query form, e.g. "videoencoding=h265&..." */
  int32_t reserved3;
  int32_t reserved4;
} PluginStreamRequest;
NETCAM_STATIC_ASSERT(sizeof(PluginStreamRequest) == 72, "PluginStreamRequest size");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamRequest, streamType) == 16, "PluginStreamRequest.streamType");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamRequest, address) == 32, "PluginStreamRequest.address");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamRequest, params) == 56, "PluginStreamRequest.params");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamRequest, reserved3) == 64, "PluginStreamRequest.reserved3");

typedef PluginStreamRequest PluginTalkRequest;

/* Playback condition: request, UTC start, UTC end, three further values. */
typedef struct PluginPlaybackCondition {
  const PluginStreamRequest* request;
  const PluginTime* utcStart;
  const PluginTime* utcEnd;
  int64_t value0;
  int64_t value1;
  int64_t value2;
} PluginPlaybackCondition;
NETCAM_STATIC_ASSERT(sizeof(PluginPlaybackCondition) == 48, "PluginPlaybackCondition size");

/* Extended playback condition: request and zoned local start/end. */
typedef struct PluginPlaybackConditionEx {
  const PluginStreamRequest* request;
  const PluginZonedTime* start;
  const PluginZonedTime* end;
  int64_t value0;
  int64_t value1;
  int64_t value2;
} PluginPlaybackConditionEx;
NETCAM_STATIC_ASSERT(sizeof(PluginPlaybackConditionEx) == 48, "PluginPlaybackConditionEx size");

/* One block handed to the stream data callback: 24 bytes. */
typedef struct PluginStreamBlock {
  const uint8_t* data;
  uint32_t length;
  int32_t format;   /* always 96 */
  int32_t field1;   /* always 1 */
  int32_t field2;   /* always 0 */
} PluginStreamBlock;
NETCAM_STATIC_ASSERT(sizeof(PluginStreamBlock) == 24, "PluginStreamBlock size");

/* Stream description sent as PLUGIN_STREAM_INFO: 1612 bytes. */
typedef struct PluginStreamInfo {
  char mediaKind[32];         /* "video" */
  uint8_t header[256];        /* stream header bytes */
  uint32_t headerLength;
  int32_t payloadType;        /* 96 */
  int32_t clockRate;          /* 90000 */
  char encodingName[32];      /* "MP4V-ES" */
  uint8_t reserved0[32];
  char formatParameters[256];
  uint8_t reserved1[984];
  int32_t field1604;          /* 1 */
  int32_t field1608;          /* 0 */
} PluginStreamInfo;
NETCAM_STATIC_ASSERT(sizeof(PluginStreamInfo) == 1612, "PluginStreamInfo size");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, header) == 32, "PluginStreamInfo.header");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, headerLength) == 288, "PluginStreamInfo.headerLength");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, payloadType) == 292, "PluginStreamInfo.payloadType");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, clockRate) == 296, "PluginStreamInfo.clockRate");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, encodingName) == 300, "PluginStreamInfo.encodingName");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, formatParameters) == 364, "PluginStreamInfo.formatParameters");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, reserved1) == 620, "PluginStreamInfo.reserved1");
NETCAM_STATIC_ASSERT(offsetof(PluginStreamInfo, field1604) == 1604, "PluginStreamInfo.field1604");

/* Recording search condition: start at 12, end at 108 (UTC). */
typedef struct RecordSearchCondition {
  int32_t channel;
  int32_t recordType;
  int32_t reserved;
  PluginTime start;
  PluginTime end;
} RecordSearchCondition;
NETCAM_STATIC_ASSERT(offsetof(RecordSearchCondition, start) == 12, "RecordSearchCondition.start");
NETCAM_STATIC_ASSERT(offsetof(RecordSearchCondition, end) == 108, "RecordSearchCondition.end");
NETCAM_STATIC_ASSERT(sizeof(RecordSearchCondition) == 204, "RecordSearchCondition size");

/* One file of a recording search, written by DeviceObject_FindNextRecordFile. */
typedef struct RecordFileInfo {
  int32_t channel;
  char fileName[256];       /* recording id */
  uint8_t reserved0[256];
  int32_t field516;         /* 0 */
  int32_t field520;
  int32_t field524;         /* 0 */
  PluginTime start;         /* UTC */
  PluginTime end;           /* UTC */
  uint8_t reserved1[268];
  char flag;                /* '1' */
  uint8_t reserved2[3];
} RecordFileInfo;
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, fileName) == 4, "RecordFileInfo.fileName");
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, field516) == 516, "RecordFileInfo.field516");
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, field524) == 524, "RecordFileInfo.field524");
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, start) == 528, "RecordFileInfo.start");
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, end) == 624, "RecordFileInfo.end");
NETCAM_STATIC_ASSERT(offsetof(RecordFileInfo, flag) == 988, "RecordFileInfo.flag");
NETCAM_STATIC_ASSERT(sizeof(RecordFileInfo) == 992, "RecordFileInfo size");

/* Weekly record plan: seven 80-byte day entries, 7x48 half-hour marks. */
typedef struct RecordDayEntry {
  uint32_t allDay;     /* 1 = record the whole day */
  char allDayType;     /* '1' when allDay is 1 */
  uint8_t reserved[75];
} RecordDayEntry;
NETCAM_STATIC_ASSERT(sizeof(RecordDayEntry) == 80, "RecordDayEntry size");

typedef struct RecordConfigInfo {
  uint32_t enabled;
  RecordDayEntry days[7];
  char halfHours[7][48];   /* '0' or '1'; slot 0 is 00:00-00:30 */
  uint32_t postRecordTime;
  uint32_t preRecordCode;
} RecordConfigInfo;
NETCAM_STATIC_ASSERT(offsetof(RecordConfigInfo, days) == 4, "RecordConfigInfo.days");
NETCAM_STATIC_ASSERT(offsetof(RecordConfigInfo, halfHours) == 564, "RecordConfigInfo.halfHours");
NETCAM_STATIC_ASSERT(offsetof(RecordConfigInfo, postRecordTime) == 900, "RecordConfigInfo.postRecordTime");
NETCAM_STATIC_ASSERT(offsetof(RecordConfigInfo, preRecordCode) == 904, "RecordConfigInfo.preRecordCode");
NETCAM_STATIC_ASSERT(sizeof(RecordConfigInfo) == 908, "RecordConfigInfo size");

/* NTP settings exchanged with the platform: 44 bytes. */
typedef struct DeviceNtpConfig {
  uint8_t enabled;
  char server[32];     /* not terminated when it fills all 32 bytes */
  uint8_t padding[3];
  int32_t port;
  int32_t interval;
} DeviceNtpConfig;
NETCAM_STATIC_ASSERT(sizeof(DeviceNtpConfig) == 44, "DeviceNtpConfig size");
NETCAM_STATIC_ASSERT(offsetof(DeviceNtpConfig, server) == 1, "DeviceNtpConfig.server");
NETCAM_STATIC_ASSERT(offsetof(DeviceNtpConfig, port) == 36, "DeviceNtpConfig.port");
NETCAM_STATIC_ASSERT(offsetof(DeviceNtpConfig, interval) == 40, "DeviceNtpConfig.interval");

/* PTZ input: five 32-bit words. */
typedef struct PtzControlInput {
  int32_t leading;   /* not read */
  uint32_t command;
  int32_t action;    /* 0 = start, other = stop */
  int32_t speed;
  int32_t presetNo;
} PtzControlInput;
NETCAM_STATIC_ASSERT(sizeof(PtzControlInput) == 20, "PtzControlInput size");

/* Device information record of configuration command 4: 93,696 bytes. */
#pragma pack(push, 2)
typedef struct DeviceChannelEntry {
  char name[288];        /* "Chan_01" */
  uint16_t channelNo;    /* at +288 */
  uint16_t field290;     /* 1 */
  uint8_t reserved[72];
} DeviceChannelEntry;

typedef struct DeviceInfoParam {
  char serialNumber[128];
  char ip[302];              /* at 128 */
  uint16_t field430;         /* 0 */
  uint16_t diskCount;        /* at 432 */
  uint16_t field434;         /* 1 */
  uint16_t field436;
  uint16_t field438;         /* 1 */
  DeviceChannelEntry channels[256];  /* at 440 */
  uint8_t reserved[72];
} DeviceInfoParam;
#pragma pack(pop)
NETCAM_STATIC_ASSERT(sizeof(DeviceChannelEntry) == 364, "DeviceChannelEntry size");
NETCAM_STATIC_ASSERT(offsetof(DeviceChannelEntry, channelNo) == 288, "DeviceChannelEntry.channelNo");
NETCAM_STATIC_ASSERT(offsetof(DeviceChannelEntry, field290) == 290, "DeviceChannelEntry.field290");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, ip) == 128, "DeviceInfoParam.ip");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, field430) == 430, "DeviceInfoParam.field430");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, diskCount) == 432, "DeviceInfoParam.diskCount");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, field434) == 434, "DeviceInfoParam.field434");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, field438) == 438, "DeviceInfoParam.field438");
NETCAM_STATIC_ASSERT(offsetof(DeviceInfoParam, channels) == 440, "DeviceInfoParam.channels");
NETCAM_STATIC_ASSERT(sizeof(DeviceInfoParam) == 93696, "DeviceInfoParam size");

/* Version record of configuration command 7. */
typedef struct DeviceVersionParam {
  char version[128];
} DeviceVersionParam;
NETCAM_STATIC_ASSERT(sizeof(DeviceVersionParam) == 128, "DeviceVersionParam size");

/* Alarm record handed to the alarm callback: 1080 bytes. */
typedef struct PluginAlarmRecord {
  int32_t field0;
  int32_t alarmKind;           /* 131331 */
  uint8_t reserved0[1024];
  int32_t localTime[7];        /* at 1032: us, s, min, h, mday, mon(0-11), year-1900 */
  int32_t reserved1;
  int32_t localTimeZone[2];    /* at 1064: dst flag, UTC offset seconds */
  int32_t field1072;           /* 3 */
  int32_t field1076;           /* 5 */
} PluginAlarmRecord;
NETCAM_STATIC_ASSERT(offsetof(PluginAlarmRecord, alarmKind) == 4, "PluginAlarmRecord.alarmKind");
NETCAM_STATIC_ASSERT(offsetof(PluginAlarmRecord, localTime) == 1032, "PluginAlarmRecord.localTime");
NETCAM_STATIC_ASSERT(offsetof(PluginAlarmRecord, localTimeZone) == 1064, "PluginAlarmRecord.localTimeZone");
NETCAM_STATIC_ASSERT(offsetof(PluginAlarmRecord, field1072) == 1072, "PluginAlarmRecord.field1072");
NETCAM_STATIC_ASSERT(sizeof(PluginAlarmRecord) == 1080, "PluginAlarmRecord size");

/* Ability record of DeviceObject_GetPluginAbility: 169 integers. */
typedef struct PluginAbility {
  int32_t flags[41];
  int32_t array0[64];
  int32_t array1[64];
} PluginAbility;
NETCAM_STATIC_ASSERT(sizeof(PluginAbility) == 676, "PluginAbility size");

/* ------------------------------------------------------------------------ */
/* Callbacks                                                                */
/* ------------------------------------------------------------------------ */

/* Stream blocks: (always NULL, block type, block, user data). */
typedef int32_t(NETCAM_CALL* PluginStreamDataCallback)(void* handle, int32_t blockType,
                                                       const PluginStreamBlock* block, void* user);
/* Alarms: (device handle, event type, value, record, extra, user). */
typedef int32_t(NETCAM_CALL* PluginAlarmCallback)(PluginDeviceHandle device, uint32_t eventType,
                                                  uint32_t value, const void* record, intptr_t extra,
                                                  void* user);
/* Log callback slot: stored, never called (logging goes to evlog). */
typedef void(NETCAM_CALL* PluginLogCallback)(int32_t level, const char* text);

/* ------------------------------------------------------------------------ */
/* Flat entry points                                                        */
/* ------------------------------------------------------------------------ */

NETCAM_API int32_t NETCAM_CALL DeviceObject_Init(void* reserved);
NETCAM_API int32_t NETCAM_CALL DeviceObject_Fini(void);
NETCAM_API PluginDeviceHandle NETCAM_CALL DeviceObject_CreateInstance(void);
NETCAM_API int32_t NETCAM_CALL DeviceObject_DestroyInstance(PluginDeviceHandle handle);
NETCAM_API void NETCAM_CALL DeviceObject_SetLogCB(PluginLogCallback callback);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetLastError(void);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetLastErrorEx(char* buffer, int32_t size);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetPluginAbility(PluginAbility* ability);

NETCAM_API int32_t NETCAM_CALL DeviceObject_OpenDevice(PluginDeviceHandle handle, const DeviceLoginParam* param);
NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseDevice(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetDeviceAbility(PluginDeviceHandle handle, const char* inBuf,
                                                             int32_t inLength, char* outBuf, int32_t outLength);
NETCAM_API int32_t NETCAM_CALL DeviceObject_RebootDevice(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetLocalIP(PluginDeviceHandle handle, const char* ip);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SendData(PluginDeviceHandle handle, const void* data, int32_t length);

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartStream(PluginDeviceHandle handle, const PluginStreamRequest* request,
                                                        PluginStreamDataCallback callback, void* user);
NETCAM_API void NETCAM_CALL DeviceObject_StopStream(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_ForceIFrame(PluginDeviceHandle handle, int32_t channel);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetVideoParam(PluginDeviceHandle handle, int32_t channel, void* param);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetVideoParam(PluginDeviceHandle handle, int32_t channel,
                                                          const void* param);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetVideoParamEx(PluginDeviceHandle handle, int32_t channel, void* param);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetVideoParamEx(PluginDeviceHandle handle, int32_t channel, void* param);

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetRecordConfig(PluginDeviceHandle handle, RecordConfigInfo* info);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetRecordConfig(PluginDeviceHandle handle, const RecordConfigInfo* info);
NETCAM_API int32_t NETCAM_CALL DeviceObject_FindRecordFiles(PluginDeviceHandle handle,
                                                            const RecordSearchCondition* condition);
NETCAM_API int32_t NETCAM_CALL DeviceObject_FindNextRecordFile(PluginDeviceHandle handle, RecordFileInfo* file);
NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseFindRecord(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBack(PluginDeviceHandle handle,
                                                          const PluginPlaybackCondition* condition,
                                                          PluginStreamDataCallback callback, void* user);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBackEx(PluginDeviceHandle handle,
                                                            const PluginPlaybackConditionEx* condition,
                                                            PluginStreamDataCallback callback, void* user);
NETCAM_API void NETCAM_CALL DeviceObject_StopPlayBack(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_PauseStream(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_ResumeStream(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetStreamScale(PluginDeviceHandle handle, double scale);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SeekStreamByRelTime(PluginDeviceHandle handle, int32_t seconds);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SeekStreamByAbsTime(PluginDeviceHandle handle, const PluginTime* time);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StartPlayBackByReverse(PluginDeviceHandle handle,
                                                                   const PluginPlaybackCondition* condition,
                                                                   PluginStreamDataCallback callback, void* user);
NETCAM_API void NETCAM_CALL DeviceObject_StopPlayBackByReverse(PluginDeviceHandle handle);

NETCAM_API int32_t NETCAM_CALL DeviceObject_StartVoice(PluginDeviceHandle handle, const PluginTalkRequest* request,
                                                       PluginStreamDataCallback callback, void* user);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StopVoice(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SendVoiceData(PluginDeviceHandle handle, const void* data,
                                                          int32_t length);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StartVoiceEx(PluginDeviceHandle handle, const PluginTalkRequest* request,
                                                         PluginStreamDataCallback callback, void* user);
NETCAM_API int32_t NETCAM_CALL DeviceObject_StopVoiceEx(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SendVoiceDataEx(PluginDeviceHandle handle, const void* data,
                                                            int32_t length);

NETCAM_API int32_t NETCAM_CALL DeviceObject_GetConfigParam(PluginDeviceHandle handle, uint32_t command,
                                                           void* outBuffer, uint32_t length, void* extra);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetConfigParam(PluginDeviceHandle handle, uint32_t command,
                                                           const void* inBuffer, uint32_t length, void* extra);
NETCAM_API int32_t NETCAM_CALL DeviceObject_PTZControl(PluginDeviceHandle handle, uint32_t type,
                                                       const void* inBuffer, uint32_t length, uint32_t extra);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetPTZConfig(PluginDeviceHandle handle, uint32_t command,
                                                         void* outBuffer, uint32_t length, uint32_t extra);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetPTZConfig(PluginDeviceHandle handle, uint32_t command,
                                                         const void* inBuffer, uint32_t length, uint32_t extra);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetEventCallBack(PluginDeviceHandle handle, PluginAlarmCallback callback,
                                                             void* user);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetAlarmOut(PluginDeviceHandle handle, int32_t output, int32_t state);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetAlarmOut(PluginDeviceHandle handle, int32_t output, int32_t* state);
NETCAM_API int32_t NETCAM_CALL DeviceObject_CapturePicture(PluginDeviceHandle handle, int32_t chanNum,
                                                           int32_t pictureType, char* contrlValue,
                                                           int32_t bufferSize, uint32_t* lpSizeReturned);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetWorkStatus(PluginDeviceHandle handle, char* outBuffer,
                                                          int32_t outLength);
NETCAM_API int32_t NETCAM_CALL DeviceObject_FindDeviceLog(PluginDeviceHandle handle, const void* condition);
NETCAM_API int32_t NETCAM_CALL DeviceObject_FindNextDeviceLog(PluginDeviceHandle handle, void* entry);
NETCAM_API int32_t NETCAM_CALL DeviceObject_CloseFindDeviceLog(PluginDeviceHandle handle);
NETCAM_API int32_t NETCAM_CALL DeviceObject_TransMethod(PluginDeviceHandle handle, const char* request,
                                                        uint32_t requestLength, char* response,
                                                        uint32_t* responseLength);
NETCAM_API int32_t NETCAM_CALL DeviceObject_SetNtpCfg(PluginDeviceHandle handle, const DeviceNtpConfig* config);
NETCAM_API int32_t NETCAM_CALL DeviceObject_GetNtpCfg(PluginDeviceHandle handle, DeviceNtpConfig* config);

/* ------------------------------------------------------------------------ */
/* Discovery                                                                */
/* ------------------------------------------------------------------------ */

typedef struct ZPLUGIN_Interface {
  int32_t(NETCAM_CALL* Init)(void);
  int32_t(NETCAM_CALL* Fini)(void);
  int32_t(NETCAM_CALL* CreateInstance)(PluginDeviceHandle* out);
  int32_t(NETCAM_CALL* DestroyInstance)(PluginDeviceHandle handle);
  int32_t(NETCAM_CALL* QueryInterface)(void* instance, const char* key, const void** table);
  const char* const*(NETCAM_CALL* GetInterfaceKeys)(void);
  const char*(NETCAM_CALL* GetVersion)(void);
} ZPLUGIN_Interface;
NETCAM_STATIC_ASSERT(sizeof(ZPLUGIN_Interface) == 7 * sizeof(void*), "ZPLUGIN_Interface size");

NETCAM_API const ZPLUGIN_Interface* NETCAM_CALL ZPLUGIN_GetPluginInterface(void);

/* Function tables answered by QueryInterface, slot order as the platform
 * expects them. */
typedef struct PluginCommonTable {
  void(NETCAM_CALL* SetLogCB)(PluginLogCallback);
  int32_t(NETCAM_CALL* InitEnvParams)(void*);
  int32_t(NETCAM_CALL* GetLastError)(void);
  int32_t(NETCAM_CALL* GetPluginAbility)(PluginAbility*);
  int32_t(NETCAM_CALL* OpenDevice)(PluginDeviceHandle, const DeviceLoginParam*);
  int32_t(NETCAM_CALL* CloseDevice)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* GetDeviceAbility)(PluginDeviceHandle, const char*, int32_t, char*, int32_t);
  int32_t(NETCAM_CALL* RebootDevice)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* SetLocalIP)(PluginDeviceHandle, const char*);
  int32_t(NETCAM_CALL* SendData)(PluginDeviceHandle, const void*, int32_t);
  int32_t(NETCAM_CALL* GetLastErrorEx)(char*, int32_t);
} PluginCommonTable;

typedef struct PluginStreamTable {
  int32_t(NETCAM_CALL* StartStream)(PluginDeviceHandle, const PluginStreamRequest*, PluginStreamDataCallback, void*);
  void(NETCAM_CALL* StopStream)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* GetVideoParam)(PluginDeviceHandle, int32_t, void*);
  int32_t(NETCAM_CALL* SetVideoParam)(PluginDeviceHandle, int32_t, const void*);
  int32_t(NETCAM_CALL* GetVideoParamEx)(PluginDeviceHandle, int32_t, void*);
  int32_t(NETCAM_CALL* SetVideoParamEx)(PluginDeviceHandle, int32_t, void*);
} PluginStreamTable;

typedef struct PluginRecordTable {
  int32_t(NETCAM_CALL* GetRecordConfig)(PluginDeviceHandle, RecordConfigInfo*);
  int32_t(NETCAM_CALL* SetRecordConfig)(PluginDeviceHandle, const RecordConfigInfo*);
  int32_t(NETCAM_CALL* FindRecordFiles)(PluginDeviceHandle, const RecordSearchCondition*);
  int32_t(NETCAM_CALL* FindNextRecordFile)(PluginDeviceHandle, RecordFileInfo*);
  int32_t(NETCAM_CALL* CloseFindRecord)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* StartPlayBack)(PluginDeviceHandle, const PluginPlaybackCondition*, PluginStreamDataCallback,
                                      void*);
  int32_t(NETCAM_CALL* StartPlayBackEx)(PluginDeviceHandle, const PluginPlaybackConditionEx*,
                                        PluginStreamDataCallback, void*);
  void(NETCAM_CALL* StopPlayBack)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* PauseStream)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* ResumeStream)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* SetStreamScale)(PluginDeviceHandle, double);
  int32_t(NETCAM_CALL* SeekStreamByRelTime)(PluginDeviceHandle, int32_t);
  int32_t(NETCAM_CALL* SeekStreamByAbsTime)(PluginDeviceHandle, const PluginTime*);
  int32_t(NETCAM_CALL* StartPlayBackByReverse)(PluginDeviceHandle, const PluginPlaybackCondition*,
                                               PluginStreamDataCallback, void*);
  void(NETCAM_CALL* StopPlayBackByReverse)(PluginDeviceHandle);
} PluginRecordTable;

typedef struct PluginTalkTable {
  int32_t(NETCAM_CALL* StartVoice)(PluginDeviceHandle, const PluginTalkRequest*, PluginStreamDataCallback, void*);
  int32_t(NETCAM_CALL* StopVoice)(PluginDeviceHandle);
  int32_t(NETCAM_CALL* SendVoiceData)(PluginDeviceHandle, const void*, int32_t);
} PluginTalkTable;
typedef PluginTalkTable PluginTalkExTable;

typedef struct PluginParamsTable {
  int32_t(NETCAM_CALL* GetConfigParam)(PluginDeviceHandle, uint32_t, void*, uint32_t, void*);
  int32_t(NETCAM_CALL* SetConfigParam)(PluginDeviceHandle, uint32_t, const void*, uint32_t, void*);
} PluginParamsTable;

typedef struct PluginPtzTable {
  int32_t(NETCAM_CALL* PTZControl)(PluginDeviceHandle, uint32_t, const void*, uint32_t, uint32_t);
  int32_t(NETCAM_CALL* GetPTZConfig)(PluginDeviceHandle, uint32_t, void*, uint32_t, uint32_t);
  int32_t(NETCAM_CALL* SetPTZConfig)(PluginDeviceHandle, uint32_t, const void*, uint32_t, uint32_t);
} PluginPtzTable;

typedef struct PluginControlTable {
  int32_t(NETCAM_CALL* SetEventCallBack)(PluginDeviceHandle, PluginAlarmCallback, void*);
  int32_t(NETCAM_CALL* SetAlarmOut)(PluginDeviceHandle, int32_t, int32_t);
  int32_t(NETCAM_CALL* GetAlarmOut)(PluginDeviceHandle, int32_t, int32_t*);
  int32_t(NETCAM_CALL* CapturePicture)(PluginDeviceHandle, int32_t, int32_t, char*, int32_t, uint32_t*);
} PluginControlTable;

typedef struct PluginStatusTable {
  int32_t(NETCAM_CALL* GetWorkStatus)(PluginDeviceHandle, char*, int32_t);
} PluginStatusTable;

typedef struct PluginLogTable {
  int32_t(NETCAM_CALL* FindDeviceLog)(PluginDeviceHandle, const void*);
  int32_t(NETCAM_CALL* FindNextDeviceLog)(PluginDeviceHandle, void*);
  int32_t(NETCAM_CALL* CloseFindDeviceLog)(PluginDeviceHandle);
} PluginLogTable;

typedef struct PluginTransMethodTable {
  int32_t(NETCAM_CALL* TransMethod)(PluginDeviceHandle, const char*, uint32_t, char*, uint32_t*);
} PluginTransMethodTable;

typedef struct PluginNtpTable {
  int32_t(NETCAM_CALL* SetNtpCfg)(PluginDeviceHandle, const DeviceNtpConfig*);
  int32_t(NETCAM_CALL* GetNtpCfg)(PluginDeviceHandle, DeviceNtpConfig*);
} PluginNtpTable;

#ifdef __cplusplus
}
#endif

#endif /* NETCAM_PLUGIN_H */
