// The calls of the engine across the seam that can fail, in order, and one of them made to fail.
#pragma once

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

  // Starts the list afresh. From here on every call is in it, and none fails.
  void record();
  // Likewise, and the call at `index` of the list has the fault at `fault` of its own.
  void fail(std::size_t index, std::size_t fault);
  void stop();  // lists and fails nothing any more
  const std::vector<Call>& calls() const { return calls_; }

  // For the fakes, once in each call: the index of the fault to have, if any.
  std::optional<std::size_t> faultOf(std::string_view service, std::string_view what,
                                     std::vector<std::string> faults);
  // Of a question with a bare yes or no: is this one answered by no?
  bool answersNo(std::string_view question, std::string_view what);

  // What a program does is the program's: its calls of the other fakes aren't in the list.
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
};

}  // namespace installer::test
