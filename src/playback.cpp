// Playback of the camera's recordings: the end-of-file check on the stream
// times the repackager reports.
#include "PluginLog.h"
#include "TimeConversions.h"
#include "axis_device_object_implement.h"

void CPlgDeviceObjectImplement::CheckFileEnd(CPlgDeviceObjectImplement* pStream, const PluginGlobalTime* pGlobalTime) {
  if (pGlobalTime == nullptr) {
    PLG_WARN("[%s]pGlobalTime is null.[%s(%d)]");
    return;
  }
  if (pStream == nullptr || !pStream->m_bPlayback || pStream->m_stPlaybackEndTime.year == 0) return;
  const std::string globalTime = QLSystemTimeToString(pGlobalTime);
  const std::string endTime = QLSystemTimeToString(&pStream->m_stPlaybackEndTime);
  // Plain text comparison; the same second is not past the end.
  if (globalTime > endTime) {
    pStream->DeliverEndBlock();
    PLG_INFO("[%s]Send stream data callback[PLUGIN_STREAM_END], str_global_time[%s], str_global_end_time[%s].[%s(%d)]",
             globalTime.c_str(), endTime.c_str());
  }
}
