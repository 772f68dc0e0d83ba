#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace harbor {

// Transfer encodings of a part; only base64 and quoted-printable change the
// bytes.
enum MultipartTransferEncoding : int {
  contentTransferEncoding_unknown = 0,
  contentTransferEncoding_7bit = 1,
  contentTransferEncoding_8bit = 2,
  contentTransferEncoding_binary = 3,
  contentTransferEncoding_base64 = 4,
  contentTransferEncoding_quotedPrintable = 5,
};

// Text encodings of head values: UTF-8 (4) or ISO Latin 1 (5); others are
// read as UTF-8.
enum MultipartFormEncoding : unsigned { kFormEncodingUTF8 = 4, kFormEncodingLatin1 = 5 };

// One head line, "Name: value; a=1; b="two"".
class MultipartMessageHeaderField {
 public:
  static std::optional<MultipartMessageHeaderField> initWithData(std::string_view data,
                                                                 unsigned contentEncoding);
  std::string name;
  std::string value;
  std::map<std::string, std::string> params;

 private:
  bool parseHeaderValueBytes(std::string_view bytes, unsigned encoding);
};

// The head of one part.
class MultipartMessageHeader {
 public:
  static std::unique_ptr<MultipartMessageHeader> initWithData(std::string_view data,
                                                              unsigned formEncoding);
  std::map<std::string, MultipartMessageHeaderField> fields;
  int encoding = contentTransferEncoding_unknown;
  std::string contentDispositionName;
};

class MultipartFormDataParserDelegate {
 public:
  virtual ~MultipartFormDataParserDelegate() = default;
  virtual void processPreambleData(std::string_view) {}
  virtual void processStartOfPartWithHeader(const MultipartMessageHeader&) {}
  virtual void processContent(std::string_view, const MultipartMessageHeader&) {}
  virtual void processEndOfPartWithHeader(const MultipartMessageHeader&) {}
  virtual void processEpilogueData(std::string_view) {}
};

// A multipart/form-data body fed in pieces of any size. Only what could
// still be part of a boundary (or an undecoded group) is kept between pieces.
class MultipartFormDataParser {
 public:
  // Null for an empty boundary.
  static std::unique_ptr<MultipartFormDataParser> initWithBoundary(const std::string& boundary,
                                                                   unsigned formEncoding);
  // False on a part head that cannot be read; parsing is over then.
  bool appendData(std::string_view data);
  void setDelegate(MultipartFormDataParserDelegate* delegate) { delegate_ = delegate; }
  unsigned formEncoding() const { return formEncoding_; }

  static std::string decodedDataFromData(std::string_view data, int encoding);
  static std::string decodedDataFromQuotedPrintableData(std::string_view data);

 private:
  MultipartFormDataParser() = default;
  std::size_t numberOfBytesToLeavePending(std::string_view data, int encoding) const;
  void deliverContent(std::string_view data);

  std::string pendingData_;
  std::string boundaryData_;  // CR LF "--" boundary
  std::unique_ptr<MultipartMessageHeader> currentHeader_;
  bool waitingForCRLF_ = false;
  bool reachedEpilogue_ = false;
  bool processedPreamble_ = false;
  bool checkForContentEnd_ = false;
  bool failed_ = false;
  MultipartFormDataParserDelegate* delegate_ = nullptr;
  int currentEncoding_ = contentTransferEncoding_binary;
  unsigned formEncoding_ = kFormEncodingUTF8;
};

}  // namespace harbor
