// Snapshots: a JPEG at the first resolution the camera accepts, for alarm
// pictures and thumbnails.
#include <cstring>

#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

bool CPlgDeviceObjectImplement::GetResolutions(std::vector<std::string>& resolutions) {
  const std::string url =
      "http://" + GetDeviceAddress() + "/axis-cgi/param.cgi?action=list&group=Properties.Image.Resolution";
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, User(), Password())) {
    PLG_ERROR("[%s]GetResolutions failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  if (!control::ParseResolutions(response, resolutions)) {
    PLG_ERROR("[%s]No list of supported resolutions found, url[%s].[%s(%d)]", url.c_str());
  }
  return true;
}

int32_t CPlgDeviceObjectImplement::CapturePicture(int32_t ChanNum, char* ContrlValue, int32_t bufferSize,
                                                  uint32_t* lpSizeReturned) {
  if (ChanNum < 0) {
    PLG_ERROR("[%s]The Chan Num erro, ChanNum = %d.[%s(%d)]", static_cast<int>(ChanNum));
    return NETCAM_FAIL;
  }
  if (ContrlValue == nullptr) {
    PLG_ERROR("[%s]The ContrlValue is NULL[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (lpSizeReturned == nullptr) {
    PLG_ERROR("[%s]The lpSizeReturned is NULL[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::vector<std::string> resolutions;
  if (!GetResolutions(resolutions) || resolutions.empty()) {
    PLG_ERROR("[%s]GetResolutions faield.[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::string url;
  std::string picture;
  bool taken = false;
  for (const std::string& resolution : resolutions) {
    picture.clear();
    url = "http://" + GetDeviceAddress() + "/axis-cgi/jpg/image.cgi?resolution=" + resolution +
          "&compression=25&camera=" + std::to_string(ChanNum);
    if (SendHttpGetReqWithRsp(picture, url, User(), Password())) {
      PLG_INFO("[%s]CapturePicture success, url[%s], rsp-size[%lld].[%s(%d)]", url.c_str(),
               static_cast<long long>(picture.size()));
      taken = true;
      break;
    }
    PLG_ERROR("[%s]CapturePicture failed, resolution[%s], url[%s], rsp[%s].[%s(%d)]", resolution.c_str(), url.c_str(),
              picture.c_str());
  }
  if (!taken) {
    PLG_ERROR("[%s]CapturePicture failed, url[%s], rsp[%s].[%s(%d)]", url.c_str(), picture.c_str());
    return NETCAM_FAIL;
  }
  // Binary data needs no terminator: a buffer exactly the picture's size is enough.
  const uint32_t capacity = static_cast<uint32_t>(bufferSize);
  if (capacity < picture.size()) {
    PLG_ERROR(
        "[%s]CapturePicture failed(Insufficient incoming memory), url[%s], input-size[%d], rsp-size[%lld].[%s(%d)]",
        url.c_str(), static_cast<int>(bufferSize), static_cast<long long>(picture.size()));
    return NETCAM_FAIL;
  }
  std::memcpy(ContrlValue, picture.data(), picture.size());
  *lpSizeReturned = static_cast<uint32_t>(picture.size());
  PLG_INFO("[%s]CapturePicture success, url[%s], input-size[%d], pic-size[%lld].[%s(%d)]", url.c_str(),
           static_cast<int>(bufferSize), static_cast<long long>(picture.size()));
  return NETCAM_OK;
}
