// A cache that keeps its promises, in ten lines:
//
//   ox::session::SessionOptions options;
//   options.directory = "/var/cache/example";
//   options.limits.maxSize = 64 * 1024 * 1024;
//   options.limits.maxEntries = 1000;
//   ox::Error error;
//   auto session = ox::session::CacheSession::Open(options, &error);
//   if (!session) return Report(error.Message());
//   auto writer = session->Store("http://example/", &error);
//   if (!writer || (error = writer->Write(body.data(), body.size())) ||
//       (error = writer->Commit("text/html"))) Report(error.Message());
//   if (auto found = session->Fetch("http://example/", &error)) Serve(found->content.Get());
//
// "file-cache.conf" in the directory keeps the limits from then on. Without it, and without limits
// in the options, the cache admits nothing, and Store says kRefused.
//
// The module's bare interface lends pointers that an eviction invalidates, counts new content as
// nothing, forgets the order of use at a restart and loses the old entry when an update fails. A
// session keeps all of that away from its user:
//
// - Store streams into a staging file; until Commit the old entry serves, and after it the new one.
// - Fetch gives an open content file that stays readable whatever is evicted later.
// - The bytes on disk (content, metadata and staging files, in whole blocks) stay within
//   "MAX_CACHE_SIZE", exceeding it by at most one entry for a moment. What must go is what was used
//   longest ago. A disk that is full makes entries go too.
// - An entry that fits the limits is never refused, unless other writers hold the room for it
//   (StoreWriter::Write).
// - The order of use survives restarts: it is kept in the metadata files' times.
// - One process owns a cache directory at a time. The kernel keeps the lock, on the directory
//   itself, and drops it when the process ends.
//
// Errors are values (error.h): no function throws and none prints. Functions with an `Error*` clear
// it first; it may not be null.
//
// Threads: every function of a session from any thread. A StoreWriter and a FetchedEntry belong to
// one thread at a time.
//
// Processes: a child made with fork has no part in the lock, also when it lives longer than its
// parent. Its copies of a session and of writers are not for use: every operation is an error there
// (kInUse), and Statistics and Limits give zeros. Destroying them is allowed and does nothing to
// the cache.
//
// A process may have any number of sessions open, one for each directory. A module has one manager,
// so each session beside the first loads a copy of the module of its own, some tens of kilobytes
// that stay in memory until it is closed. That takes memfd_create(2), which Linux has since 3.17,
// and /proc. A program that loads the module itself as well (LoadedModule) cannot open a session
// meanwhile (kModule), unless the session gets another file of the module.
#ifndef OXFILECACHE_SESSION_H_
#define OXFILECACHE_SESSION_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>
#include <oxfilecache/eviction.h>
#include <oxfilecache/listed_entry.h>

namespace ox::internal {
struct SessionState;
struct Staging;
}  // namespace ox::internal

