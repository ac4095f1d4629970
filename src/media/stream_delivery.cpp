// Delivery: the repackaging session made from the camera's SDP, and the stream
// blocks handed to the platform's data callback. Runs on the media client's
// delivery thread of the session, one call at a time, without the stream lock;
// the paused flag keeps late blocks back.
#include <algorithm>
#include <cstring>
#include <string>

#include "MuxConvert.h"
#include "boundary/ExceptionBarrier.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr int32_t kBlockField1 = 1;
constexpr int32_t kBlockField2 = 0;

// The description the platform reads for every stream, whatever the codec.
constexpr char kMediaKind[] = "video";
constexpr char kEncodingName[] = "MP4V-ES";
constexpr char kFormatParameters[] =
    "profile-level-id=8;config=000001B0F5000001B50900000100000001200886C400670C58112051";

PluginStreamBlock MakeBlock(const uint8_t* data, uint32_t length) {
  return PluginStreamBlock{data, length, PLUGIN_STREAM_FORMAT_PS, kBlockField1, kBlockField2};
}

}  // namespace

void CPlgDeviceObjectImplement::DeliverEndBlock() {
  PluginStreamDataCallback callback = m_pfnStreamDataCB.load();
  if (callback == nullptr) return;
  const PluginStreamBlock block = MakeBlock(nullptr, 0);
  callback(nullptr, PLUGIN_STREAM_END, &block, m_pStreamUser);
}

bool CPlgDeviceObjectImplement::OpenTransBySDP(CPlgDeviceObjectImplement* pStream, const char* sdp,
                                               int32_t sdpLength) {
  if (pStream == nullptr || sdp == nullptr || sdpLength <= 0) {
    PLG_ERROR("[%s]SDP info invalid.[%s(%d)]");
    return false;
  }
  const std::string sap(sdp, static_cast<size_t>(sdpLength));  // kept for the log lines
  MUXC_CreateParam parameters{MUXC_SOURCE_SDP, sdpLength, sdp, MUXC_TARGET_PS, 0};
  MUXC_HANDLE handle = nullptr;
  int32_t result = MUXC_CreateEx(&handle, MUXC_MODE_DEFAULT, &parameters);
  if (result != 0) {
    PLG_ERROR("[%s]MUXC_CreateEx failed, err[0x%x], sap[%s].[%s(%d)]", static_cast<unsigned>(result), sap.c_str());
    return false;
  }

  PluginGlobalTime& start = pStream->m_stPlaybackStartTime;
  if (start.year == 0) start.dwReserved = 1;  // live: the repackager stamps the wall clock
  MUXC_GlobalTime globalTime{};
  static_assert(sizeof globalTime == sizeof start, "stream time layouts agree");
  std::memcpy(&globalTime, &start, sizeof globalTime);
  result = MUXC_SetGlobalTime(handle, &globalTime);
  if (result != 0) {
    PLG_ERROR(
        "[%s]MUXC_SetGlobalTime failed, muxc_handle[%p], err[0x%x], start-time-local[%4d-%02d-%02d %02d:%02d:%02d], "
        "dwReserved:%d.[%s(%d)]",
        handle, static_cast<unsigned>(result), start.year, start.month, start.day, start.hour, start.minute,
        start.second, start.dwReserved);
  } else {
    PLG_INFO(
        "[%s]MUXC_SetGlobalTime success, muxc_handle[%p], start-time-local[%4d-%02d-%02d %02d:%02d:%02d], "
        "dwReserved:%d.[%s(%d)]",
        handle, start.year, start.month, start.day, start.hour, start.minute, start.second, start.dwReserved);
  }

  result = MUXC_RegisterModifyGlobalTimeCallBack(
      handle, NETCAM_GUARDED_CALLBACK(CPlgDeviceObjectImplement::MUXCGlobalTimeFun), pStream);
  if (result != 0) {
    MUXC_Release(handle);
    PLG_ERROR("[%s]MUXC_RegisterModifyGlobalTimeCallBack failed, err[0x%x], sap[%s].[%s(%d)]",
              static_cast<unsigned>(result), sap.c_str());
    return false;
  }
  result = MUXC_RegisterOutputDataCallBack(handle, NETCAM_GUARDED_CALLBACK(CPlgDeviceObjectImplement::TransDataFun),
                                           pStream);
  if (result != 0) {
    MUXC_Release(handle);
    PLG_ERROR("[%s]MUXC_RegisterOutputDataCallBack failed, err[0x%x], sap[%s].[%s(%d)]",
              static_cast<unsigned>(result), sap.c_str());
    return false;
  }
  // The header unit is delivered from inside MUXC_Start, before the handle is stored.
  result = MUXC_Start(handle, 0, 0);
  if (result != 0) {
    MUXC_Release(handle);
    PLG_ERROR("[%s]MUXC_Start failed, err[0x%x], sap[%s].[%s(%d)]", static_cast<unsigned>(result), sap.c_str());
    return false;
  }
  if (pStream->m_hTransHandle != nullptr) {
    // A second SDP on one session replaces the repackager; the old one is not leaked.
    MUXC_Stop(pStream->m_hTransHandle);
    MUXC_Release(pStream->m_hTransHandle);
  }
  pStream->m_hTransHandle = handle;
  PLG_INFO("[%s]OpenTransBySDP success, muxc_handle[%p].[%s(%d)]", handle);
  return true;
}

