#include "http/transfer.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <limits>
#include <new>

namespace ox::internal::http {
namespace {

// A paused transfer holds so much at most, and what the decoder makes of one more piece.
constexpr std::size_t kMaxBufferedBytes = 128 * 1024;
constexpr std::chrono::milliseconds kTick{100};
constexpr long kPackedPieceBytes = 4096;
constexpr char kTooLarge[] = "the body is larger than allowed";
constexpr int kPartialContent = 206;
constexpr int kNotModified = 304;
constexpr char kProtocols[] = "http,https";

}  // namespace

const std::string& AcceptedEncodings() {
  static const std::string text = [] {
    const int features = curl_version_info(CURLVERSION_NOW)->features;
    std::string names;
    if ((features & CURL_VERSION_LIBZ) != 0) names = "gzip, deflate";
    if ((features & CURL_VERSION_BROTLI) != 0) names += names.empty() ? "br" : ", br";
    return names;
  }();
  return text;
}

Transfer::Transfer(TransferLoop& loop, const ox::http::ClientOptions& client,
                   const ox::http::RequestOptions& options, const TransferRequest& request)
    : loop_(loop),
      client_(client),
      options_(options),
      request_(request),
      handle_(curl_easy_init()) {
  if (handle_ == nullptr) throw std::bad_alloc();
  SetUp();
  SetUpSecurity();
  SetUpLimits();
  SetUpBody();
}

Transfer::~Transfer() {
  if (isAdded_) loop_.Remove(*this);
}

void Transfer::AddLine(const std::string& line) {
  curl_slist* longer = curl_slist_append(headers_.get(), line.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(headers_.release());
  headers_.reset(longer);
}

void Transfer::SetUp() {
  // curl takes a line without a value as a header to leave out, but for the form with ";".
  for (const Header& header : request_.headers)
    AddLine(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
  const bool isTyped = Find(request_.headers, "Content-Type") != nullptr;
  if (request_.body != nullptr && !isTyped) AddLine("Content-Type:");
  Set(CURLOPT_PRIVATE, static_cast<LoopMember*>(this));
  Set(CURLOPT_URL, request_.url.text.c_str());
  Set(CURLOPT_HTTPHEADER, headers_.get());
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_ERRORBUFFER, message_.data());
  Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_WRITEFUNCTION, &OnBody);
  Set(CURLOPT_WRITEDATA, this);
  // curl knows the names, and asks for those alone; the header itself is among ours.
  if (request_.decode) {
    Set(CURLOPT_ACCEPT_ENCODING, AcceptedEncodings().c_str());
    // While a transfer is paused, libcurl keeps all that the last piece unpacks to.
    Set(CURLOPT_BUFFERSIZE, kPackedPieceBytes);
  }
}

void Transfer::SetUpSecurity() {
  Set(CURLOPT_PROTOCOLS_STR, kProtocols);
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  const char* const none = nullptr;
  if (!client_.caFile.empty()) {
    Set(CURLOPT_CAINFO, client_.caFile.c_str());
    // The system's directory of authorities would count beside it.
    Set(CURLOPT_CAPATH, none);
  }
  if (!client_.certificateFile.empty()) Set(CURLOPT_SSLCERT, client_.certificateFile.c_str());
  if (!client_.keyFile.empty()) Set(CURLOPT_SSLKEY, client_.keyFile.c_str());
  if (!client_.proxy.empty()) {
    Set(CURLOPT_PROXY, client_.proxy.c_str());
    // Otherwise no_proxy of the environment excepts from it.
    Set(CURLOPT_NOPROXY, "");
  }
}

void Transfer::SetUpLimits() {
  // libcurl ignores what is longer.
  const auto limit = [](std::int64_t time) {
    return static_cast<long>(std::min<std::int64_t>(time, std::numeric_limits<int>::max()));
  };
  Set(CURLOPT_CONNECTTIMEOUT_MS, limit(options_.connectTimeout.count()));
  Set(CURLOPT_TIMEOUT_MS, limit(options_.totalTimeout.count()));
  Set(CURLOPT_LOW_SPEED_TIME, limit(options_.silenceTimeout.count()));
  Set(CURLOPT_LOW_SPEED_LIMIT, limit(options_.minimumSpeed));
#if LIBCURL_VERSION_NUM >= 0x075700
  // Otherwise the loop, and with it every other transfer, would wait for a name server that is
  // silent when a transfer that waits for it is given up.
  Set(CURLOPT_QUICK_EXIT, 1L);
#endif
}

void Transfer::SetUpBody() {
  if (request_.method == "HEAD") {
    Set(CURLOPT_NOBODY, 1L);
  } else if (request_.body != nullptr) {
    Set(CURLOPT_POSTFIELDS, request_.body->data());
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body->size()));
    Set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
  }
}

