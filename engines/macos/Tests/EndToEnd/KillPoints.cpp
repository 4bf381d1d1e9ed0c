// Preloaded into the engine by the tests: numbers its calls that change the disk or start a program, and
// kills it at one of them. No rights and no debugger are needed, and the calls of other programs don't count.
//
//   KELO_POINTS=FILE     appends the name of each call to FILE
//   KELO_KILL=before:N   kills the engine before call N, counted from 1
//   KELO_KILL=after:N    kills it after the call
//   KELO_SLOW=TEXT       lets the removal of a file whose name contains TEXT take a second
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Plan {
  bool isActive = std::strcmp(program_invocation_short_name, "engine-cli") == 0;
  int before = numberAfter("before:");
  int after = numberAfter("after:");
  int list = -1;
  std::atomic<int> count{0};

  Plan() {
    const char* const path = std::getenv("KELO_POINTS");
    if (isActive && path != nullptr) {
      list = static_cast<int>(
          ::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    }
  }

  static int numberAfter(const char* word) {
    const char* const text = std::getenv("KELO_KILL");
    const auto length = std::strlen(word);
    return text != nullptr && std::strncmp(text, word, length) == 0 ? std::atoi(text + length) : 0;
  }
};

Plan& plan() {
  static Plan instance;
  return instance;
}

void die() {
  ::syscall(SYS_kill, ::getpid(), SIGKILL);
  for (;;) ::pause();
}

// Lasts as long as the call.
class Point {
 public:
  explicit Point(const std::string& name, bool counts = true) {
    if (!counts || !plan().isActive) return;
    number_ = ++plan().count;
    const std::string line = name + "\n";
    if (plan().list >= 0) ::syscall(SYS_write, plan().list, line.data(), line.size());
    if (number_ == plan().before) die();
  }
  Point(const Point&) = delete;
  Point& operator=(const Point&) = delete;
  ~Point() {
    if (number_ != 0 && number_ == plan().after) die();
  }

 private:
  int number_ = 0;
};

bool isFile(int descriptor) {
  struct stat status{};
  const int before = errno;
  const bool answer = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  errno = before;
  return answer;
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The function `name` with these parameters, as a point.
#define POINT_IF(condition, result, name, parameters, arguments) \
  extern "C" result name parameters {                            \
    const Point point{#name, condition};                         \
    static auto* const itself = next<result parameters>(#name);  \
    return itself arguments;                                     \
  }
#define POINT(result, name, parameters, arguments) POINT_IF(true, result, name, parameters, arguments)

POINT(int, mkdir, (const char* path, mode_t mode), (path, mode))
POINT(int, mkdirat, (int folder, const char* path, mode_t mode), (folder, path, mode))
POINT(int, rename, (const char* from, const char* to), (from, to))
POINT(int, renameat, (int folder, const char* from, int other, const char* to), (folder, from, other, to))
POINT(int, renameat2, (int folder, const char* from, int other, const char* to, unsigned flags),
      (folder, from, other, to, flags))
POINT(int, unlink, (const char* path), (path))
extern "C" int unlinkat(int folder, const char* path, int flags) {
  const Point point{"unlinkat"};
  const char* const slow = std::getenv("KELO_SLOW");
  if (slow != nullptr && std::strstr(path, slow) != nullptr) ::sleep(1);
  static auto* const itself = next<decltype(unlinkat)>("unlinkat");
  return itself(folder, path, flags);
}
POINT(int, symlinkat, (const char* target, int folder, const char* path), (target, folder, path))
POINT(int, fchmod, (int file, mode_t mode), (file, mode))
POINT(int, fchmodat, (int folder, const char* path, mode_t mode, int flags), (folder, path, mode, flags))
POINT(int, futimens, (int file, const struct timespec* times), (file, times))
POINT(int, utimensat, (int folder, const char* path, const struct timespec* times, int flags),
      (folder, path, times, flags))
POINT(int, fsetxattr, (int file, const char* name, const void* value, size_t size, int flags),
      (file, name, value, size, flags))
POINT(int, ftruncate, (int file, off_t length), (file, length))
POINT(int, fsync, (int file), (file))
POINT(int, fdatasync, (int file), (file))
POINT(int, syncfs, (int file), (file))
POINT(int, flock, (int file, int operation), (file, operation))
POINT(ssize_t, copy_file_range, (int in, off_t* inAt, int out, off_t* outAt, size_t size, unsigned flags),
      (in, inAt, out, outAt, size, flags))
POINT_IF(isFile(file), ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size))
extern "C" int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const arguments[],
                           char* const environment[]) {
  const Point point{std::string{"start "} + ::basename(path)};
  static auto* const itself = next<decltype(posix_spawn)>("posix_spawn");
  return itself(process, path, actions, attributes, arguments, environment);
}

namespace {

int openAt(int folder, const char* path, int flags, va_list rest) {
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  const Point point{"open to write", (flags & (O_CREAT | O_TRUNC)) != 0};
  static auto* const itself = next<int(int, const char*, int, ...)>("openat");
  return itself(folder, path, flags, mode);
}

}  // namespace

extern "C" int openat(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int file = openAt(folder, path, flags, rest);
  va_end(rest);
  return file;
}

extern "C" int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int file = openAt(AT_FDCWD, path, flags, rest);
  va_end(rest);
  return file;
}
