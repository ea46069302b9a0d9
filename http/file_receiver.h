// A body into a file that appears whole or not at all.
#ifndef OX_HTTP_FILE_RECEIVER_H_
#define OX_HTTP_FILE_RECEIVER_H_

#include <string>

#include <oxfilecache/http.h>

namespace ox::internal::http {

class FileReceiver final : public ox::http::BodyReceiver {
 public:
  explicit FileReceiver(std::string path);
  ~FileReceiver();
  FileReceiver(const FileReceiver&) = delete;
  FileReceiver& operator=(const FileReceiver&) = delete;

  Error OnBegin() override;
  Error OnData(const void* data, std::size_t bytes) override;
  // Puts the file in place. Nothing is done when no body has begun.
  Error PutInPlace();

 private:
  const std::string path_;
  std::string temporaryPath_;  // empty: there is none
  UniqueFd file_;
};

}  // namespace ox::internal::http

#endif
