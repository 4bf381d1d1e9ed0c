// `ProcessLauncher` on NSTask. Its pipes are read while the program runs, so a talkative one never blocks.
#import <Foundation/Foundation.h>

#include <dispatch/dispatch.h>

#include <mutex>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

// A child of the program can hold the pipe open after the program itself has ended; nobody waits for that.
constexpr std::int64_t kNanosecondsForStragglers = 2 * static_cast<std::int64_t>(NSEC_PER_SEC);

// Collects what comes through one pipe, on a queue of the system's.
class Drain {
 public:
  explicit Drain(dispatch_group_t group) : pipe_{[NSPipe pipe]}, content_{std::make_shared<Content>()} {
    group_ = group;
  }

  NSPipe* pipe() const { return pipe_; }

  // Call once the program has been started: from then on the end of the pipe is the program's alone.
  void start() {
    NSFileHandle* handle = pipe_.fileHandleForReading;
    auto content = content_;
    dispatch_group_async(group_, dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
      for (;;) {
        @autoreleasepool {
          NSData* data = [handle readDataUpToLength:65536 error:nil];
          if (data == nil || data.length == 0) return;
          const std::lock_guard lock{content->mutex};
          content->bytes += bytes(data);
        }
      }
    });
  }

  std::string content() const {
    const std::lock_guard lock{content_->mutex};
    return content_->bytes;
  }

 private:
  struct Content {
    std::mutex mutex;
    std::string bytes;
  };

  NSPipe* pipe_;
  dispatch_group_t group_;
  std::shared_ptr<Content> content_;
};

NSTask* taskFor(const Path& program, const std::vector<std::string>& arguments) {
  NSTask* task = [NSTask new];
  NSMutableArray<NSString*>* list = [NSMutableArray array];
  for (const auto& argument : arguments) [list addObject:nsString(argument)];
  task.executableURL = fileURL(program);
  task.arguments = list;
  task.standardInput = [NSFileHandle fileHandleWithNullDevice];
  return task;
}

std::int32_t exitStatus(NSTask* task) {
  const std::int32_t status = task.terminationStatus;
  return task.terminationReason == NSTaskTerminationReasonUncaughtSignal ? 128 + status : status;
}

class DarwinProcessLauncher final : public ProcessLauncher {
 public:
  Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                          CapturedOutput captured) override {
    @autoreleasepool {
      dispatch_group_t group = dispatch_group_create();
      Drain output{group};
      Drain errorOutput{group};
      const bool merged = captured == CapturedOutput::merged;
      NSTask* task = taskFor(program, arguments);
      task.standardOutput = output.pipe();
      task.standardError = merged ? output.pipe() : errorOutput.pipe();
      NSError* problem = nil;
      if (![task launchAndReturnError:&problem]) return failed(problem);
      output.start();
      if (!merged) errorOutput.start();
      [task waitUntilExit];
      dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, kNanosecondsForStragglers));
      ProgramExit ended;
      ended.status = exitStatus(task);
      if (captured != CapturedOutput::none) ended.output = output.content();
      if (captured == CapturedOutput::separate) ended.errorOutput = errorOutput.content();
      return ended;
    }
  }

  Result<> launch(const Path& program, const std::vector<std::string>& arguments) override {
    @autoreleasepool {
      NSError* problem = nil;
      if ([taskFor(program, arguments) launchAndReturnError:&problem]) return {};
      return failed(problem);
    }
  }
};

}  // namespace

std::unique_ptr<ProcessLauncher> makeProcessLauncher() { return std::make_unique<DarwinProcessLauncher>(); }

}  // namespace installer::darwin