Error Transfer::Start(TransferHead* head) {
  started_ = std::chrono::steady_clock::now();
  deadline_ = DeadlineOf(options_);
  loop_.Add(*this);
  isAdded_ = true;
  const auto isMet = [this]() OX_REQUIRES(mutex_) { return hasHead_ || isDone_; };
  if (Error error = WaitUntil(isMet)) return error;
  const MutexLock lock(mutex_);
  // A limit may be exceeded by the first bytes; what came before does not count then.
  if (!hasHead_ || exceeded_ != nullptr || (isDone_ && code_ != CURLE_OK && buffer_.empty()))
    return Explain();
  *head = head_;
  return {};
}

Error Transfer::Read(std::string* piece) {
  piece->clear();
  const auto isMet = [this]() OX_REQUIRES(mutex_) { return !buffer_.empty() || isDone_; };
  if (Error error = WaitUntil(isMet)) return error;
  ox::http::Progress progress;
  {
    const MutexLock lock(mutex_);
    if (buffer_.empty()) return code_ != CURLE_OK ? Explain() : Error{};
    piece->swap(buffer_);
    if (isPaused_) {
      isPaused_ = false;
      loop_.Unpause(*this);
    }
    progress = ProgressNow();
  }
  return Report(progress);
}

template <typename Condition>
Error Transfer::WaitUntil(Condition isMet) {
  for (;;) {
    // libcurl keeps no time for a transfer that waits for a connection of another one.
    std::chrono::milliseconds left;
    if (Error error = TimeLeft(deadline_, &left)) return error;
    ox::http::Progress progress;
    {
      MutexLock lock(mutex_);
      const auto wait = left.count() > 0 ? std::min(left, kTick) : kTick;
      if (changed_.WaitFor(lock, wait, isMet)) return {};
      progress = ProgressNow();
    }
    if (Error error = Report(progress)) return error;
  }
}

ox::http::Progress Transfer::ProgressNow() const {
  const std::uint64_t total = head_.bodyBytes > 0 ? head_.bodyBytes + offset_ : 0;
  return {received_ + offset_, total};
}

// Without the lock: the caller's function may take its time.
Error Transfer::Report(const ox::http::Progress& progress) {
  const auto now = std::chrono::steady_clock::now();
  if (!options_.onProgress || now - reported_ < kTick) return {};
  reported_ = now;
  return options_.onProgress(progress) ? Error{} : MakeError(ErrorKind::kCancelled, "cancelled");
}

std::size_t Transfer::OnHeader(char* /*data*/, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.headerBytes_ += size * count;
  if (transfer.headerBytes_ <= transfer.options_.maxHeaderBytes) return size * count;
  const MutexLock lock(transfer.mutex_);
  transfer.exceeded_ = "the server's headers are longer than allowed";
  return 0;
}

std::size_t Transfer::OnBody(char* data, std::size_t size, std::size_t count, void* self) {
  return static_cast<Transfer*>(self)->TakeBody(data, size * count);
}

// No exception may pass through libcurl.
std::size_t Transfer::TakeBody(const char* data, std::size_t bytes) {
  const MutexLock lock(mutex_);
  try {
    if (!hasHead_) TakeHead();
    changed_.NotifyAll();
    return Append(data, bytes);
  } catch (const std::bad_alloc&) {
    exceeded_ = "out of memory";
    return CURL_WRITEFUNC_ERROR;
  }
}

