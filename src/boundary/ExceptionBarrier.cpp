#include "boundary/ExceptionBarrier.h"

#include "session/PluginLog.h"

namespace netcam {

void LogStoppedException(const char* where) noexcept {
  const char* what = "unknown exception";
  try {
    throw;  // the exception the caller is handling, still alive in its catch block
  } catch (const std::exception& error) {
    what = error.what();
  } catch (...) {
  }
  // The line starts with the entry point or callback that stopped it.
  evlog_write(EVLOG_ERROR, NETCAM_LOG_MODULE, "[%s]Exception stopped, what[%s].[%s(%d)]", where, what, __FILE__,
              __LINE__);
}

}  // namespace netcam