namespace ox::session {

// What a commit guarantees. A removal or an eviction is never synchronised: a power cut may bring
// the entry back.
//
// What storing a small entry costs, counted with strace from Store to the end of the writer:
//
//                  system calls        changing names        waiting for the medium
//                new   replacement    new   replacement        ordered    others
//   kNone         11       14          3         5                0          0
//   kProcess      11       14          3         5                0          0
//   kPower        18       20          5         5                1          3
//
// At none and process one call more where the disk is asked what the seal takes, as for the first
// entry. The names of a replacement: two files made, and three renamed, or one deleted and two
// renamed. What waits for the medium is fsync of metadata, content and directory; on an ordered
// file system of the directory alone: ext4 with data=ordered, barriers and a journal of its own,
// and f2fs, on Linux 5.2 or later. There the bytes of both files are written out before, and the
// journal, which keeps the order, brings all of it to the medium with the directory. Of the
// directory there are three for a replacement where the file system has no extended attributes, and
// two for a new entry where a file of that name may have been deleted since the last time. Other
// threads wait while the directory is synchronised, and while a metadata file that need not be on
// the medium is written.
enum class Durability {
  // An entry being replaced may be gone after a kill or a power cut, and after a failed commit.
  kNone,
  // A killed process leaves the old or the new entry, never half and never neither. So does a
  // failed commit. A power cut may lose or damage what the system has not yet written.
  kProcess,
  // So does a power cut, and once Commit returned the new entry is on the medium. Where the file
  // system cannot synchronise a file or a directory, Commit is an error (kInputOutput): there is
  // no weaker commit in its place. It takes a file system whose directories survive the cut: ext4
  // with its journal, f2fs, UBIFS; not vfat, exFAT or ext4 without a journal.
  kPower,
};

// How far a fetch makes sure that an entry is what was committed. A commit keeps the length and the
// CRC-32C of the content, the CRC-32C of the metadata and the URL with the entry, as an extended
// attribute of the metadata file. Where there is none nothing is checked: the file system has no
// extended attributes, a copy of the cache lost them, or another program stored the entry.
//
// Whatever the choice, the URL, the length and the metadata are looked at when an entry is fetched
// for the first time, and again after its content file was changed or replaced in any way that the
// file system notes.
enum class Check {
  kNever,  // never reads the content to compare its sum
  // The content's sum at the same times. It reads the whole content, once for each start of the
  // session. What this session has stored itself counts as looked at.
  kOnce,
  kAlways,  // the content's sum at every fetch: also finds a medium that changes bits
};

// What a cache may hold. "file-cache.conf" keeps it.
struct CacheLimits {
  // Bytes of all entries together, counted as the disk gives them out: in whole blocks, content and
  // metadata each. At least 1,024.
  std::uint32_t maxSize = 0;
  std::uint32_t maxEntries = 0;    // number of entries; 0 admits nothing
  std::uint32_t maxEntrySize = 0;  // bytes of content and metadata of one entry; at least 1,024
  std::string cacheDirectory;      // where the entries are; not changed while it is in use
};

// How a session is opened. Only the directory has to be set.
struct SessionOptions {
  // Holds "file-cache.conf" and, unless that names another directory, the cache. Made, with mode
  // 0700, when it is missing. In UTF-8; a relative one is taken from the working directory that the
  // process has at Open.
  std::string directory;
  // The module's shared library. Empty: the one that belongs to this library, which is looked for
  // beside the executable, in "../lib/oxfilecache" seen from there, and where this library was
  // configured to be installed (for a project that takes the sources in: where they are built). A
  // name without "/" is looked for as dlopen(3) does.
  std::string modulePath;
  // Written to "file-cache.conf" where there is none. Where there is one, that holds, and these do
  // nothing: CacheSession::SetLimits changes it. A maxEntries of 0 stands for no limits given, a
  // maxEntrySize of 0 for maxSize, and without a cacheDirectory the entries are in `directory`.
  CacheLimits limits;
  // So many bytes of the file system stay free. Where they are not, because others fill it, Store
  // and SetMetadata evict entries. They are an error when none is left to evict, or when 16 entries
  // and four times the bytes needed went in vain (others may hold deleted files open).
  std::uint64_t minFree = 0;
  // How much of the disk a file takes is counted in blocks of so many bytes. 0: as the file system
  // says. 1, the lengths of the files themselves, suits one that compresses or packs them.
  std::uint32_t blockSize = 0;
  Durability durability = Durability::kProcess;  // what a commit guarantees
  // A fetch writes the time of use at most this often for each entry: flash wears.
  std::chrono::seconds touchInterval{60};
  Check check = Check::kOnce;  // how far a fetch looks for damage
  // What Fetch says of an entry that was not what had been committed: kDamaged in place of
  // kNotFound. It is deleted either way.
  bool reportDamaged = false;
  // Called for each entry that the session evicts, at the end of the call that did it, on the
  // caller's thread and with none of the session's locks held: it may use the session, but not
  // destroy it, and must not throw. What Open evicts it tells before Open returns. Calls of several
  // threads may overlap. Where memory runs out an eviction may be counted and not told.
  std::function<void(const Eviction&)> onEviction;
  // Open although the configuration admits no entry and the cache holds some, which deletes them.
  bool allowDeletingAll = false;
};

// How far TrimTo deletes. Fields that are not set set no target.
struct TrimTarget {
  std::optional<std::uint64_t> bytes;    // at most so many, counted as CacheLimits::maxSize
  std::optional<std::uint64_t> entries;  // at most so many
  // Entries go that were not used for at least so long. Uses are noted each touchInterval, so one
  // may have been used later by that much. By the device's clock: where that starts at 1970 at each
  // boot, nothing is old.
  std::optional<std::chrono::seconds> unusedFor;
};

// Counts of one session. A plain value: it does not change any more.
struct SessionStatistics {
  std::uint64_t entries = 0;   // committed entries
  std::uint64_t bytes = 0;     // on disk, in whole blocks: content, metadata, staging files
  std::uint64_t restarts = 0;  // of the manager since Open
  // Since Open began, by EvictionReason.
  std::array<std::uint64_t, kEvictionReasons> evictions{};
  std::uint64_t trimmed = 0;  // of these evictions all but those of damaged entries
  std::uint64_t damaged = 0;  // entries deleted because they were not what was committed
  // Files deleted since Open began because they belonged to no entry: staged files that a crash
  // left, content without metadata, metadata without content.
  std::uint64_t leftovers = 0;
  // The following since Open, too.
  std::uint64_t hits = 0;      // fetches that gave an entry
  std::uint64_t misses = 0;    // fetches that found no entry, or a damaged one
  std::uint64_t stores = 0;    // commits that succeeded
  std::uint64_t renewals = 0;  // calls of SetMetadata that succeeded
  std::uint64_t removed = 0;   // entries deleted by Remove, RemoveIf and Clear
};

// A found entry. It owns the open file and has copies of the texts, so it stays good after the
// entry was replaced, evicted or removed, and after the session is closed.
struct FetchedEntry {
  UniqueFd content;        // open for reading, at the start; a regular file
  std::uint64_t size = 0;  // bytes of the content
  std::string metadata;    // exactly what was committed
  std::string path;        // of the content file, for messages; do not open it again
};

// A found entry, all of it in memory.
struct WholeEntry {
  std::string content;   // exactly what was committed, as far as Check has looked
  std::string metadata;  // exactly what was committed
};

// One entry on its way in, from CacheSession::Store. Destroying it without a successful Commit
// leaves the older entry of its URL as it was; what was evicted for its bytes stays evicted.
//
// Once the session is destroyed, Write and Commit are errors (kInvalidArgument). A call that is
// under way then on another thread comes to its end, and only after that the directory is free.
//
// Threads: one at a time.
class StoreWriter {
 public:
  ~StoreWriter();
  StoreWriter(const StoreWriter&) = delete;
  StoreWriter& operator=(const StoreWriter&) = delete;

