#include "Support/SimulatedPrograms.h"

#include <cerrno>
#include <utility>

#include "Base/KeptOutput.h"

namespace installer::test {

namespace {

ProgramScript::Behaviour exiting(int status, std::string output, std::string errorOutput) {
  return [exit = ProgramExit{status, std::move(output), std::move(errorOutput)}](const Arguments&) {
    return Result<ProgramExit>{exit};
  };
}

ProgramScript::Behaviour unlaunchable(std::string description) {
  return [text = std::move(description)](const Arguments&) -> Result<ProgramExit> {
    return failure(ErrorDomain::cocoa, CocoaError::fileNoSuchFile, text);
  };
}

ProgramScript::Behaviour doing(std::function<ProgramExit(const Arguments&)> behaviour) {
  return [act = std::move(behaviour)](const Arguments& arguments) {
    return Result<ProgramExit>{act(arguments)};
  };
}

std::string commandLine(const SimulatedPrograms::Start& start) {
  auto line = lastPathComponent(start.program);
  for (const auto& argument : start.arguments) line.append(" ").append(argument);
  return line;
}

}  // namespace

ProgramScript& ProgramScript::exits(int status, std::string output, std::string errorOutput) {
  lasting_ = exiting(status, std::move(output), std::move(errorOutput));
  return *this;
}

ProgramScript& ProgramScript::exitsNext(int status, std::string output, std::string errorOutput) {
  next_.push_back(exiting(status, std::move(output), std::move(errorOutput)));
  return *this;
}

ProgramScript& ProgramScript::cannotLaunch(std::string description) {
  lasting_ = unlaunchable(std::move(description));
  return *this;
}

ProgramScript& ProgramScript::cannotLaunchNext(std::string description) {
  next_.push_back(unlaunchable(std::move(description)));
  return *this;
}

ProgramScript& ProgramScript::does(std::function<ProgramExit(const Arguments&)> behaviour) {
  lasting_ = doing(std::move(behaviour));
  return *this;
}

ProgramScript& ProgramScript::doesNext(std::function<ProgramExit(const Arguments&)> behaviour) {
  next_.push_back(doing(std::move(behaviour)));
  return *this;
}

ProgramScript& ProgramScript::takes(Duration duration) {
  duration_ = duration;
  return *this;
}

ProgramScript& SimulatedPrograms::on(const Path& path) {
  if (!files_.exists(path)) files_.addProgram(path);
  return scripts_[path];
}

void SimulatedPrograms::remove(const Path& path) {
  files_.erase(path);
}

std::vector<SimulatedPrograms::Start> SimulatedPrograms::starts(const Path& program) const {
  auto result = starts_;
  std::erase_if(result, [&program](const Start& start) { return start.program != program; });
  return result;
}

std::vector<std::string> SimulatedPrograms::commandLines() const {
  std::vector<std::string> lines;
  for (const auto& start : starts_) lines.push_back(commandLine(start));
  return lines;
}

std::vector<std::string> SimulatedPrograms::commandLines(const Path& program) const {
  std::vector<std::string> lines;
  for (const auto& start : starts(program)) lines.push_back(commandLine(start));
  return lines;
}

Result<ProgramExit> SimulatedPrograms::perform(const Path& program, const Arguments& arguments) {
  const auto found = scripts_.find(program);
  if (found == scripts_.end() || !files_.isExecutable(program)) {
    return failure(ErrorDomain::cocoa, CocoaError::fileNoSuchFile,
                   "The file “" + lastPathComponent(program) + "” doesn’t exist.");
  }
  auto& script = found->second;
  auto behaviour = script.lasting_;
  if (!script.next_.empty()) {
    behaviour = std::move(script.next_.front());
    script.next_.pop_front();
  }
  if (script.duration_ > Duration{0}) dispatch_.sleep(script.duration_);
  return behaviour ? behaviour(arguments) : Result<ProgramExit>{ProgramExit{}};
}

// Like `perform`, with the fault that the plan has for it.
Result<ProgramExit> SimulatedPrograms::performPlanned(const Path& program, const Arguments& arguments) {
  enum Fault { notStarted, failsAtOnce, killedAtItsEnd, printsNothing };
  const auto fault = plan_.faultOf("run", commandLine({program, arguments}),
                                   {"not started", "fails at once", "killed at its end", "prints nothing"});
  const FaultPlan::Pause pause{plan_};
  if (fault == notStarted) {
    return failure(ErrorDomain::posix, EMFILE, "Too many open files");
  }
  if (fault == failsAtOnce) return ProgramExit{1, "", "It didn’t work.\n"};
  auto exit = perform(program, arguments);
  if (!exit || !fault) return exit;
  constexpr int kKilled = 128 + 9;
  return ProgramExit{fault == killedAtItsEnd ? kKilled : exit->status, "", ""};
}

Result<ProgramExit> SimulatedPrograms::run(const Path& program, const std::vector<std::string>& arguments,
                                           CapturedOutput captured) {
  starts_.push_back({program, arguments, captured, false});
  auto exit = performPlanned(program, arguments);
  if (!exit) return handOn(exit);
  if (captured == CapturedOutput::none) exit->output.clear();
  if (captured == CapturedOutput::merged) exit->output += exit->errorOutput;
  if (captured != CapturedOutput::separate) exit->errorOutput.clear();
  for (auto* const text : {&exit->output, &exit->errorOutput}) {
    KeptOutput kept;
    kept.append(*text);
    *text = kept.take();
  }
  return exit;
}

Result<> SimulatedPrograms::launch(const Path& program, const std::vector<std::string>& arguments) {
  starts_.push_back({program, arguments, CapturedOutput::none, true});
  if (auto exit = performPlanned(program, arguments); !exit) return handOn(exit);
  return {};
}

}  // namespace installer::test
