// HttpClientCurl.h - one libcurl easy handle for the VAPIX requests of one call.
#pragma once

#include <curl/curl.h>

#include <map>
#include <string>

#include "kor.h"

// Headers of one request; an empty fixed field is not sent, extra headers
// follow the fixed ones in ascending key order.
struct HttpReqHeader {
  std::string host;
  std::string date;
  std::string authorization;
  std::string connection;
  std::string contentType;
  std::map<std::string, std::string> extraHeaders;
};

struct HttpRsp {
  long statusCode = 0;  // 0 until a response arrives
  std::string body;     // the raw bytes received
};

class CHttpClientCurl {
 public:
  CHttpClientCurl() = default;
  ~CHttpClientCurl();
  CHttpClientCurl(const CHttpClientCurl&) = delete;
  CHttpClientCurl& operator=(const CHttpClientCurl&) = delete;

  bool Init();
  void UnInit();

  // True when the request was carried out, whatever the HTTP status.
  bool GetSend(HttpRsp& response, const std::string& url, const HttpReqHeader& headers, const std::string& user,
               const std::string& password);
  bool PostSend(HttpRsp& response, const std::string& url, const HttpReqHeader& headers, const std::string& body,
                const std::string& user, const std::string& password);

  // Longest user name or password handed to the library as text; longer
  // credentials reach the camera as empty and so fail its authentication.
  static constexpr size_t kMaxCredentialLength = 15;

 private:
  // Sets the options of one request (POST when postBody is given) and runs it.
  CURLcode Perform(HttpRsp& response, const std::string& url, const HttpReqHeader& headers,
                   const std::string* postBody, const std::string& user, const std::string& password);

  CURL* m_pCurl = nullptr;
  kor::CMutex m_mutex;
  // Reserved for the HTTPS and form-post variants, which this plug-in does not use.
  std::string m_strCaPath;
  bool m_bVerifyPeer = false;
  bool m_bFormPost = false;
  std::string m_strFormName;
};
