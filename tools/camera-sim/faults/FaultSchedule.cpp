#include "camera_sim/FaultSet.h"

namespace camsim {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto kRandomTick = seconds(1);

const std::vector<Fault::Kind> kRandomKinds = {Fault::Kind::Freeze, Fault::Kind::Reset, Fault::Kind::Delay,
                                               Fault::Kind::Status, Fault::Kind::Cut,   Fault::Kind::Garbage,
                                               Fault::Kind::Slow};

template <typename T>
T Uniform(std::mt19937& engine, T low, T high) {
  return std::uniform_int_distribution<T>(low, high)(engine);
}

}  // namespace

void FaultSchedule::At(std::string pathPrefix, Fault fault, milliseconds at, milliseconds length) {
  const auto on = Clock::now() + at;
  std::lock_guard<std::mutex> lock(m_mutex);
  // Due now: on before the caller goes on, not when the thread gets to it.
  std::optional<FaultSet::Id> id;
  if (at.count() <= 0) id = m_faults.Add(pathPrefix, fault);
  m_timed.push_back(Timed{std::move(pathPrefix), std::move(fault), on, on + length, id});
  EnsureThread();
  m_wake.notify_all();
}

void FaultSchedule::Random(RandomFaults plan) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_randomEngine = std::make_unique<std::mt19937>(plan.seed);
  m_random = std::move(plan);
  EnsureThread();
  m_wake.notify_all();
}

void FaultSchedule::EnsureThread() {
  if (m_thread.joinable()) return;
  m_stopping = false;
  m_thread = std::thread([this] { Run(); });
}

void FaultSchedule::Stop() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
  }
  m_wake.notify_all();
  if (m_thread.joinable()) m_thread.join();
  std::lock_guard<std::mutex> lock(m_mutex);
  m_timed.clear();
  m_random.reset();
}

FaultEpisode FaultSchedule::NextEpisode() {
  std::mt19937& engine = *m_randomEngine;
  const std::vector<Fault::Kind>& kinds = m_random->kinds.empty() ? kRandomKinds : m_random->kinds;
  FaultEpisode episode;
  Fault& fault = episode.fault;
  fault.kind = kinds[Uniform<size_t>(engine, 0, kinds.size() - 1)];
  fault.side = m_random->side;
  if (fault.side == FaultSide::Both) {
    constexpr FaultSide kSides[] = {FaultSide::Http, FaultSide::Rtsp, FaultSide::Both};
    fault.side = kSides[Uniform<int>(engine, 0, 2)];
  }
  if (!KindServes(fault.kind, fault.side)) fault.side = FaultSide::Http;
  episode.length = seconds(Uniform<int64_t>(engine, 1, std::max<int64_t>(1, m_random->longest.count())));
  switch (fault.kind) {
    case Fault::Kind::Status:
      fault.status = Uniform<int>(engine, 0, 1) == 0 ? 500 : 503;
      break;
    case Fault::Kind::Delay:
      // Half short stalls, half longer than the clients' answer time-outs.
      fault.delay = Uniform<int>(engine, 0, 1) == 0 ? milliseconds(Uniform<int>(engine, 200, 3000))
                                                    : seconds(Uniform<int>(engine, 31, 45));
      break;
    case Fault::Kind::Slow:
      fault.bytesPerSecond = Uniform<size_t>(engine, 4000, 64000);
      break;
    case Fault::Kind::Huge:
      fault.size = Uniform<size_t>(engine, 1, 8) << 20;
      break;
    case Fault::Kind::Redirect:
      fault.location = "/axis-cgi/moved.cgi";
      break;
    default:
      break;
  }
  return episode;
}

void FaultSchedule::Run() {
  FaultSet::Id episodeId = 0;  // 0: no episode running (ids start at 1)
  FaultEpisode episode;
  Clock::time_point episodeEnd, nextTick = Clock::now() + kRandomTick;
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_stopping) {
    auto wake = Clock::now() + seconds(3600);
    for (const Timed& timed : m_timed) {
      if (!timed.id) wake = std::min(wake, timed.on);
      if (timed.id && timed.off != timed.on) wake = std::min(wake, timed.off);
    }
    if (m_random) wake = std::min(wake, episodeId ? episodeEnd : nextTick);
    m_wake.wait_until(lock, wake, [&] { return m_stopping; });
    if (m_stopping) break;
    const auto now = Clock::now();
    for (auto it = m_timed.begin(); it != m_timed.end();) {
      if (!it->id && now >= it->on) it->id = m_faults.Add(it->prefix, it->fault);
      if (it->id && it->off != it->on && now >= it->off) {
        m_faults.Remove(*it->id);
        it = m_timed.erase(it);
      } else {
        ++it;
      }
    }
    if (!m_random) continue;
    std::function<void(const FaultEpisode&, bool)> observer = m_random->onEpisode;
    std::optional<bool> told;  // the observer hears of a start (false) or an end (true)
    if (episodeId && now >= episodeEnd) {
      m_faults.Remove(episodeId);
      episodeId = 0;
      told = true;
    } else if (!episodeId && now >= nextTick) {
      nextTick = now + kRandomTick;
      const double chance = m_random->perMinute / 60.0;
      if (std::uniform_real_distribution<double>(0, 1)(*m_randomEngine) < chance) {
        episode = NextEpisode();
        episodeId = m_faults.Add("", episode.fault);
        episodeEnd = now + episode.length;
        told = false;
      }
    }
    if (told && observer) {
      lock.unlock();
      observer(episode, *told);
      lock.lock();
    }
  }
  if (episodeId != 0) m_faults.Remove(episodeId);
  for (const Timed& timed : m_timed) {
    if (timed.id) m_faults.Remove(*timed.id);
  }
}

}  // namespace camsim