void CPlgDeviceObjectImplement::TransDataFun(const MUXC_OutputUnit* pstDataInfo, void* user) {
  auto* pStream = static_cast<CPlgDeviceObjectImplement*>(user);
  PluginStreamDataCallback callback = pStream != nullptr ? pStream->m_pfnStreamDataCB.load() : nullptr;
  if (pStream == nullptr || callback == nullptr || pstDataInfo == nullptr) {
    PLG_ERROR(
        "[%s]Tran Data Callback param error, nullptr == pStream || nullptr == pStream->m_pfnStreamDataCB || nullptr == "
        "pstDataInfo![%s(%d)]");
    return;
  }
  const uint32_t length = pstDataInfo->length > 0 ? static_cast<uint32_t>(pstDataInfo->length) : 0;
  if (pstDataInfo->type != MUXC_UNIT_HEADER) {
    if (pStream->m_nPaused == 1) {
      PLG_TRACE("[%s]Send stream data callback[No data is sent in paused state], clientid[%d], data-len[%d].[%s(%d)]",
                pStream->m_nClientId.load(), pstDataInfo->length);
      return;
    }
    const PluginStreamBlock block = MakeBlock(pstDataInfo->data, length);
    callback(nullptr, PLUGIN_STREAM_DATA, &block, pStream->m_pStreamUser);
    PLG_TRACE("[%s]Send stream data callback[PLUGIN_STREAM_DATA], clientid[%d], data-len[%d].[%s(%d)]",
              pStream->m_nClientId.load(), pstDataInfo->length);
    return;
  }

  // The header travels twice: inside the description, then on its own; even while paused.
  PluginStreamInfo info;
  std::memset(&info, 0, sizeof info);
  std::memcpy(info.mediaKind, kMediaKind, sizeof kMediaKind);
  const uint32_t headerBytes = std::min<uint32_t>(length, sizeof info.header);
  KOR_Memcpy_s(info.header, sizeof info.header, pstDataInfo->data, headerBytes);
  info.headerLength = headerBytes;
  info.payloadType = 96;
  info.clockRate = 90000;
  std::memcpy(info.encodingName, kEncodingName, sizeof kEncodingName);
  std::memcpy(info.formatParameters, kFormatParameters, sizeof kFormatParameters);
  info.field1604 = 1;
  const PluginStreamBlock infoBlock = MakeBlock(reinterpret_cast<const uint8_t*>(&info), sizeof info);
  callback(nullptr, PLUGIN_STREAM_INFO, &infoBlock, pStream->m_pStreamUser);
  PLG_INFO("[%s]Send stream data callback[PLUGIN_STREAM_INFO], clientid[%d][%s(%d)]", pStream->m_nClientId.load());
  const PluginStreamBlock headBlock = MakeBlock(pstDataInfo->data, length);
  callback(nullptr, PLUGIN_STREAM_HEAD, &headBlock, pStream->m_pStreamUser);
  PLG_INFO("[%s]Send stream data callback[PLUGIN_STREAM_HEAD], clientid[%d][%s(%d)]", pStream->m_nClientId.load());
}

void CPlgDeviceObjectImplement::MUXCGlobalTimeFun(const MUXC_GlobalTime* pGlobalTime, void* user) {
  auto* pStream = static_cast<CPlgDeviceObjectImplement*>(user);
  if (pStream == nullptr || pGlobalTime == nullptr) {
    PLG_ERROR("[%s]MUXCGlobalTimeFun param error, nullptr == pStream || nullptr == pGlobalTime![%s(%d)]");
    return;
  }
  PluginGlobalTime time;
  std::memcpy(&time, pGlobalTime, sizeof time);
  CheckFileEnd(pStream, &time);
}
