// A look into a cache without owning it: beside a process that has it open, on a read-only mount,
// in an image that is being built, on a machine that cannot load the module.
//
//   ox::session::ReaderOptions options;
//   options.directory = "/var/cache/example";
//   ox::Error error;
//   auto reader = ox::session::CacheReader::Open(options, &error);
//   if (!reader) return Report(error.Message());
//   if (auto found = reader->Fetch("http://example/", &error)) Serve(found->content.Get());
//
// A reader takes no lock, loads no module and writes nothing: not even a time of access, where the
// system lets it ask for that (its own files, or as root). So it notes no use either, and what is
// read in this way alone grows old and is evicted.
//
// It sees what a session would find that opened the cache at that moment: after a crash the entries
// that an opening would put in place, and nothing of a store that is not committed. A reader does
// not know the limits, so it also gives entries that an opening would evict for them.
//
// The owner must be a session. A host of the bare module writes its files in place; beside one,
// content or metadata may be seen half written.
//
// Network file systems show a directory as it was a moment ago. Beside an owner on another machine
// a reader is not sure to find both files of one commit; it says kDamaged then.
#ifndef OXFILECACHE_READER_H_
#define OXFILECACHE_READER_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <oxfilecache/error.h>
#include <oxfilecache/listed_entry.h>
#include <oxfilecache/session.h>

namespace ox::internal {
struct ReaderState;
}  // namespace ox::internal

namespace ox::session {

// How a reader is opened. One of the two directories has to be set.
struct ReaderOptions {
  // Of "file-cache.conf", as for a session. A relative one is taken from the working directory that
  // the process has at Open.
  std::string directory;
  // Where the entries are, in place of what the configuration says, which is not looked at then:
  // the CACHE_DIRECTORY in an image is a path of the device.
  std::string cacheDirectory;
  // As for a session. What kOnce has looked at is kept in the reader, for about 8,000 entries.
  Check check = Check::kOnce;
};

// Threads: every function from any thread, but for the destructor.
class CacheReader {
 public:
  ~CacheReader();
  CacheReader(const CacheReader&) = delete;
  CacheReader& operator=(const CacheReader&) = delete;

  // Null and an error when the directory is not there or its configuration cannot be read
  // (kInputOutput), or names a cache directory that no session would open: an empty one, or one
  // with characters beyond ASCII (kConfiguration). Of the configuration it reads CACHE_DIRECTORY
  // alone, once.
  static std::unique_ptr<CacheReader> Open(const ReaderOptions& options, Error* error);

  // Content and metadata of one commit, whatever the owner does meanwhile. The entry may have been
  // replaced or deleted by the time that it is returned; what is open stays readable.
  //
  // Empty with
  // - kNotFound when there is no such entry, or no cache directory yet, or the entry under its name
  //   is known to be another URL's. While an owner of durability kNone replaces an entry, there is
  //   none for a moment; the reader waits 20 milliseconds for it.
  // - kDamaged when it is not what was committed. It stays: a session that meets it deletes it.
  // - kInputOutput when a file cannot be read.
  // - kInUse when the owner kept replacing this entry for 5 seconds faster than it could be read.
  // - kInvalidArgument for what a session does not take as a URL.
  //
  // Reads the names in the directory once, and again whenever the entry is changed meanwhile, so
  // the time grows with the number of entries.
  std::optional<FetchedEntry> Fetch(const std::string& url, Error* error) const;

  // The entries, least recently used first. An entry that is stored, replaced or deleted meanwhile
  // may be missing, or be listed with the sizes of two commits. Empty, and no error, where there is
  // no cache directory yet.
  std::vector<ListedEntry> List(Error* error) const;

  // Absolute.
  const std::string& CacheDirectory() const;

 private:
  explicit CacheReader(std::unique_ptr<internal::ReaderState> state);
  std::unique_ptr<internal::ReaderState> state_;
};

}  // namespace ox::session

#endif
