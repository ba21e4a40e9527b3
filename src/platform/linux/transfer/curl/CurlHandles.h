#pragma once

#include <curl/curl.h>

#include <memory>

namespace skylet {

template <auto cleanUp>
struct CurlCleanup {
    template <typename Handle>
    void operator()(Handle* handle) const {
        cleanUp(handle);
    }
};

/// Owning pointers to libcurl's handles.
using CurlEasy = std::unique_ptr<CURL, CurlCleanup<&curl_easy_cleanup>>;
using CurlMultiHandle = std::unique_ptr<CURLM, CurlCleanup<&curl_multi_cleanup>>;
using CurlShare = std::unique_ptr<CURLSH, CurlCleanup<&curl_share_cleanup>>;
using CurlList = std::unique_ptr<curl_slist, CurlCleanup<&curl_slist_free_all>>;

} // namespace skylet
