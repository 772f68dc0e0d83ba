#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "../NetTestClient.h"
#include "filemanager/FileUtil.h"
#include "net/share/WiFiShare.h"
#include "support/TestSupport.h"

namespace harbor::test {

// A WebDAV share of a private document root on 127.0.0.1.
class DAVServerTest : public TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    docs_ = FileUtil::documentDirectory();
    share_ = std::make_unique<WebDavShare>();
    share_->initHttpServer();
    share_->webServer()->setPort(0);
    share_->webServer()->setInterface("127.0.0.1");
    ASSERT_TRUE(share_->startHttpServer());
    port_ = share_->webServer()->listeningPort();
    host_ = "127.0.0.1:" + std::to_string(port_);
  }
  void TearDown() override {
    share_.reset();
    TempHome::TearDown();
  }
  std::string url(const std::string& target = "/") const { return "http://" + host_ + target; }
  // One request on its own connection; the whole reply.
  std::string request(const std::string& method, const std::string& target,
                      const std::string& extra = "", const std::string& body = "",
                      bool withLength = true) {
    RawClient c(port_);
    std::string head =
        method + " " + target + " HTTP/1.1\r\nHost: " + host_ + "\r\nConnection: close\r\n" + extra;
    if (withLength && (!body.empty() || method == "PUT" || method == "LOCK")) {
      head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    c.send(head + "\r\n" + body);
    return c.readAll(5000);
  }
  int status(const std::string& reply) {
    std::string line = statusLine(reply);
    return line.size() >= 12 ? std::stoi(line.substr(9, 3)) : 0;
  }
  std::string doc(const std::string& relative) const { return docs_ + "/" + relative; }
  bool tempEmpty() const {
    std::error_code ec;
    return std::filesystem::is_empty(FileUtil::tempDirectory(), ec);
  }

  std::string docs_;
  std::string host_;
  std::unique_ptr<WebDavShare> share_;
  std::uint16_t port_ = 0;
};

}  // namespace harbor::test
