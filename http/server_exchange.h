// A GET that goes to the server, and what becomes of the answer.
#ifndef OX_HTTP_SERVER_EXCHANGE_H_
#define OX_HTTP_SERVER_EXCHANGE_H_

#include "http/body_target.h"
#include "http/get_request.h"
#include "http/part_keeper.h"
#include "http/transfer.h"

namespace ox::internal::http {

class ServerExchange {
 public:
  ServerExchange(const GetRequest& request, Candidate candidate);

  Result Run(Error* error);
  // What callers that wait for the same URL are told.
  const DownloadEnd& End() const { return end_; }

 private:
  using Kind = DownloadEnd::Kind;

  Result Try(Error* error);
  TransferRequest BuildRequest();
  Result TakeAnswer(Transfer& transfer, const TransferHead& head, Error* error);
  Result TakeNotModified(const TransferHead& head, Error* error);
  bool TakeUpPart(const TransferHead& head);
  Result TakeBody(Transfer& transfer, const TransferHead& head, Error* error);
  Error WhyNotKept(const StoredAnswer& answer, std::uint64_t bodyBytes) const;
  Error CopyBody(Transfer& transfer, BodyTarget& target, PartKeeper& part);
  void Commit(const StoredAnswer& answer, BodyTarget& target);
  void ForgetOutdated(int status);
  Result Received(const StoredAnswer& answer, HeaderList shown, BodyTarget& target);
  Result WithoutServer(Error why, Kind end, Error* error);
  Result Again();
  Result WithoutPart();

  const GetRequest& request_;
  ClientState& state_;
  Candidate candidate_;
  RunningExchanges::Mark mark_;
  DownloadEnd end_;
  std::optional<StoredEntry> part_;
  // Limits of the next try: without resuming, without storing.
  bool mayResume_ = true;
  Error whyNotStored_;
  // State of the present try.
  bool isConditional_ = false;
  std::uint64_t offset_ = 0;  // bytes of the part that is stored
  Error transferError_;
  bool isAgain_ = false;
};

}  // namespace ox::internal::http

#endif
