#include "bench/operations.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace ox::bench {
namespace {

// Numbers of entries that are never stored start here.
constexpr std::size_t kAbsent = 5'000'000;
constexpr std::size_t kFillBlock = 100;

void Expect(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

void Nothing() {}

}  // namespace

const std::vector<std::string>& OperationNames() {
  static const std::vector<std::string> names = {"lookup", "hit",     "content",  "miss", "remove",
                                                 "store",  "replace", "start-up", "churn"};
  return names;
}

BlockLimits LimitsOf(const std::string& operation, std::size_t entries) {
  if (operation == "start-up") return {entries <= 1000 ? 41U : 9U, 1};
  if (operation == "store" || operation == "replace" || operation == "remove")
    return {61, std::min<std::size_t>(entries / 2, 100)};
  if (operation == "churn") return {61, 100};
  return {81, 2000};
}

Bench::Bench(const std::string& name, const std::string& parent, std::size_t entries,
             std::size_t contentBytes, bool countsKernel)
    : workload_(contentBytes),
      entries_(entries),
      fetched_(contentBytes),
      directory_(parent + "/" + name),
      nextNew_(entries) {
  Expect(!std::filesystem::exists(directory_), "the work directory is in use");
  std::filesystem::create_directories(directory_);
  contender_ = bench::Make(name, {directory_, entries, contentBytes, countsKernel});
  contender_->Open();
  Fill();
}

Bench::~Bench() {
  contender_->Close();
  contender_.reset();
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void Bench::Fill() {
  for (std::size_t first = 0; first < entries_; first += kFillBlock) {
    std::vector<std::string> urls;
    for (std::size_t i = first; i < std::min(first + kFillBlock, entries_); ++i)
      urls.push_back(workload_.Url(i));
    const std::size_t count = urls.size();
    contender_->Prepare(std::move(urls));
    for (std::size_t i = 0; i < count; ++i)
      contender_->Store(i, workload_.Content(first + i), workload_.Metadata());
  }
  PrepareDistinct(std::min<std::size_t>(entries_, 500));
  for (std::size_t i = 0; i < numbers_.size(); ++i) {
    Expect(contender_->Fetch(i, Want::kContent, &fetched_), "a stored entry is missing");
    Expect(std::string_view(fetched_.metadata, fetched_.metadataBytes) == workload_.Metadata() &&
               std::string_view(fetched_.content.data(), fetched_.contentBytes) ==
                   workload_.Content(numbers_[i]),
           "an entry came back changed");
  }
}

void Bench::PrepareRandom(std::size_t count, std::size_t firstNumber) {
  numbers_ = shuffle_.Draw(count, entries_);
  std::vector<std::string> urls;
  for (const std::size_t number : numbers_)
    urls.push_back(workload_.Url(firstNumber + number));
  contender_->Prepare(std::move(urls));
}

void Bench::PrepareDistinct(std::size_t count) {
  numbers_ = shuffle_.DrawDistinct(count, entries_);
  std::vector<std::string> urls;
  for (const std::size_t number : numbers_)
    urls.push_back(workload_.Url(number));
  contender_->Prepare(std::move(urls));
}

void Bench::StoreAll(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    contender_->Store(i, workload_.Content(numbers_[i]), workload_.Metadata());
}

void Bench::RemoveAll(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    contender_->Remove(i);
}

Operation Bench::Make(const std::string& operation) {
  if (operation == "lookup") return Fetching(Want::kLookup, 0, true);
  if (operation == "hit") return Fetching(Want::kMetadata, 0, true);
  if (operation == "content") return Fetching(Want::kContent, 0, true);
  if (operation == "miss") return Fetching(Want::kLookup, kAbsent, false);
  if (operation == "store") return Storing();
  if (operation == "replace") return Replacing();
  if (operation == "remove") return Removing();
  if (operation == "churn") return Churning();
  if (operation == "start-up") return Starting();
  throw std::runtime_error("no operation of the name " + operation);
}

Operation Bench::Fetching(Want want, std::size_t firstNumber, bool isThere) {
  return {[this, firstNumber](std::size_t count) { PrepareRandom(count, firstNumber); },
          [this, want, isThere](std::size_t i) {
            Expect(contender_->Fetch(i, want, &fetched_) == isThere, "a fetch went wrong");
          },
          Nothing};
}

Operation Bench::Storing() {
  return {[this](std::size_t count) {
            PrepareDistinct(count);
            RemoveAll(count);
          },
          [this](std::size_t i) {
            contender_->Store(i, workload_.Content(numbers_[i]), workload_.Metadata());
          },
          Nothing};
}

Operation Bench::Replacing() {
  return {[this](std::size_t count) { PrepareDistinct(count); },
          [this](std::size_t i) {
            contender_->Store(i, workload_.Content(numbers_[i]), workload_.Metadata());
          },
          Nothing};
}

Operation Bench::Removing() {
  return {[this](std::size_t count) { PrepareDistinct(count); },
          [this](std::size_t i) { contender_->Remove(i); }, [this] { StoreAll(numbers_.size()); }};
}

Operation Bench::Churning() {
  // The floor learns here which entries there are.
  contender_->Close();
  contender_->Open();
  return {[this](std::size_t count) {
            std::vector<std::string> urls;
            numbers_.clear();
            for (std::size_t i = 0; i < count; ++i, ++nextNew_) {
              numbers_.push_back(nextNew_);
              urls.push_back(workload_.Url(nextNew_));
            }
            contender_->Prepare(std::move(urls));
          },
          [this](std::size_t i) {
            contender_->Store(i, workload_.Content(numbers_[i]), workload_.Metadata());
          },
          Nothing};
}

Operation Bench::Starting() {
  return {[this](std::size_t count) {
            contender_->Close();
            PrepareRandom(count, 0);
          },
          [this](std::size_t i) {
            contender_->Open();
            Expect(contender_->Fetch(i, Want::kLookup, &fetched_), "a fetch went wrong");
          },
          Nothing};
}

}  // namespace ox::bench
