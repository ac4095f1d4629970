/*
 * MuxConvert.h - the platform's stream repackager: SDP and RTP packets in,
 * MPEG-2 Program Stream out. Output and time callbacks run synchronously on
 * the thread that calls MUXC_Start / MUXC_InputData.
 */
#ifndef MUXCONVERT_H
#define MUXCONVERT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* MUXC_HANDLE;

#define MUXC_SOURCE_SDP 1
#define MUXC_MODE_DEFAULT 1
#define MUXC_TARGET_PS 2

#define MUXC_UNIT_HEADER 1
#define MUXC_UNIT_PAYLOAD 2

/* Error codes (non-zero results). */
#define MUXC_ERR_INVALID_ARG 0x90000001
#define MUXC_ERR_BAD_SDP 0x90000002
#define MUXC_ERR_NO_MEDIA 0x90000003
#define MUXC_ERR_STATE 0x90000004
#define MUXC_ERR_BAD_PACKET 0x90000005
#define MUXC_ERR_UNSUPPORTED 0x90000006

typedef struct MUXC_CreateParam {
  int32_t sourceKind;   /* 1: SDP text */
  int32_t sdpLength;
  const char* sdp;
  int32_t targetFormat; /* 2: MPEG-2 Program Stream */
  int32_t reserved;
} MUXC_CreateParam;

typedef struct MUXC_OutputUnit {
  const uint8_t* data;
  int32_t length;
  int32_t type; /* 1 stream header, otherwise payload */
} MUXC_OutputUnit;

/* Year, month (1-12), day, hour, minute, second, millisecond, dwReserved.
 * dwReserved 1 marks a live stream: reported times are the local wall clock
 * at arrival. */
typedef struct MUXC_GlobalTime {
  int32_t year;
  int32_t month;
  int32_t day;
  int32_t hour;
  int32_t minute;
  int32_t second;
  int32_t millisecond;
  int32_t dwReserved;
} MUXC_GlobalTime;

typedef void (*MUXC_OutputDataCallBack)(const MUXC_OutputUnit* unit, void* user);
typedef void (*MUXC_GlobalTimeCallBack)(const MUXC_GlobalTime* time, void* user);

#ifdef __cplusplus
static_assert(sizeof(MUXC_CreateParam) == 24, "MUXC_CreateParam size");
static_assert(sizeof(MUXC_OutputUnit) == 16, "MUXC_OutputUnit size");
static_assert(sizeof(MUXC_GlobalTime) == 32, "MUXC_GlobalTime size");
#endif

int32_t MUXC_CreateEx(MUXC_HANDLE* handle, int32_t mode, const MUXC_CreateParam* param);
int32_t MUXC_SetGlobalTime(MUXC_HANDLE handle, const MUXC_GlobalTime* time);
int32_t MUXC_RegisterModifyGlobalTimeCallBack(MUXC_HANDLE handle, MUXC_GlobalTimeCallBack callback, void* user);
int32_t MUXC_RegisterOutputDataCallBack(MUXC_HANDLE handle, MUXC_OutputDataCallBack callback, void* user);
/* Emits the stream header unit (type 1). */
int32_t MUXC_Start(MUXC_HANDLE handle, int32_t reserved0, int32_t reserved1);
/* One RTP packet in; zero or more payload units out. */
int32_t MUXC_InputData(MUXC_HANDLE handle, int32_t kind, const uint8_t* data, int32_t length);
int32_t MUXC_Stop(MUXC_HANDLE handle);
int32_t MUXC_Release(MUXC_HANDLE handle);

#ifdef __cplusplus
}
#endif

#endif /* MUXCONVERT_H */
