#pragma once

#include <curl/curl.h>

#include <memory>

namespace quillmar::platform {

template <auto release>
struct Release {
  template <class T>
  void operator()(T* handle) const noexcept {
    release(handle);
  }
};
using EasyHandle = std::unique_ptr<CURL, Release<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, Release<curl_multi_cleanup>>;
using UrlHandle = std::unique_ptr<CURLU, Release<curl_url_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;
using CurlText = std::unique_ptr<char, Release<curl_free>>;

}  // namespace quillmar::platform
