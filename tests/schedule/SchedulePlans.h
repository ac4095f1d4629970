// SchedulePlans.h - the platform's weekly plan record as the schedule tests
// start from it.
#pragma once

#include <cstring>

#include "netcam_plugin.h"

// No half hour recorded.
inline RecordConfigInfo EmptyPlan() {
  RecordConfigInfo plan{};
  std::memset(plan.halfHours, '0', sizeof plan.halfHours);
  return plan;
}
