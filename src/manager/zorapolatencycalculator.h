#pragma once
// ZORAPOLatencyCalculator: the one latency every chain of a stream reports,
// whichever mode and layouts it is built for, so that switching chains (and
// falling back on the bypass path) never moves audio in time. It builds
// every candidate chain once and keeps the largest natural latency. That is
// slow, so the figure is cached in the endpoint's settings key, tagged with
// the configuration file's time stamp: a changed file alone invalidates it.
//
// Configuration thread (the manager's Initialize). Each call builds its own
// temporary chain; the cache is two registry values that any process may
// rewrite with the same figure, so concurrent calculators need no lock.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "config/zorapoconfigurationfile.h"
#include "platform/registry.h"
#include "system/zorapoendpointinfo.h"

class ZORAPOLatencyCalculator {
 public:
  static constexpr std::u16string_view kCacheIdName = u"VelApoCfgLatencyCacheId";
  static constexpr std::u16string_view kLatencyName = u"VelApoCfgLatency";
  // Candidates are built at this location, where every chain runs two
  // channels, and at the rate the manager asks for.
  static constexpr uint32_t kCandidateLocation = 0;

  ZORAPOLatencyCalculator() = default;
  virtual ~ZORAPOLatencyCalculator() = default;

  // Finds the largest latency (units of 10 ns) of the chains `modes` build
  // at `rate` for every pair of the layouts mono, stereo, 5.1 and 7.1, or
  // takes it from the cache when the configuration file has not changed.
  // False when no chain could be built (the result is then 0).
  bool Calculate(const ZORAPOEndpointInfo& endpoint,
                 const ZORAPOConfigurationFile::ModeList& modes, uint32_t rate);
  uint64_t GetResult() const { return m_result; }
  // Chains the last Calculate built; 0 when the cache answered.
  uint32_t GetConstructionCount() const { return m_constructions; }

  // The cache identifier of a configuration file: its last-write time as
  // one number, 0 when it can't be read (which no cache matches).
  static uint64_t FileStamp(const std::u16string& path);
  // A cached value as stored: REG_QWORD of exactly eight little-endian
  // bytes, anything else refused.
  static bool ParseQword(zor::os::RegType type, std::span<const uint8_t> data, uint64_t& value);

 private:
  uint64_t m_result = 0;
  uint32_t m_constructions = 0;
};
