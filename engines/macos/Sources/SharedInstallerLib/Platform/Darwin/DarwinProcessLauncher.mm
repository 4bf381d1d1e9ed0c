// `ProcessLauncher` on NSTask. Its pipes are read while the program runs, so long output never blocks it.
#import <Foundation/Foundation.h>
#include <cerrno>
#include <fcntl.h>
#include <signal.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/OutputDrain.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

std::unexpected<Error> launchFailure(int number, const Path& program) {
  return failure(ErrorDomain::posix, number,
                 "“" + lastPathComponent(program) + "” couldn’t be started: " + errnoText(number) + " (" +
                     program + ")");
}

// Nil when the path isn't absolute, or when a text isn't UTF-8 or has a NUL: the program would get another
// text. All three streams are /dev/null until the caller replaces them.
NSTask* taskFor(const Path& program, const std::vector<std::string>& arguments) {
  NSURL* url = fileURL(program);
  if (url == nil) return nil;
  NSMutableArray<NSString*>* list = [NSMutableArray array];
  for (const auto& argument : arguments) {
    NSString* text = nsString(argument);
    if (text == nil) return nil;
    [list addObject:text];
  }
  NSTask* task = [NSTask new];
  task.executableURL = url;
  task.arguments = list;
  task.standardInput = [NSFileHandle fileHandleWithNullDevice];
  task.standardOutput = [NSFileHandle fileHandleWithNullDevice];
  task.standardError = [NSFileHandle fileHandleWithNullDevice];
  return task;
}

// A duplicate descriptor of the reading end; it outlives the pipe.
FileDescriptor readingEnd(NSPipe* pipe) {
  if (pipe == nil) return {};
  return FileDescriptor{fcntl(pipe.fileHandleForReading.fileDescriptor, F_DUPFD_CLOEXEC, 0)};
}

// Blocks until the program has ended: its termination handler writes a byte.
void awaitEnd(const FileDescriptor& ended) {
  char byte = 0;
  (void)retryInterrupted([&] { return read(ended.get(), &byte, 1); });
}

// A program inherits the blocked signals of the thread that starts it, and libdispatch's worker threads block
// all signals that they can.
class NoSignalBlocked {
 public:
  NoSignalBlocked() {
    sigset_t none{};
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, &kept_);
  }
  NoSignalBlocked(const NoSignalBlocked&) = delete;
  NoSignalBlocked& operator=(const NoSignalBlocked&) = delete;
  ~NoSignalBlocked() { pthread_sigmask(SIG_SETMASK, &kept_, nullptr); }

 private:
  sigset_t kept_{};
};

Result<> launchTask(NSTask* task) {
  const NoSignalBlocked during;
  NSError* problem = nil;
  if ([task launchAndReturnError:&problem]) return {};
  return failed(problem);
}

std::int32_t exitStatus(NSTask* task) {
  const std::int32_t status = task.terminationStatus;
  return task.terminationReason == NSTaskTerminationReasonUncaughtSignal ? 128 + status : status;
}

// The pipes of one run. A stream that isn't captured has none.
struct Pipes {
  NSPipe* output = nil;
  NSPipe* errorOutput = nil;
  NSPipe* ended = [NSPipe pipe];
  FileDescriptor readOutput;
  FileDescriptor readError;
  FileDescriptor readEnded;

  explicit Pipes(CapturedOutput captured) {
    if (captured != CapturedOutput::none) output = [NSPipe pipe];
    if (captured == CapturedOutput::separate) errorOutput = [NSPipe pipe];
    readOutput = readingEnd(output);
    readError = readingEnd(errorOutput);
    readEnded = readingEnd(ended);
  }

  bool areComplete(CapturedOutput captured) const {
    return readEnded && (readOutput || captured == CapturedOutput::none) &&
           (readError || captured != CapturedOutput::separate);
  }
};

class DarwinProcessLauncher final : public ProcessLauncher {
 public:
  Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                          CapturedOutput captured) override {
    @autoreleasepool {
      NSTask* task = taskFor(program, arguments);
      if (task == nil) return launchFailure(EINVAL, program);
      Pipes pipes{captured};
      if (!pipes.areComplete(captured)) return launchFailure(EMFILE, program);
      if (pipes.output != nil) task.standardOutput = pipes.output;
      if (captured == CapturedOutput::merged) task.standardError = pipes.output;
      if (pipes.errorOutput != nil) task.standardError = pipes.errorOutput;
      // `waitUntilExit` isn't used: it runs the run loop, and with it other work of the thread. The handler
      // writes a byte, because the end of the stream is late when another program has inherited the pipe.
      NSFileHandle* ended = pipes.ended.fileHandleForWriting;
      task.terminationHandler = ^(NSTask*) {
        (void)write(ended.fileDescriptor, "", 1);
        [ended closeAndReturnError:nil];
      };
      if (auto launched = launchTask(task); !launched) return handOn(launched);
      ProgramExit exit;
      drainOutput(pipes.readOutput, exit.output, pipes.readError, exit.errorOutput, pipes.readEnded.get());
      awaitEnd(pipes.readEnded);
      exit.status = exitStatus(task);
      return exit;
    }
  }

  Result<> launch(const Path& program, const std::vector<std::string>& arguments) override {
    @autoreleasepool {
      NSTask* task = taskFor(program, arguments);
      if (task == nil) return launchFailure(EINVAL, program);
      return launchTask(task);
    }
  }
};

}  // namespace

std::unique_ptr<ProcessLauncher> makeProcessLauncher() {
  return std::make_unique<DarwinProcessLauncher>();
}

}  // namespace installer::darwin
