// The two VAPIX request operations through which every feature talks to the
// camera: one libcurl client per request, and which answers count as success.
// Kept apart from the features so that a build without a network (the command
// channel's fuzzer) can put its own answers in their place.
#include "session/HttpClientCurl.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

bool CPlgDeviceObjectImplement::SendHttpGetReqWithRsp(std::string& out, const std::string& url, const std::string& user,
                                                      const std::string& password) {
  CHttpClientCurl client;  // one handle per request: nothing is shared between calls
  if (!client.Init()) {
    PLG_ERROR("[%s]libcurl init failed.[%s(%d)]");
    return false;
  }
  HttpRsp response;
  const bool sent = client.GetSend(response, url, HttpReqHeader{}, user, password);
  if (sent && response.statusCode == 204) return true;  // accepted, nothing to read
  if (sent && response.statusCode == 200 && !response.body.empty()) {
    out = std::move(response.body);
    return true;
  }
  PLG_ERROR("[%s]Get send failed, rsp-code[%d], rsp-url[%s], rsp-data[%s].[%s(%d)]",
            static_cast<int>(response.statusCode), url.c_str(), response.body.c_str());
  return false;
}

bool CPlgDeviceObjectImplement::SendHttpPostReqWithRsp(std::string& out, const std::string& url,
                                                       const std::string& body, const std::string& user,
                                                       const std::string& password, const std::string& contentType) {
  CHttpClientCurl client;
  if (!client.Init()) {
    PLG_ERROR("[%s]libcurl init failed.[%s(%d)]");
    return false;
  }
  HttpReqHeader headers;
  headers.contentType = contentType;
  HttpRsp response;
  const bool sent = client.PostSend(response, url, headers, body, user, password);
  if (sent && response.statusCode == 200 && !response.body.empty()) {
    out = std::move(response.body);
    return true;
  }
  PLG_ERROR("[%s]Get send failed, rsp-code[%d], rsp-url[%s], rsp-data[%s].[%s(%d)]",
            static_cast<int>(response.statusCode), url.c_str(), response.body.c_str());
  return false;
}
