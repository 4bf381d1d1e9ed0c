// libcurl, loaded at its first use: to load it and what it needs takes longer than the rest of a command that
// needs no network.
#pragma once

#include <curl/curl.h>

namespace installer {

// The address of a function of libcurl. Ends the process if the library can't be loaded.
void* curlFunction(const char* name);

// The functions in use, without the prefix "curl_".
struct CurlLibrary {
#define KELO_CURL(name)                 \
  decltype(::curl_##name)* const name = \
      reinterpret_cast<decltype(::curl_##name)*>(curlFunction("curl_" #name));
  KELO_CURL(easy_cleanup)
  KELO_CURL(easy_getinfo)
  KELO_CURL(easy_init)
  KELO_CURL(easy_nextheader)
  KELO_CURL(easy_setopt)
  KELO_CURL(easy_strerror)
  KELO_CURL(free)
  KELO_CURL(getdate)
  KELO_CURL(global_init)
  KELO_CURL(multi_add_handle)
  KELO_CURL(multi_cleanup)
  KELO_CURL(multi_info_read)
  KELO_CURL(multi_init)
  KELO_CURL(multi_perform)
  KELO_CURL(multi_poll)
  KELO_CURL(multi_remove_handle)
  KELO_CURL(multi_wakeup)
  KELO_CURL(slist_append)
  KELO_CURL(slist_free_all)
  KELO_CURL(url)
  KELO_CURL(url_cleanup)
  KELO_CURL(url_get)
  KELO_CURL(url_set)
#undef KELO_CURL
};

// Any thread. The first call loads and initializes the library, which is never unloaded.
const CurlLibrary& curl();

}  // namespace installer
