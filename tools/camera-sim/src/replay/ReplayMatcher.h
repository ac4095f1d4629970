// ReplayMatcher.h - which captured exchange answers a request. An operation is
// the method, the path and what names the call inside it: the SOAP action,
// the JSON method, or the query's names with their word values (a value with
// a digit in it - a time, a size, a generated name - never counts). Repeated
// operations take the captured answers in order and keep the last; writes
// thereby come back in the order the camera saw them, and so do the reads
// after them.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "CaptureFolder.h"

namespace camsim {

// The operation of a request, at two strengths: `strict` with the query's
// word values, `loose` without.
struct OperationKey {
  std::string strict;
  std::string loose;
};
OperationKey OperationOf(const std::string& method, const std::string& path, const std::string& query,
                         const std::string& body);

class ReplayMatcher {
 public:
  explicit ReplayMatcher(const std::vector<ReplayExchange>& exchanges);

  // The exchange that answers; nullptr for an operation never captured, with
  // `firstMiss` set the first time that operation is asked for.
  const ReplayExchange* Match(const std::string& method, const std::string& path, const std::string& query,
                              const std::string& body, bool* firstMiss);

 private:
  struct Queue {
    std::vector<const ReplayExchange*> answers;
    size_t next = 0;
  };
  const ReplayExchange* Take(Queue& queue);

  std::mutex m_mutex;
  std::map<std::string, Queue> m_strict;
  std::map<std::string, Queue> m_loose;
  std::set<std::string> m_missed;
};

}  // namespace camsim