std::size_t Transfer::Append(const char* data, std::size_t bytes) {
  if (exceeded_ != nullptr) return CURL_WRITEFUNC_ERROR;
  if (IsTooLarge(bytes)) {
    exceeded_ = kTooLarge;
    return CURL_WRITEFUNC_ERROR;
  }
  if (buffer_.size() >= kMaxBufferedBytes) {
    isPaused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  buffer_.append(data, bytes);
  received_ += bytes;
  return bytes;
}

bool Transfer::IsTooLarge(std::uint64_t more) const {
  const std::uint64_t before = offset_ + received_;
  return before > options_.maxBodyBytes || more > options_.maxBodyBytes - before;
}

bool Transfer::HasExceededLimit() {
  const MutexLock lock(mutex_);
  return exceeded_ != nullptr;
}

// Unless it is done, the time for it was over or its caller has cancelled it.
bool Transfer::HasServerFailed() {
  const MutexLock lock(mutex_);
  return exceeded_ == nullptr && isDone_ && code_ != CURLE_OPERATION_TIMEDOUT;
}

void Transfer::TakeHead() {
  hasHead_ = true;
  long status = 0;
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
  head_.status = static_cast<int>(status);
  if (head_.status == kPartialContent) offset_ = request_.offset;
  // A clock that is set meanwhile must not make the answer old, so the time between is measured.
  const auto passed = std::chrono::steady_clock::now() - started_;
  head_.responseTime = std::time(nullptr);
  head_.requestTime =
      head_.responseTime - std::chrono::duration_cast<std::chrono::seconds>(passed).count();
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(handle_.get(), CURLH_HEADER, -1, header)) != nullptr)
    head_.headers.push_back({header->name, header->value});
  const std::string lengths = Combined(head_.headers, "Content-Length");
  const auto stated = Members(lengths);
  if (std::adjacent_find(stated.begin(), stated.end(), std::not_equal_to<>()) != stated.end()) {
    exceeded_ = "the server states several lengths of the body";
  }
  if (request_.decode && Find(head_.headers, "Content-Encoding") != nullptr) {
    // What these say holds for the body as it was sent.
    for (const char* name : {"Content-Encoding", "Content-Length", "Content-MD5"})
      Remove(&head_.headers, name);
    return;
  }
  curl_off_t length = 0;
  curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  if (length > 0) head_.bodyBytes = static_cast<std::uint64_t>(length);
  const bool hasBody = request_.method != "HEAD" && head_.status != kNotModified;
  if (hasBody && IsTooLarge(head_.bodyBytes)) exceeded_ = kTooLarge;
}

void Transfer::OnDone(CURLcode code) {
  const MutexLock lock(mutex_);
  code_ = code;
  try {
    if (code == CURLE_OK && !hasHead_) TakeHead();
  } catch (const std::bad_alloc&) {
    code_ = CURLE_OUT_OF_MEMORY;
  }
  isDone_ = true;
  changed_.NotifyAll();
}

Error Transfer::Explain() const {
  if (exceeded_ != nullptr) return MakeError(ErrorKind::kInputOutput, exceeded_);
  if (code_ == CURLE_OUT_OF_MEMORY && hasHead_) {
    return MakeError(ErrorKind::kOutOfMemory, "out of memory");
  }
  if (code_ == CURLE_OUT_OF_MEMORY) {
    // What curl says of a line of more than 100 KB too.
    return MakeError(ErrorKind::kInputOutput, "a header is too long, or memory has run out");
  }
  const std::string reason = message_.data();
  // libcurl repeats a proxy that it cannot use, with its password.
  const bool mayBeTold = !reason.empty() && reason.find('@') == reason.npos;
  return MakeError(ErrorKind::kInputOutput, mayBeTold ? reason : curl_easy_strerror(code_));
}

}  // namespace ox::internal::http
