#include "Platform/Linux/HTTP/CurlLibrary.h"

#include <cstdlib>
#include <dlfcn.h>
#include <fmt/core.h>

namespace installer {

namespace {

// The status with which the loader ends a process that lacks a library.
constexpr int kMissingLibrary = 127;

CurlLibrary initialized() {
  const CurlLibrary library;
  library.global_init(CURL_GLOBAL_DEFAULT);
  return library;
}

}  // namespace

void* curlFunction(const char* name) {
  // The version of the headers' interface.
  static void* const library = ::dlopen("libcurl.so.4", RTLD_LAZY);
  void* const function = library == nullptr ? nullptr : ::dlsym(library, name);
  if (function != nullptr) return function;
  fmt::print(stderr, "engine-cli: {}\n", ::dlerror());
  std::_Exit(kMissingLibrary);
}

const CurlLibrary& curl() {
  static const CurlLibrary library = initialized();
  return library;
}

}  // namespace installer
