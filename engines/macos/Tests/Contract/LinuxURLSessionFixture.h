// URL sessions of this host with a misbehaving server, over real TLS on loopback.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Base/Mutex.h"
#include "Contract/HostileServer.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/URLSession.h"

namespace installer::test {

using nlohmann::json;

inline constexpr auto patience = std::chrono::minutes{2};  // a longer wait fails the test

inline URL cdn(const std::string& path) {
  return *URL::parse("https://cdn.kelo.example" + path);
}

inline std::vector<std::string> namesIn(const Path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator{folder})
    names.push_back(entry.path().filename());
  return names;
}

// Records a session's callbacks, and moves downloads away like the engine.
class SessionRecorder : public URLSessionDelegate {
 public:
  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& /*redirect*/, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override {
    redirects.push_back(newRequest.url.absoluteString());
    if (!followsRedirects) {
      decide(std::nullopt);
      if (cancelsRefused) task->cancel();
      if (invalidates) invalidates->finishTasksAndInvalidate();
      if (invalidates) filesAfterRefusal = namesIn(folder);
      return;
    }
    decide(newRequest);
  }
  void didWriteData(const std::shared_ptr<URLSessionTask>& task, std::int64_t written,
                    std::int64_t expected) override {
    EXPECT_GE(written, lastWritten);
    lastWritten = written;
    lastExpected = expected;
    if (cancelsAt && written >= *cancelsAt) task->cancel();
  }
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location) override {
    status = task->response()->statusCode;
    if (beforeReading) beforeReading();
    std::ifstream file{location, std::ios::binary};
    body = std::string{std::istreambuf_iterator<char>{file}, {}};
    ++finishes;
  }
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>& /*task*/,
                            const std::optional<Error>& failure) override {
    const MutexLock guard{mutex_};
    error = failure;
    ++completions_;
    changed_.notifyAll();
  }

  // True when the next `count` completions came in time.
  bool waitFor(int count) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const MutexLock lock{mutex_};
    while (completions_ < count) {
      if (!changed_.waitUntil(mutex_, deadline)) return completions_ >= count;
    }
    return true;
  }

  bool followsRedirects = true;
  bool cancelsRefused = true;
  std::shared_ptr<URLSession> invalidates;  // after a refusal
  Path folder;
  std::optional<std::int64_t> cancelsAt;
  std::function<void()> beforeReading;  // of a complete download

  std::vector<std::string> redirects;
  std::vector<std::string> filesAfterRefusal{"nothing was refused"};
  std::int64_t lastWritten = 0;
  std::int64_t lastExpected = 0;
  int finishes = 0;
  int status = 0;
  std::string body;
  std::optional<Error> error;

 private:
  Mutex mutex_;
  Condition changed_;
  int completions_ GUARDED_BY(mutex_) = 0;
};

class LinuxDownloads : public ::testing::Test {
 protected:
  void serve(const json& paths, const json& hosts = json::object(), Duration requestTimeout = Duration{60}) {
    server = std::make_unique<HostileServer>(paths, hosts);
    auto settings = server->settings();
    settings.requestTimeout = requestTimeout;
    sessions = makeLinuxURLSessions(settings);
    session = sessions->make(recorder);
  }
  ~LinuxDownloads() override {
    if (session) session->invalidateAndCancel();
    session.reset();
    sessions.reset();
  }

  void run(const std::shared_ptr<URLSessionTask>& task) {
    recorder->lastWritten = 0;
    task->resume();
    ASSERT_TRUE(recorder->waitFor(++ended));
  }
  void download(const std::string& path) { run(session->downloadTask(cdn(path))); }
  // Resumes with the resume data of the last failure.
  void resume() {
    ASSERT_TRUE(recorder->error && recorder->error->downloadResumeData) << "nothing to resume";
    run(session->downloadTaskWithResumeData(*recorder->error->downloadResumeData));
  }
  std::int64_t errorCode() const { return recorder->error ? recorder->error->code : 0; }

  std::vector<std::string> temporaryFiles() const { return namesIn(server->settings().temporaryDirectory()); }

  std::shared_ptr<SessionRecorder> recorder = std::make_shared<SessionRecorder>();
  std::unique_ptr<HostileServer> server;
  std::unique_ptr<URLSessions> sessions;
  std::shared_ptr<URLSession> session;
  int ended = 0;
};

inline constexpr std::size_t kBodySize = 300'000;

inline json whole(int seed = 0) {
  return {{"bytes", kBodySize}, {"seed", seed}};
}
inline json with(json answer, const json& more) {
  answer.update(more);
  return answer;
}
inline json broken() {
  return with(whole(), {{"closeAt", 100'000}});
}
inline json part(const json& ranges, int seed = 0) {
  return with(whole(seed), {{"ranges", ranges}});
}

class LinuxDataTasks : public LinuxDownloads {
 protected:
  struct Answer {
    std::optional<std::string> data;
    std::optional<HTTPURLResponse> response;
    std::optional<Error> error;
  };

  std::future<Answer> start(const URLRequest& request) {
    const auto answered = std::make_shared<std::promise<Answer>>();
    const auto task = session->dataTask(request, [answered](auto data, auto response, auto error) {
      answered->set_value({std::move(data), std::move(response), std::move(error)});
    });
    task->resume();
    return answered->get_future();
  }
  static Answer await(std::future<Answer> answer) {
    if (answer.wait_for(patience) == std::future_status::ready) return answer.get();
    ADD_FAILURE() << "no answer came";
    return {};
  }
  Answer fetch(const URLRequest& request) { return await(start(request)); }
  Answer fetch(const std::string& path) { return fetch(URLRequest{.url = cdn(path)}); }
};

}  // namespace installer::test
