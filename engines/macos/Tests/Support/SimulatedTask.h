// One transfer: the request, the pieces of the answer, redirects, and the end.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Support/SimulatedSession.h"

namespace installer::test {

class SimulatedTask : public URLSessionTask, public std::enable_shared_from_this<SimulatedTask> {
 public:
  enum class Kind { data, download };

  SimulatedTask(SimulatedNetwork& network, std::shared_ptr<SimulatedSession> session, int identifier)
      : network_{network}, session_{std::move(session)}, identifier_{identifier} {}

  // Set the transfer that `resume` starts. Exactly one of them is called, before `resume`.
  void fetchData(const URLRequest& request, DataTaskCompletion completion);
  void download(const URLRequest& request);
  void downloadFrom(const std::string& resumeData);
  void failAtOnce(std::int64_t code);

  int taskIdentifier() const override { return identifier_; }
  void resume() override;
  void cancel() override;
  std::optional<HTTPURLResponse> response() const override { return response_; }

 private:
  SimulatedNetwork& network_;
  std::shared_ptr<SimulatedSession> session_;
  int identifier_;
  Kind kind_ = Kind::download;
  std::optional<URLRequest> request_;
  DataTaskCompletion completion_;
  std::optional<std::int64_t> failsAtOnce_;
  std::optional<HTTPURLResponse> response_;
  std::string received_;   // of the body, with the earlier bytes of a resumed transfer
  std::string validator_;  // of the earlier bytes; empty when there are none
  int redirects_ = 0;
  bool resumed_ = false;
  bool ended_ = false;

  // The current answer.
  ServerAnswer answer_;
  ServerResource* resource_ = nullptr;
  std::int64_t expected_ = -1;
  std::size_t position_ = 0;  // in the answer's body
  std::size_t drop_ = 0;      // where the connection is lost; beyond the body for none

  void request();
  void arrive();
  void redirect();
  void follow(const std::optional<URLRequest>& decision);
  void begin();
  void receivePiece();
  void breakOff();
  void later(Duration delay, void (SimulatedTask::*step)());
  void finish();
  void finishDownload();
  void end(std::optional<Error> error);
  Error lost() const;
};

}  // namespace installer::test
