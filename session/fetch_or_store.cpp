// Fetching with a producer for what is not there: one producer for each URL at a time.
#include <exception>
#include <utility>

#include "session/fetch.h"
#include "session/without_exceptions.h"

namespace ox::session {
namespace {

Error RunProducer(const Producer& producer, StoreWriter& writer, std::string* metadata) {
  try {
    return producer(writer, metadata);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    return MakeError(ErrorKind::kProducer, std::string("the producer threw: ") + exception.what());
  } catch (...) {
    return MakeError(ErrorKind::kProducer, "the producer threw");
  }
}

Error Produce(CacheSession& session, const std::string& url, const Producer& producer) {
  Error error;
  const auto writer = session.Store(url, &error);
  if (writer == nullptr) return error;
  std::string metadata;
  error = RunProducer(producer, *writer, &metadata);
  return error ? error : writer->Commit(metadata);
}

// Ends the production whatever happens. Memory has run out where no error was set.
class RunningProduction {
 public:
  RunningProduction(internal::SessionState& state, const std::string& url)
      : state_(state), url_(url) {}
  ~RunningProduction() {
    // A child that the producer forked has no part in it.
    if (state_.directoryLock->IsHeld()) state_.productions.Finish(url_, std::move(error_));
  }
  RunningProduction(const RunningProduction&) = delete;
  RunningProduction& operator=(const RunningProduction&) = delete;

  void SetError(const Error& error) { error_ = error; }

 private:
  internal::SessionState& state_;
  const std::string& url_;
  Error error_{ErrorKind::kOutOfMemory, {}, {}, 0};
};

}  // namespace

// Success means that there was an entry a moment ago.
Error CacheSession::ProduceOrWait(const std::string& url, const Producer& producer,
                                  std::optional<FetchedEntry>* found, bool* hasProduced) {
  Error error;
  if (!state_->productions.Begin(url, &error)) return error;
  RunningProduction production(*state_, url);
  // Another thread may have finished before this one began.
  FetchedEntry entry;
  error = internal::FetchEntry(*state_, url, &entry);
  if (internal::IsMissing(error)) {
    *hasProduced = true;
    error = Produce(*this, url, producer);
  } else if (!error) {
    *found = std::move(entry);
  }
  production.SetError(error);
  return error;
}

std::optional<FetchedEntry> CacheSession::FetchOrStore(const std::string& url,
                                                       const Producer& producer, Error* error) {
  std::optional<FetchedEntry> found = Fetch(url, error);
  *error = internal::WithoutExceptions([&, result = std::move(*error)]() mutable {
    bool hasProduced = false;
    while (!found && internal::IsMissing(result) && !hasProduced) {
      result = ProduceOrWait(url, producer, &found, &hasProduced);
      if (result || found) break;
      FetchedEntry entry;
      result = internal::FetchEntry(*state_, url, &entry);
      if (!result) found = std::move(entry);
    }
    return result;
  });
  return found;
}

}  // namespace ox::session
