#include "session/metrics.h"

#include <array>
#include <new>

namespace ox::internal {
namespace {

using session::NamedStatistics;
using session::SessionStatistics;

struct Gauge {
  const char* name;
  const char* help;
  std::uint64_t (*value)(const NamedStatistics& cache);
};

constexpr Gauge kGauges[] = {
    {"entries", "Entries in the cache",
     [](const NamedStatistics& cache) { return cache.statistics.entries; }},
    {"size_bytes", "Bytes of entries and of files being written",
     [](const NamedStatistics& cache) { return cache.statistics.bytes; }},
    {"limit_entries", "Entries that the configuration admits",
     [](const NamedStatistics& cache) { return std::uint64_t{cache.limits.maxEntries}; }},
    {"limit_bytes", "Bytes that the configuration admits",
     [](const NamedStatistics& cache) { return std::uint64_t{cache.limits.maxSize}; }},
};

struct Counter {
  const char* name;
  const char* help;
  std::uint64_t SessionStatistics::*value;
};

constexpr Counter kCounters[] = {
    {"hits", "Fetches that gave an entry", &SessionStatistics::hits},
    {"misses", "Fetches that found no entry or a damaged one", &SessionStatistics::misses},
    {"stores", "Entries committed", &SessionStatistics::stores},
    {"renewals", "Metadata replaced without the content", &SessionStatistics::renewals},
    {"removed", "Entries that the program had deleted", &SessionStatistics::removed},
    {"leftovers", "Files deleted because they belonged to no entry", &SessionStatistics::leftovers},
    {"restarts", "Restarts of the manager", &SessionStatistics::restarts},
};

// In the order of EvictionReason.
constexpr std::array<const char*, session::kEvictionReasons> kReasons = {"room", "trim", "age",
                                                                         "limits", "damaged"};

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c == '\n' ? "\\n" : std::string(1, c);
  }
  return escaped;
}

std::string Head(const char* name, const char* type, const char* help) {
  const std::string family = std::string("oxfilecache_") + name + " ";
  return "# TYPE " + family + type + "\n# HELP " + family + help + "\n";
}

std::string Sample(const std::string& name, const NamedStatistics& cache, const std::string& label,
                   std::uint64_t value) {
  return "oxfilecache_" + name + "{cache=\"" + Escaped(cache.cache) + "\"" + label + "} " +
         std::to_string(value) + "\n";
}

std::string CountersText(const std::vector<NamedStatistics>& caches) {
  std::string text;
  for (const Counter& counter : kCounters) {
    text += Head(counter.name, "counter", counter.help);
    for (const NamedStatistics& cache : caches) {
      text +=
          Sample(std::string(counter.name) + "_total", cache, "", cache.statistics.*counter.value);
    }
  }
  return text;
}

std::string EvictionsText(const std::vector<NamedStatistics>& caches) {
  std::string text = Head("evictions", "counter", "Entries that the cache deleted by itself");
  for (const NamedStatistics& cache : caches) {
    for (std::size_t i = 0; i < kReasons.size(); ++i) {
      text += Sample("evictions_total", cache, std::string(",reason=\"") + kReasons[i] + "\"",
                     cache.statistics.evictions[i]);
    }
  }
  return text;
}

}  // namespace

std::string GaugesText(const std::vector<NamedStatistics>& caches) {
  std::string text;
  for (const Gauge& gauge : kGauges) {
    text += Head(gauge.name, "gauge", gauge.help);
    for (const NamedStatistics& cache : caches)
      text += Sample(gauge.name, cache, "", gauge.value(cache));
  }
  return text;
}

}  // namespace ox::internal

namespace ox::session {

std::string MetricsText(const std::vector<NamedStatistics>& caches) {
  try {
    return internal::GaugesText(caches) + internal::CountersText(caches) +
           internal::EvictionsText(caches);
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace ox::session
