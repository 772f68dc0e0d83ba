#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/http/MultipartFormDataParser.h"

namespace harbor {
namespace {

// Records the calls, joining content so that how it was cut does not matter.
struct Recorder : MultipartFormDataParserDelegate {
  std::vector<std::string> events;
  std::string preamble, epilogue;
  void processPreambleData(std::string_view d) override { preamble.append(d); }
  void processStartOfPartWithHeader(const MultipartMessageHeader& h) override {
    std::string e = "start";
    for (const auto& [k, f] : h.fields) {
      e += " " + k + "=" + f.value;
      for (const auto& [pk, pv] : f.params) e += " [" + pk + "=" + pv + "]";
    }
    events.push_back(e);
    events.push_back("");
  }
  void processContent(std::string_view d, const MultipartMessageHeader&) override {
    events.back().append(d);
  }
  void processEndOfPartWithHeader(const MultipartMessageHeader& h) override {
    events.push_back("end " + h.contentDispositionName);
  }
  void processEpilogueData(std::string_view d) override { epilogue.append(d); }
};

const std::string kBody =
    "preamble\r\n--XyZ\r\n"
    "Content-Disposition: form-data; name=\"field\"\r\n\r\nvalue\r\n--XyZ\r\n"
    "Content-Disposition: form-data; name=\"f\"; filename=\"a\\\"b.txt\"\r\n"
    "Content-Type: application/octet-stream\r\n\r\nfile\r\n--Xy data\r\n--XyZ\r\n"
    "Content-Transfer-Encoding: base64\r\nContent-Disposition: form-data; name=\"b\"\r\n\r\n"
    "aGVs\r\nbG8=\r\n--XyZ\r\n"
    "Content-Transfer-Encoding: quoted-printable\r\nContent-Disposition: form-data; "
    "name=\"q\"\r\n\r\nA=3DB=0a=\r\nC\r\n--XyZ\r\n"
    "\r\nheadless\r\n--XyZ--\r\nepilogue";

Recorder parse(const std::string& body, std::size_t piece) {
  Recorder r;
  auto p = MultipartFormDataParser::initWithBoundary("XyZ", kFormEncodingUTF8);
  p->setDelegate(&r);
  for (std::size_t i = 0; i < body.size(); i += piece) {
    EXPECT_TRUE(p->appendData(body.substr(i, piece)));
  }
  return r;
}

TEST(MultipartFormDataParserTest, AnyCutOfTheBodyGivesTheSameParts) {
  Recorder whole = parse(kBody, kBody.size());
  std::vector<std::string> expected = {
      "start Content-Disposition=form-data [name=field]",
      "value",
      "end field",
      "start Content-Disposition=form-data [filename=a\"b.txt] [name=f] "
      "Content-Type=application/octet-stream",
      "file\r\n--Xy data",
      "end f",
      "start Content-Disposition=form-data [name=b] Content-Transfer-Encoding=base64",
      "hello",
      "end b",
      "start Content-Disposition=form-data [name=q] Content-Transfer-Encoding=quoted-printable",
      "A=B\0C",
      "end q",
      "start Content-Type=text/plain",
      "headless",
      "end ",
  };
  expected[10] = std::string("A=B\0C", 5);  // "=0a": lower-case digits count as 0
  EXPECT_EQ(whole.events, expected);
  EXPECT_EQ(whole.preamble, "preamble\r\n");
  EXPECT_EQ(whole.epilogue, "epilogue");
  for (std::size_t piece : {1u, 2u, 3u, 5u, 7u, 13u}) {
    Recorder cut = parse(kBody, piece);
    EXPECT_EQ(cut.events, whole.events) << piece;
    EXPECT_EQ(cut.epilogue, "epilogue") << piece;
  }
}

TEST(MultipartFormDataParserTest, BadHeadsAndBoundaries) {
  EXPECT_EQ(MultipartFormDataParser::initWithBoundary("", kFormEncodingUTF8), nullptr);
  auto p = MultipartFormDataParser::initWithBoundary("B", kFormEncodingUTF8);
  Recorder r;
  p->setDelegate(&r);
  // A head that never ends is refused once it passes the limit.
  EXPECT_TRUE(p->appendData("--B\r\n"));
  EXPECT_FALSE(p->appendData(std::string(70000, 'h')));
  EXPECT_FALSE(p->appendData("more"));
  EXPECT_EQ(MultipartFormDataParser::decodedDataFromQuotedPrintableData("a=4"), "a");
  EXPECT_EQ(MultipartFormDataParser::decodedDataFromQuotedPrintableData("=41=4g"), "A@");
}

}  // namespace
}  // namespace harbor