  // Appends to the content. kRefused as soon as it grows above the limit of one entry or of the
  // whole cache; the writer is then good for nothing but dropping. Making room may evict.
  //
  // Several writers at once share "MAX_CACHE_SIZE", but for the one that wrote first. Where they
  // exceed it together, all but that one wait, here and in Commit, for another to end. kRefused
  // instead when the first one was last used by this very thread, or none ends within 30 seconds.
  Error Write(const void* data, std::size_t bytes);

  // Makes the entry visible in place of an older one of its URL. Metadata: 1 to 1,024 bytes of
  // ASCII without NUL; anything else would come back cut, so it is refused (kInvalidArgument).
  // Content may not be empty: the next start would delete it (kInvalidArgument). kRefused when
  // content and metadata together exceed the limit of one entry. kInputOutput when a system call
  // fails, also when somebody deleted the staged content. After any error the old entry still
  // serves (see Durability), and Commit may be tried again after kInvalidArgument. Once it
  // succeeded the writer is used up.
  Error Commit(const std::string& metadata);

  // The same as the entry of another URL, where it shows only at the end what the content is.
  Error CommitAs(const std::string& url, const std::string& metadata);

  // Should the process end before Commit, what was written so far becomes the entry of that URL,
  // with this metadata, when the session is opened next; with Durability::kPower after a power cut
  // too. A later call, which must name the same URL, takes the place of an earlier one. Destroying
  // the writer, or a successful Commit, deletes what was kept; a process that ends within Commit
  // may leave neither it nor the new entry. Errors are those of Commit, and kRefused where the file
  // system keeps no extended attributes; the writer can go on unless its content could not be
  // synchronised.
  Error KeepAs(const std::string& url, const std::string& metadata);

