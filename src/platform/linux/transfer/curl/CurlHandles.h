#pragma once

#include <curl/curl.h>

#include <memory>

namespace skylet {

/// Owning pointers to libcurl's handles.
struct CurlEasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlEasy = std::unique_ptr<CURL, CurlEasyCleanup>;

struct CurlMultiCleanup {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
using CurlMultiHandle = std::unique_ptr<CURLM, CurlMultiCleanup>;

struct CurlShareCleanup {
    void operator()(CURLSH* handle) const { curl_share_cleanup(handle); }
};
using CurlShare = std::unique_ptr<CURLSH, CurlShareCleanup>;

struct CurlListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListCleanup>;

} // namespace skylet
