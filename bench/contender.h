// What is measured: the floor, our cache in several forms, and its peers, behind one interface.
//
// Every operation that fails throws std::runtime_error: a figure of a failed operation is none.
#ifndef OX_BENCH_CONTENDER_H_
#define OX_BENCH_CONTENDER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/counting_kernel.h"
#include "bench/workload.h"
#include <oxfilecache/format.h>

namespace ox::bench {

enum class Want {
  kLookup,    // the entry is found and its metadata read; the caller takes none of it
  kMetadata,  // from a URL in UTF-8 to the bytes of the metadata
  kContent,   // the same, and the bytes of the content
};

// Where a fetch leaves what it found: the caller's own memory, as every user needs it in the end.
struct Fetched {
  explicit Fetched(std::size_t maxContent) : content(maxContent + 1) {}

  char metadata[format::kTextBytes];
  std::size_t metadataBytes = 0;
  std::vector<char> content;  // a byte longer than needed, so that a longer content shows
  std::size_t contentBytes = 0;
};

class Contender {
 public:
  virtual ~Contender() = default;

  // Starts on whatever the directory holds, and stops again.
  virtual void Open() = 0;
  virtual void Close() = 0;

  // The URLs that the operations below name by index. Turns them into what this contender's user
  // would have at hand, outside of the measured time.
  virtual void Prepare(std::vector<std::string> urls) { urls_ = std::move(urls); }

  virtual void Store(std::size_t index, std::string_view content, const std::string& metadata) = 0;
  // False when it is not there.
  virtual bool Fetch(std::size_t index, Want want, Fetched* out) = 0;
  virtual void Remove(std::size_t index) = 0;

  // What the module has asked its kernel for; only of a contender that was set to count it.
  virtual std::optional<KernelCounts> Counts() const { return std::nullopt; }

 protected:
  const std::string& Url(std::size_t index) const { return urls_[index]; }

 private:
  std::vector<std::string> urls_;
};

struct Setting {
  std::string directory;  // empty, the contender's own
  std::size_t entries;    // the limit, where the contender knows one
  std::size_t contentBytes;
  bool countsKernel = false;  // which makes its calls slower
};

using MakeContender = std::function<std::unique_ptr<Contender>(const Setting&)>;

// Each contender's source file holds one of these, so that a missing library leaves out a file and
// nothing else.
class Registration {
 public:
  Registration(const char* name, MakeContender make);
};

std::vector<std::string> ContenderNames();
// Throws when there is none of that name.
std::unique_ptr<Contender> Make(const std::string& name, const Setting& setting);

}  // namespace ox::bench

#endif