 private:
  friend class CacheSession;
  explicit StoreWriter(std::unique_ptr<internal::Staging> staging);
  std::unique_ptr<internal::Staging> staging_;
};

// Makes the entry that FetchOrStore did not find: writes the content and says the metadata, which
// FetchOrStore then commits. An error of it is FetchOrStore's.
using Producer = std::function<Error(StoreWriter& writer, std::string* metadata)>;

// A cache in use. The object owns the loaded module, the manager and the lock.
//
// While the directory's path no longer leads to what was opened (it was deleted, moved or replaced,
// or something is mounted over it), Fetch, Remove, Trim, Write and Commit are errors (kInputOutput)
// from at most a second later on. When the directory is back at its path the session restarts the
// manager and goes on.
//
// Threads: every function from any thread, but for the destructor.
class CacheSession {
 public:
  // Null and an error when the directory cannot be used, the module not loaded (kModule), another
  // process or session has the cache (kInUse, with the number of the process), or the configuration
  // would delete what is there (kConfiguration): when it admits no entry, or names a cache
  // directory that the module would misread. A configuration that cannot be read whole is
  // kInputOutput.
  //
  // Finishes commits that a crash interrupted, deletes staged files and files without their
  // counterpart, and brings the cache within its limits. A file that this user may not delete
  // stays. A commit that cannot be finished, since a directory stands under a name of its entry, is
  // left for a later opening. An entry whose time of use is impossible (later than a day from now
  // and than the start of 2037) counts as used longest ago.
  static std::unique_ptr<CacheSession> Open(const SessionOptions& options, Error* error);
  // Unlocks the directory and unloads the module; deletes no entry. No call of this object may be
  // under way. Where one of its writers is at work on another thread, the directory stays locked
  // until that call ends. Writers that are left get errors from then on, and what they have staged
  // is deleted with them.
  ~CacheSession();
  CacheSession(const CacheSession&) = delete;
  CacheSession& operator=(const CacheSession&) = delete;

  // URLs are valid UTF-8, not empty and without NUL, of any length; others are kInvalidArgument,
  // since two of them could meet in one entry. kRefused when the cache is off (maxEntries is 0).
  std::unique_ptr<StoreWriter> Store(const std::string& url, Error* error);

  // Empty with kNotFound when there is no such entry, also when the entry under its name is known
  // to be another URL's (two URLs can have one MD5 digest, which names the files) or was damaged
  // and is deleted now (see Check). kInputOutput when a file of it cannot be read; such an entry
  // can be removed and replaced.
  std::optional<FetchedEntry> Fetch(const std::string& url, Error* error);

  // Fetches the entry, or has it produced, stored and fetched. Of many callers at a time, one has
  // its producer run, and the others wait for that and get the entry, or the error. Calls for other
  // URLs go on meanwhile: no lock is held. A call runs its producer once at most, on its own
  // thread; kNotFound where the entry was evicted or removed before it could be fetched.
  //
  // The producer may use the session, also FetchOrStore for other URLs. kInvalidArgument where
  // producers would wait for each other in a circle, as one does that asks for its own URL. An
  // exception that it throws becomes kProducer; std::bad_alloc becomes kOutOfMemory. What the
  // limits refuse is produced and not returned: kRefused.
  std::optional<FetchedEntry> FetchOrStore(const std::string& url, const Producer& producer,
                                           Error* error);

