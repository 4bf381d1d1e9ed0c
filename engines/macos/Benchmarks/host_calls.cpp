// host-calls ROOT copy FROM TO | remove PATH | digest FILE | log THREADS LINES | events COUNT: runs one of
// the engine's calls. bench.py compares it with other programs.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Platform/Linux/LinuxHost.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/Log.h"
#include "Utils/Logger.h"

namespace {

using namespace installer;

bool logFrom(int threads, int lines) {
  std::vector<std::jthread> writers;
  for (int number = 0; number < threads; ++number) {
    writers.emplace_back([=] {
      for (int line = 0; line < lines / threads; ++line)
        log("thread " + std::to_string(number) + ": a line of the log");
    });
  }
  writers.clear();
  Logger::shared().flush();
  return true;
}

bool emitMany(int count) {
  EngineEvent::Progress event{.app = "brenna", .progress = {}, .stage = AppStage::download};
  for (int number = 0; number < count; ++number) {
    event.progress = {.percent = number % 100 + 0.5, .downloadedBytes = number, .totalBytes = count};
    EngineEmitter::emit({event});
  }
  return true;
}

// Compares with a digest that no file has; the whole file is read in any case.
bool digest(const Path& file) {
  return !ChecksumVerifier::verifyFileChecksum(file, std::string(64, '0'));
}

bool run(const std::vector<std::string>& words) {
  FileSystem& files = machine().files;
  if (words[0] == "copy" && words.size() == 3) return files.copyItem(words[1], words[2]).has_value();
  if (words[0] == "remove" && words.size() == 2) return files.removeItem(words[1]).has_value();
  if (words[0] == "digest" && words.size() == 2) return digest(words[1]);
  if (words[0] == "log" && words.size() == 3) return logFrom(std::stoi(words[1]), std::stoi(words[2]));
  if (words[0] == "events" && words.size() == 2) return emitMany(std::stoi(words[1]));
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("usage: host-calls ROOT copy|remove|digest|log|events ARGUMENT...\n", stderr);
    return 2;
  }
  LinuxHostSettings settings;
  settings.root = argv[1];
  LinuxHost host{settings, std::nullopt};
  installMachine(&host.machine());
  const bool done = run({argv + 2, argv + argc});
  std::fflush(nullptr);
  std::_Exit(done ? 0 : 1);
}
