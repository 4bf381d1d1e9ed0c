// A task whose body is kept in memory. Threads as in `LinuxURLTask`.
#pragma once

#include <string>

#include "Platform/Linux/HTTP/LinuxURLTask.h"

namespace installer {

class LinuxDataTask : public LinuxURLTask {
 public:
  LinuxDataTask(std::shared_ptr<URLSessionCore> session, URLRequest request, DataTaskCompletion completion);

 private:
  DataTaskCompletion completion_;
  std::string body_;
  bool isTooLong_ = false;

  Verdict acceptHead(const ResponseHead& head) override;
  Verdict didReceiveBody(std::string_view bytes) override;
  void succeed() override;
  void breakOff(const CurlFailure& failure) override;
  void deliverError(const Error& error) override;
};

}  // namespace installer
