#include "Platform/URLSession.h"

namespace installer {

void URLSessionDelegate::willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& /*task*/,
                                                    const HTTPURLResponse& /*redirect*/,
                                                    const URLRequest& newRequest,
                                                    const RedirectDecision& decide) {
  decide(newRequest);
}

void URLSessionDelegate::didWriteData(const std::shared_ptr<URLSessionTask>& /*task*/,
                                      std::int64_t /*totalBytesWritten*/,
                                      std::int64_t /*totalBytesExpectedToWrite*/) {
}

void URLSessionDelegate::didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& /*task*/,
                                                const Path& /*location*/) {
}

void URLSessionDelegate::didCompleteWithError(const std::shared_ptr<URLSessionTask>& /*task*/,
                                              const std::optional<Error>& /*error*/) {
}

}  // namespace installer
