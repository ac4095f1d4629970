// Live video: the RTSP session to the camera's media path and the media
// client's callbacks. The repackaging of what arrives is in stream_delivery.cpp.
#include <cstring>

#include "MDClient.h"
#include "MuxConvert.h"
#include "boundary/ExceptionBarrier.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr char kDefaultCodec[] = "h264";

}  // namespace

bool CPlgDeviceObjectImplement::GetUrlParam(std::string& value, const std::string& url, const std::string& name) {
  const size_t found = url.find(name);
  if (found == std::string::npos) {
    PLG_ERROR("[%s]GetURL find str param name is failed, URL is : %s.[%s(%d)]", name.c_str());
    return false;
  }
  const size_t begin = found + name.size();
  const size_t end = url.find('&', begin);
  value = url.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
  return true;
}

int32_t CPlgDeviceObjectImplement::StartStream(const PluginStreamRequest* request, PluginStreamDataCallback pfnDataCB,
                                               void* pUser) {
  kor::CGuard guard(m_streamLock);
  if (request == nullptr || pfnDataCB == nullptr) {
    PLG_ERROR("[%s]Input parma error, nullptr == pstDevice || nullptr == pfnDataCB![%s(%d)]");
    return NETCAM_FAIL;
  }
  std::string codec;
  if (!GetUrlParam(codec, request->params != nullptr ? request->params : "", "videoencoding=") || codec.empty()) {
    codec = kDefaultCodec;
  }
  CloseReplacedSession();
  m_bPlayback = false;
  m_nPaused = 0;
  m_pfnStreamDataCB = pfnDataCB;
  m_pStreamUser = pUser;

  const int cameraNumber = request->channel + 1;
  const char* address = request->address != nullptr ? request->address : "";
  const std::string sessionUrl = "rtsp://" + std::string(request->user != nullptr ? request->user : "") + ":" +
                                 std::string(request->password != nullptr ? request->password : "") + "@" + address +
                                 ":554/axis-media/media.amp?videocodec=" + codec +
                                 "&camera=" + std::to_string(cameraNumber);
  const std::string logUrl = std::string("rtsp://") + address + ":554/axis-media/media.amp?videocodec=" + codec +
                             "&camera=" + std::to_string(cameraNumber);
  PLG_INFO("[%s]StartStream begin, url[%s].[%s(%d)]", logUrl.c_str());
  if (!OpenMediaSession(sessionUrl, logUrl)) return NETCAM_FAIL;
  PLG_INFO("[%s]StartStream success, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), logUrl.c_str());
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::OpenMediaSession(const std::string& sessionUrl, const std::string& logUrl) {
  const int32_t clientId = CreateMediaSession(sessionUrl, logUrl);
  return clientId >= 0 && PlayMediaSession(clientId, logUrl);
}

int32_t CPlgDeviceObjectImplement::CreateMediaSession(const std::string& sessionUrl, const std::string& logUrl) {
  const int32_t clientId = MDC_Create(sessionUrl.c_str(), 0);
  if (clientId < 0) {
    PLG_ERROR("[%s]MDC_Create failed, err[0x%x], url[%s].[%s(%d)]", static_cast<unsigned>(clientId), logUrl.c_str());
    return -1;
  }
  const int32_t result =
      MDC_SetMsgCallBack(clientId, NETCAM_GUARDED_CALLBACK(CPlgDeviceObjectImplement::PullMsgCallback), this);
  if (result != 0) {
    MDC_Destroy(clientId);
    PLG_ERROR("[%s]MDC_SetMsgCallBack failed, err[0x%x], clientid[%d], url[%s].[%s(%d)]", static_cast<unsigned>(result),
              clientId, logUrl.c_str());
    return -1;
  }
  return clientId;
}

bool CPlgDeviceObjectImplement::PlayMediaSession(int32_t clientId, const std::string& logUrl) {
  const int32_t result = MDC_Open(clientId, NETCAM_GUARDED_CALLBACK(CPlgDeviceObjectImplement::PullDataCallback), this);
  if (result != 0) {
    MDC_Destroy(clientId);
    ReleaseTransform();  // an SDP may have arrived before PLAY failed
    PLG_ERROR("[%s]MDC_Open failed, err[0x%x], clientid[%d], url[%s].[%s(%d)]", static_cast<unsigned>(result), clientId,
              logUrl.c_str());
    return false;
  }
  m_nClientId = clientId;
  m_strStreamUrl = logUrl;
  return true;
}

int32_t CPlgDeviceObjectImplement::StopStream() {
  kor::CGuard guard(m_streamLock);
  PLG_INFO("[%s]StopStream begin, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  CloseMediaSession();
  PLG_INFO("[%s]StopStream end, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  ForgetMediaSession();
  return NETCAM_OK;
}

void CPlgDeviceObjectImplement::CloseMediaSession() {
  // Paused first: blocks still in flight are dropped, not delivered.
  m_nPaused = 1;
  if (m_nClientId >= 0) {
    int32_t result = MDC_Close(m_nClientId);
    if (result != 0) {
      PLG_ERROR("[%s]MDC_Close failed, err[0x%x], clientid[%d], url[%s].[%s(%d)]", static_cast<unsigned>(result),
                m_nClientId.load(), m_strStreamUrl.c_str());
    }
    result = MDC_Destroy(m_nClientId);
    if (result != 0) {
      PLG_ERROR("[%s]MDC_Destroy failed, err[0x%x], clientid[%d], url[%s].[%s(%d)]", static_cast<unsigned>(result),
                m_nClientId.load(), m_strStreamUrl.c_str());
    }
  }
  // The media client runs no callback of the session any more.
  ReleaseTransform();
}

void CPlgDeviceObjectImplement::CloseReplacedSession() {
  if (m_nClientId < 0) return;
  // Started again without a stop: the new session takes the client id, and
  // the earlier one is closed first. Left running, it would feed its packets
  // into the new session's repackager and call into this object after the
  // platform destroyed it.
  PLG_WARN("[%s]Stream started again without a stop, closing the earlier session, clientid[%d], url[%s].[%s(%d)]",
           m_nClientId.load(), m_strStreamUrl.c_str());
  CloseMediaSession();
  ForgetMediaSession();
}

void CPlgDeviceObjectImplement::ForgetMediaSession() {
  m_nClientId = -1;
  m_strStreamUrl.clear();
  m_pfnStreamDataCB = nullptr;
  m_pStreamUser = nullptr;
}

void CPlgDeviceObjectImplement::ReleaseTransform() {
  if (m_hTransHandle != nullptr) {
    MUXC_Stop(m_hTransHandle);
    MUXC_Release(m_hTransHandle);
    m_hTransHandle = nullptr;
  }
}

void CPlgDeviceObjectImplement::PullDataCallback(int32_t clientId, int32_t dataType, const uint8_t* pData,
                                                 int32_t dataLen, void* user) {
  auto* pStream = static_cast<CPlgDeviceObjectImplement*>(user);
  if (pStream == nullptr || pStream->m_pfnStreamDataCB.load() == nullptr || pData == nullptr) {
    PLG_ERROR(
        "[%s]Data Callback param error, clientid[%d], nullptr == pStream || nullptr == pStream->m_pfnStreamDataCB || "
        "nullptr == pData![%s(%d)]",
        clientId);
    return;
  }
  PLG_TRACE("[%s]Data Callback info, clientid[%d], data-type[%d], data-len[%d].[%s(%d)]", clientId, dataType, dataLen);
  switch (dataType) {
    case MDC_DATA_SDP:
      if (OpenTransBySDP(pStream, reinterpret_cast<const char*>(pData), dataLen)) {
        PLG_INFO("[%s]OpenTransBySDP success, clientid[%d], data-type[%d], data-len[%d].[%s(%d)]", clientId, dataType,
                 dataLen);
      } else {
        PLG_ERROR("[%s]OpenTransBySDP failed, clientid[%d], data-type[%d], data-len[%d].[%s(%d)]", clientId, dataType,
                  dataLen);
      }
      break;
    case MDC_DATA_UDP_VIDEO:
    case MDC_DATA_UDP_AUDIO:
    case MDC_DATA_UDP_META:
    case MDC_DATA_VIDEO:
    case MDC_DATA_AUDIO:
    case MDC_DATA_META:
      if (pStream->m_hTransHandle != nullptr) {
        const int32_t result = MUXC_InputData(pStream->m_hTransHandle, 0, pData, dataLen);
        if (result != 0) {
          PLG_ERROR("[%s]MUXC_InputData failed, err[%x], clinetid[%d], data-type[%d].[%s(%d)]",
                    static_cast<unsigned>(result), clientId, dataType);
        }
      }
      break;
    case 4:
    case 5:
    case MDC_DATA_RTCP_VIDEO:
    case MDC_DATA_RTCP_AUDIO:
    case MDC_DATA_RTCP_META:
      break;
    default:
      PLG_TRACE("[%s]Other Data Type is:%d, nClientId:%d\n[%s(%d)]", dataType, clientId);
      break;
  }
}

void CPlgDeviceObjectImplement::PullMsgCallback(int32_t clientId, int32_t msgType, const char* pszMsg, int32_t msgLen,
                                                void* user) {
  auto* pStream = static_cast<CPlgDeviceObjectImplement*>(user);
  if (pStream == nullptr || pStream->m_pfnStreamDataCB.load() == nullptr || pszMsg == nullptr) {
    PLG_ERROR(
        "[%s]Data Callback param error, clientid[%d], nullptr == pStream || nullptr == pStream->m_pfnStreamDataCB || "
        "nullptr == pszMsg![%s(%d)]",
        clientId);
    return;
  }
  PLG_TRACE("[%s]Msg Callback info, clientid[%d], msg-type[%d], msg-len[%d].[%s(%d)]", clientId, msgType, msgLen);
  if (msgType == MDC_MSG_CLOSED) {
    PLG_INFO("[%s]Close Msg! nClientId:%d, MsgType:%d, MsgCallBack: %s\n[%s(%d)]", clientId, msgType, pszMsg);
  } else if (msgType == MDC_MSG_COMPLETE) {
    PLG_INFO("[%s]Recv Complete! nClientId:%d, MsgType:%d, MsgCallBack: %s\n[%s(%d)]", clientId, msgType, pszMsg);
  } else {
    PLG_INFO("[%s]Other Msg! nClientId:%d, MsgType:%d, MsgCallBack: %s\n[%s(%d)]", clientId, msgType, pszMsg);
    return;
  }
  // The end block goes out whatever the paused flag says.
  pStream->DeliverEndBlock();
  PLG_INFO("[%s]Send stream data callback[PLUGIN_STREAM_END], clientid[%d][%s(%d)]", clientId);
}
