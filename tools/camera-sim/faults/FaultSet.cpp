#include "camera_sim/FaultSet.h"

#include <algorithm>

namespace camsim {
namespace {

bool HasPrefix(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

FaultSet::Id FaultSet::Add(std::string pathPrefix, Fault fault) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const Id id = m_nextId++;
  m_entries.push_back(Entry{id, std::move(pathPrefix), std::move(fault)});
  Changed(lock);
  return id;
}

void FaultSet::Remove(Id id) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), [id](const Entry& e) { return e.id == id; }),
                  m_entries.end());
  Changed(lock);
}

void FaultSet::Clear() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_entries.clear();
  Changed(lock);
}

std::optional<Fault> FaultSet::Take(FaultSide side, const std::string& path, std::initializer_list<Fault::Kind> kinds) {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (auto it = m_entries.rbegin(); it != m_entries.rend(); ++it) {
    Fault& fault = it->fault;
    if (!Covers(fault.side, side) || fault.times == 0 || !HasPrefix(path, it->prefix) ||
        std::find(kinds.begin(), kinds.end(), fault.kind) == kinds.end()) {
      continue;
    }
    if (fault.after > 0) {
      --fault.after;
      return std::nullopt;
    }
    if (fault.times > 0) --fault.times;
    return fault;
  }
  return std::nullopt;
}

const FaultSet::Entry* FaultSet::FindLocked(FaultSide side, Fault::Kind kind, const std::string& path) const {
  for (auto it = m_entries.rbegin(); it != m_entries.rend(); ++it) {
    if (it->fault.kind == kind && Covers(it->fault.side, side) && HasPrefix(path, it->prefix)) return &*it;
  }
  return nullptr;
}

std::optional<Fault> FaultSet::Condition(FaultSide side, Fault::Kind kind, const std::string& path) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  const Entry* entry = FindLocked(side, kind, path);
  return entry != nullptr ? std::optional<Fault>(entry->fault) : std::nullopt;
}

bool FaultSet::WaitWhileFrozen(FaultSide side, const std::string& path) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [&] { return m_interrupted || FindLocked(side, Fault::Kind::Freeze, path) == nullptr; });
  return !m_interrupted;
}

void FaultSet::SetInterrupted(bool interrupted) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_interrupted = interrupted;
  Changed(lock);
}

FaultSet::Id FaultSet::AddListener(std::function<void()> listener) {
  std::lock_guard<std::mutex> lock(m_listenerMutex);
  const Id id = m_nextListenerId++;
  m_listeners.emplace(id, std::move(listener));
  return id;
}

void FaultSet::RemoveListener(Id id) {
  std::lock_guard<std::mutex> lock(m_listenerMutex);
  m_listeners.erase(id);
}

void FaultSet::Changed(std::unique_lock<std::mutex>& lock) {
  unsigned sides = 0;
  for (const Entry& entry : m_entries) sides |= static_cast<unsigned>(entry.fault.side);
  m_sides = sides;
  lock.unlock();
  m_changed.notify_all();
  std::lock_guard<std::mutex> listeners(m_listenerMutex);
  for (auto& [id, listener] : m_listeners) listener();
}

}  // namespace camsim
