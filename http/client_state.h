// What all requests of a client share.
#ifndef OX_HTTP_CLIENT_STATE_H_
#define OX_HTTP_CLIENT_STATE_H_

#include <memory>

#include "http/background_refresh.h"
#include "http/running_exchanges.h"
#include "http/shared_downloads.h"
#include "http/transfer_loop.h"
#include <oxfilecache/http.h>

namespace ox::internal::http {

struct ClientState {
  ClientState(session::CacheSession& cache, ox::http::ClientOptions clientOptions)
      : session(cache), options(std::move(clientOptions)) {}

  session::CacheSession& session;
  const ox::http::ClientOptions options;
  std::unique_ptr<TransferLoop> loop;
  SharedDownloads downloads;
  RunningExchanges running;
  // Destroyed first: its thread uses the others.
  std::unique_ptr<BackgroundRefresh> refresh;
};

}  // namespace ox::internal::http

#endif
