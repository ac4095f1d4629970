#include "boundary/DeviceObjectError.h"

#include <cstdio>

uint32_t CDeviceObjectError::TakeLastError() {
  const uint32_t thread = KOR_GetCurrentThreadId();
  kor::CGuard guard(m_codeMutex);
  auto found = m_codes.find(thread);
  if (found == m_codes.end()) return 0;
  const uint32_t code = found->second;
  found->second = 0;
  return code;
}

int32_t CDeviceObjectError::GetLastErrorJson(char* buffer, size_t size) {
  const uint32_t thread = KOR_GetCurrentThreadId();
  kor::CGuard guard(m_detailMutex);
  ErrorDetail detail;
  if (auto found = m_details.find(thread); found != m_details.end()) detail = found->second;
  std::snprintf(buffer, size, "{\"errors\": [{\"name\":\"uplinksdk\", \"errCode\":\"%d\",\"errMsg\":\"%s\"}]}",
                detail.code, detail.message.c_str());
  return detail.code;
}

void CDeviceObjectError::RecordError(int32_t code, const std::string& message) {
  const uint32_t thread = KOR_GetCurrentThreadId();
  {
    kor::CGuard guard(m_codeMutex);
    m_codes[thread] = static_cast<uint32_t>(code);
  }
  kor::CGuard guard(m_detailMutex);
  m_details[thread] = ErrorDetail{code, message};
}
