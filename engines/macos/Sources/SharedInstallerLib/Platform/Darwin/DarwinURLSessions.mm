// `URLSessions` on NSURLSession. The session's delegate object translates each callback, on a serial queue of
// the session's own.
#import <Foundation/Foundation.h>

#include "Base/Mutex.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"
#import "Platform/Darwin/DarwinURLTasks.h"
#import "Platform/Darwin/DarwinURLTranslation.h"

// The session retains this object until it is invalidated, and with it the engine's delegate.
@interface KELOSessionDelegate : NSObject <NSURLSessionDataDelegate, NSURLSessionDownloadDelegate>
@end

@implementation KELOSessionDelegate {
 @public
  std::shared_ptr<installer::URLSessionDelegate> _engine;
  std::shared_ptr<installer::darwin::TaskTable> _tasks;
}

- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))completionHandler {
  using namespace installer;
  const auto redirect = darwin::responseOf(response).value_or(HTTPURLResponse{0, darwin::urlOf(nil)});
  URLRequest asked{darwin::urlOf(request.URL)};
  asked.method = darwin::text(request.HTTPMethod);
  // An allowed redirect follows the system's own request, with the headers that the system has set.
  _engine->willPerformHTTPRedirection(
      _tasks->find(task), redirect, asked,
      [completionHandler, request, asked](const std::optional<URLRequest>& allowed) {
        completionHandler(allowed ? darwin::followed(*allowed, asked, request) : nil);
      });
}

- (void)URLSession:(NSURLSession*)session
                 downloadTask:(NSURLSessionDownloadTask*)downloadTask
                 didWriteData:(int64_t)bytesWritten
            totalBytesWritten:(int64_t)totalBytesWritten
    totalBytesExpectedToWrite:(int64_t)totalBytesExpectedToWrite {
  _engine->didWriteData(_tasks->find(downloadTask), totalBytesWritten, totalBytesExpectedToWrite);
}

- (void)URLSession:(NSURLSession*)session
                 downloadTask:(NSURLSessionDownloadTask*)downloadTask
    didFinishDownloadingToURL:(NSURL*)location {
  _engine->didFinishDownloadingTo(_tasks->find(downloadTask), installer::darwin::text(location.path));
}

- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveData:(NSData*)data {
  _tasks->find(dataTask)->receive(data);
}

- (void)URLSession:(NSURLSession*)session task:(NSURLSessionTask*)task didCompleteWithError:(NSError*)error {
  using namespace installer;
  const auto known = _tasks->find(task);
  if (!known->complete(error)) {
    _engine->didCompleteWithError(known, error != nil ? std::optional{darwin::error(error)} : std::nullopt);
  }
  _tasks->forget(task.taskIdentifier);
}

@end

namespace installer::darwin {
namespace {

class DarwinURLSession final : public URLSession {
 public:
  DarwinURLSession(NSURLSession* session, std::shared_ptr<TaskTable> tasks,
                   const std::shared_ptr<URLSessionDelegate>& delegate)
      : session_{session}, tasks_{std::move(tasks)}, delegate_{delegate} {}
  // The system's session retains its delegate until it is invalidated.
  ~DarwinURLSession() override { finishTasksAndInvalidate(); }
  DarwinURLSession(const DarwinURLSession&) = delete;
  DarwinURLSession& operator=(const DarwinURLSession&) = delete;

  std::shared_ptr<URLSessionTask> dataTask(const URLRequest& request,
                                           DataTaskCompletion completion) override {
    @autoreleasepool {
      NSURL* url = nsURL(request.url);
      const MutexLock lock{mutex_};
      if (url == nil || invalidated_) {
        const auto problem = refusal(url);
        return failedTask([completion = std::move(completion), problem](const auto&) {
          completion(std::nullopt, std::nullopt, problem);
        });
      }
      return tasks_->add([session_ dataTaskWithRequest:nsRequest(request, url)], std::move(completion));
    }
  }

  std::shared_ptr<URLSessionTask> downloadTask(const URL& url) override {
    @autoreleasepool {
      NSURL* address = nsURL(url);
      const MutexLock lock{mutex_};
      if (address == nil || invalidated_) return failedDownload(refusal(address));
      return tasks_->add([session_ downloadTaskWithURL:address]);
    }
  }

  std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string& resumeData) override {
    @autoreleasepool {
      const MutexLock lock{mutex_};
      if (invalidated_) return failedDownload(urlError(URLErrorCode::cancelled, "The session has ended."));
      NSURLSessionTask* task = [session_ downloadTaskWithResumeData:nsData(resumeData)];
      if (task == nil) return failedDownload(urlError(URLErrorCode::unknown, "The resume data is unusable."));
      return tasks_->add(task);
    }
  }

  void finishTasksAndInvalidate() override {
    @autoreleasepool {
      const MutexLock lock{mutex_};
      invalidated_ = true;
      [session_ finishTasksAndInvalidate];
    }
  }

  void invalidateAndCancel() override {
    @autoreleasepool {
      const MutexLock lock{mutex_};
      invalidated_ = true;
      [session_ invalidateAndCancel];
    }
  }

 private:
  static Error refusal(NSURL* url) {
    if (url == nil) return urlError(URLErrorCode::badURL, "The address can't be used.");
    return urlError(URLErrorCode::cancelled, "The session has ended.");
  }

  std::shared_ptr<URLSessionTask> failedTask(FailedTask::Deliver deliver) REQUIRES(mutex_) {
    return std::make_shared<FailedTask>(--failedIdentifier_, session_.delegateQueue, std::move(deliver));
  }

  std::shared_ptr<URLSessionTask> failedDownload(const Error& problem) REQUIRES(mutex_) {
    return failedTask([delegate = delegate_, problem](const std::shared_ptr<URLSessionTask>& task) {
      if (const auto alive = delegate.lock()) alive->didCompleteWithError(task, problem);
    });
  }

  NSURLSession* session_;
  std::shared_ptr<TaskTable> tasks_;
  std::weak_ptr<URLSessionDelegate> delegate_;
  Mutex mutex_;  // guards the next two: an invalidated session raises when it is asked for a task
  bool invalidated_ GUARDED_BY(mutex_) = false;
  int failedIdentifier_ GUARDED_BY(mutex_) = -1;  // counts down, apart from the system's own
};

class DarwinURLSessions final : public URLSessions {
 public:
  // Not the system's shared session: it has no delegate, which is needed to limit the length of an answer.
  std::shared_ptr<URLSession> shared() override {
    static auto* const session = new std::shared_ptr<URLSession>(make(nullptr));
    return *session;
  }

  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) override {
    @autoreleasepool {
      if (delegate == nullptr) delegate = std::make_shared<URLSessionDelegate>();
      auto tasks = std::make_shared<TaskTable>();
      KELOSessionDelegate* object = [KELOSessionDelegate new];
      object->_engine = delegate;
      object->_tasks = tasks;
      NSOperationQueue* queue = [NSOperationQueue new];
      queue.maxConcurrentOperationCount = 1;
      NSURLSession* session =
          [NSURLSession sessionWithConfiguration:[NSURLSessionConfiguration defaultSessionConfiguration]
                                        delegate:object
                                   delegateQueue:queue];
      return std::make_shared<DarwinURLSession>(session, std::move(tasks), delegate);
    }
  }
};

}  // namespace

std::unique_ptr<URLSessions> makeURLSessions() {
  return std::make_unique<DarwinURLSessions>();
}

}  // namespace installer::darwin