  // Store, Write and Commit in one.
  Error StoreWhole(const std::string& url, std::string_view content, const std::string& metadata);
  // Fetch, and the content read into memory: kOutOfMemory where it does not fit there.
  std::optional<WholeEntry> FetchWhole(const std::string& url, Error* error);

  // Whether there is an entry of that URL. No use of it: neither its time nor the order of eviction
  // changes. Looks at names, sizes and URL alone, so a Fetch may still find the entry damaged.
  bool Contains(const std::string& url, Error* error);

  // The entries, in the order of the times of use on disk, least recently used first. Nobody can
  // use the session meanwhile: reads the directory and each entry's URL.
  std::vector<ListedEntry> List(Error* error);

  // Replaces the metadata of an entry and leaves its content alone: one renaming, so that whatever
  // happens the old metadata or the new one is there. Counts as a use of the entry. The limits of
  // metadata and the guarantees of the session's durability are those of StoreWriter::Commit.
  // kNotFound when there is no such entry.
  Error SetMetadata(const std::string& url, const std::string& metadata);

  // The same only while the entry's metadata is still `expected`, so that nothing is said of
  // content that has taken its place since it was fetched. Otherwise kNotFound.
  Error SetMetadata(const std::string& url, const std::string& expected,
                    const std::string& metadata);

  // Deletes the entry. kNotFound when there is none; kInputOutput when its files cannot be deleted.
  // No deletion waits for the medium: a power cut shortly after may bring the entry back, whole.
  Error Remove(const std::string& url);

  // Deletes all entries that are there when it is called. Their number goes to `deleted`, also
  // after an error, unless that is null. What is being written meanwhile is not concerned.
  Error Clear(std::uint64_t* deleted);

  // Deletes the entries for which the predicate is true; otherwise as Clear. The predicate is asked
  // on this thread and with no lock held. It must not throw. An entry that is replaced after the
  // predicate was asked stays. Both end with a restart of the manager, as Trim does.
  Error RemoveIf(const std::function<bool(const ListedEntry&)>& isUnwanted, std::uint64_t* deleted);

  // Brings the cache to 90 % of its limits as a full cache would, deletes what belongs to no entry,
  // and restarts the manager. The number of entries deleted goes to `deleted` unless that is null.
  Error Trim(std::uint64_t* deleted);

  // The same down to a target.
  Error TrimTo(const TrimTarget& target, std::uint64_t* deleted);

  // The limits that hold now; zeros in a forked child. Another program's change of
  // "file-cache.conf" counts from the next opening on.
  CacheLimits Limits() const;
  // Replaces "file-cache.conf", comments included, and brings the cache within the new limits at
  // once. kInvalidArgument for limits that admit nothing, and for a cacheDirectory that is neither
  // empty nor the present one. After an error the old limits hold in this session, unless it was
  // the restart that failed; the file may have the new ones already.
  Error SetLimits(const CacheLimits& limits);
  // What was counted since Open, and how much is in the cache now as far as the session knows: the
  // disk is not asked, so what other programs change there shows after the next restart of the
  // manager. May wait for a call on another thread that is at work on the directory. All 0 in a
  // forked child.
  SessionStatistics Statistics() const;

 private:
  CacheSession();
  Error ProduceOrWait(const std::string& url, const Producer& producer,
                      std::optional<FetchedEntry>* found, bool* hasProduced);
  std::shared_ptr<internal::SessionState> state_;  // shared with calls of writers alone
};

// Reads the limits the way the module does, without scanning, deleting or making anything: the real
// module is started over a file system that shows it the configuration and an empty directory. An
// empty modulePath means the default, as in SessionOptions.
// kModule or kInputOutput on failure. Threads: any, also while sessions are open.
Error ReadLimits(const std::string& directory, const std::string& modulePath, CacheLimits* limits);

}  // namespace ox::session

#endif
