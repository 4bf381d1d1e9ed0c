// The thread of all transfers of the process.
#pragma once

#include <curl/curl.h>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "Base/Mutex.h"
#include "Platform/Dispatch.h"
#include "Platform/Linux/HTTP/CurlConnections.h"
#include "Platform/Linux/HTTP/CurlTransfer.h"

namespace installer {

// The destructor ends the thread and drops running transfers without `didEnd`. Not to be destroyed on it.
class CurlEngine {
 public:
  explicit CurlEngine(const LinuxHostSettings& settings);
  ~CurlEngine();
  CurlEngine(const CurlEngine&) = delete;
  CurlEngine& operator=(const CurlEngine&) = delete;

  // Any thread. Runs `work` on the engine's thread, outside every transfer, in the order of posting.
  void post(Work work);
  // Like `post`, and waits for the end of `work`. Not to be called on the engine's thread.
  void run(const Work& work);

  // Any thread. Without a network, a failed name lookup doesn't prove that the name doesn't exist.
  bool hasNetwork() const { return connections_.isClosedNetwork() || hasNetworkInterface(); }

  // On the engine's thread only, and not from inside a transfer.
  CurlTransfer* start(HTTPRequest request, std::shared_ptr<CurlTransfer::Client> client);
  void drop(CurlTransfer* transfer);  // ends it without `didEnd`; null does nothing

 private:
  CurlConnections connections_;
  CURLM* multi_;
  std::map<CURL*, std::unique_ptr<CurlTransfer>> transfers_;  // the engine's thread only

  Mutex mutex_;
  std::vector<Work> posted_ GUARDED_BY(mutex_);
  bool isStopping_ GUARDED_BY(mutex_) = false;
  std::thread thread_;

  void serve();
  bool runPosted();
  void endFinished();
  void endSilent();
  int untilNextDeadline() const;  // milliseconds
  void end(CURL* handle, const CurlFailure& failure);
  std::unique_ptr<CurlTransfer> take(CURL* handle);
};

}  // namespace installer
