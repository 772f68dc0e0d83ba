#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Unicode.h"

namespace harbor {

// One HTTP request or response head (and body). A head is fed a line at a
// time, each with its CR LF; anything that is not a well-formed line makes
// appendData answer false, and the message stays refused from then on.
class HTTPMessage {
 public:
  using Fields = std::vector<std::pair<std::string, std::string>>;

  static std::unique_ptr<HTTPMessage> initEmptyRequest();
  static std::unique_ptr<HTTPMessage> initEmptyResponse();
  static std::unique_ptr<HTTPMessage> initRequestWithMethod(std::string method, std::string url,
                                                            std::string version);
  static std::unique_ptr<HTTPMessage> initResponseWithStatusCode(int code, std::string description,
                                                                 std::string version);

  // Takes whole lines (several at once are fine); a piece that does not end
  // with CR LF is kept until its end arrives.
  bool appendData(std::string_view data);
  bool isHeaderComplete() const { return complete_; }

  bool isRequest() const { return isRequest_; }
  const std::string& version() const { return version_; }
  const std::string& method() const { return method_; }
  const std::string& url() const { return url_; }
  int statusCode() const { return status_; }

  const Fields& allHeaderFields() const { return fields_; }
  // Names are matched without regard to case.
  std::optional<std::string> headerField(std::string_view name) const;
  void setHeaderField(std::string_view name, std::string value);

  std::string messageData() const;
  const std::string& body() const { return body_; }
  void setBody(std::string body) { body_ = std::move(body); }
  void appendBody(std::string_view data) { body_.append(data); }

  static std::string reasonPhrase(int status);

 private:
  bool takeLine(std::string_view line);
  bool takeStartLine(std::string_view line);
  bool takeFieldLine(std::string_view line);

  bool isRequest_ = true;
  bool complete_ = false;
  bool failed_ = false;
  bool sawStartLine_ = false;
  std::string method_, url_, version_, description_;
  int status_ = 0;
  Fields fields_;
  std::string pending_;
  std::string body_;
};

}  // namespace harbor
