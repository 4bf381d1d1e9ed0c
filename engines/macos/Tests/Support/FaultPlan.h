// Records the engine's calls across the seam that can fail, in order. Makes one of them fail, or changes the
// machine before one of them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace installer::test {

class FaultPlan {
 public:
  struct Call {
    std::string name;                 // such as "copy /Volumes/X/X.app -> /Applications/X.app"
    std::vector<std::string> faults;  // the ways in which it can fail, at least one
  };

  // Clears the list. Afterwards every call is added to it, and none fails.
  void record();
  // The same, and the call at `index` of the list fails with its fault at `fault`.
  void fail(std::size_t index, std::size_t fault);
  // The same, and `act` runs before the call at `index`, which then has its usual result.
  void interfere(std::size_t index, std::function<void()> act);
  void stop();  // afterwards no call is listed, and none fails
  const std::vector<Call>& calls() const { return calls_; }

  // Called by the fakes once in each call: the index of the fault to have, if any.
  std::optional<std::size_t> faultOf(std::string_view service, std::string_view what,
                                     std::vector<std::string> faults);
  // For a call with a boolean result: true when the plan makes it false.
  bool answersNo(std::string_view question, std::string_view what);

  // While it exists, calls aren't listed: a simulated program's calls of the other fakes aren't the engine's.
  class Pause {
   public:
    explicit Pause(FaultPlan& plan) : plan_{plan} { ++plan_.pauses_; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
    ~Pause() { --plan_.pauses_; }

   private:
    FaultPlan& plan_;
  };

 private:
  std::vector<Call> calls_;
  bool isRecording_ = false;
  int pauses_ = 0;
  std::optional<std::size_t> index_;
  std::size_t fault_ = 0;
  std::function<void()> act_;  // empty: the call at `index_` fails
};

}  // namespace installer::test
