#include "Base/POSIX/OutputDrain.h"
#include "Base/POSIX/Spawn.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Linux/Processes/ProcessHandle.h"

namespace installer {

namespace {

struct CapturePipes {
  Pipe output;
  Pipe errorOutput;
};

// Only the pipes that `captured` needs.
Result<CapturePipes> makePipes(CapturedOutput captured, const Path& program) {
  CapturePipes pipes;
  if (captured == CapturedOutput::none) return pipes;
  pipes.output = makePipe();
  if (captured == CapturedOutput::separate) pipes.errorOutput = makePipe();
  if (!pipes.output.reading || (captured == CapturedOutput::separate && !pipes.errorOutput.reading)) {
    return std::unexpected(launchError(errno, program));
  }
  return pipes;
}

}  // namespace

Result<ProgramExit> LinuxProcessLauncher::run(const Path& program, const std::vector<std::string>& arguments,
                                              CapturedOutput captured) {
  auto pipes = makePipes(captured, program);
  if (!pipes) return handOn(pipes);
  SpawnRequest request;
  request.program = program;
  request.arguments = arguments;
  request.output = pipes->output.writing.get();
  request.errorOutput =
      captured == CapturedOutput::merged ? request.output : pipes->errorOutput.writing.get();
  const auto child = spawn(request);
  if (!child) return std::unexpected(launchError(child.error(), program));
  pipes->output.writing.reset();
  pipes->errorOutput.writing.reset();

  ProgramExit exit;
  const FileDescriptor handle = holdProcess(*child);
  drainOutput(pipes->output.reading, exit.output, pipes->errorOutput.reading, exit.errorOutput, handle.get());
  exit.status = waitForExit(*child);
  return exit;
}

Result<> LinuxProcessLauncher::launch(const Path& program, const std::vector<std::string>& arguments) {
  const auto started = spawnDetached(program, arguments);
  if (!started) return std::unexpected(launchError(started.error(), program));
  return {};
}

}  // namespace installer
