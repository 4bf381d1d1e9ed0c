// The one thread on which all transfers of the process run.
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

// Destruction ends the thread; what still runs is dropped without `didEnd`. Not to be destroyed on it.
class CurlEngine {
 public:
  explicit CurlEngine(const LinuxHostSettings& settings);
  ~CurlEngine();
  CurlEngine(const CurlEngine&) = delete;
  CurlEngine& operator=(const CurlEngine&) = delete;

  // Any thread: runs `work` on the engine's, outside every transfer, in the order of posting.
  void post(Work work);
  // The same, and waits for it. Not to be called on the engine's thread.
  void run(const Work& work);

  // Any thread. Without a network a name that isn't found says nothing about the name.
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
