#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "net/http/HTTPConnection.h"
#include "net/share/UploadLineScanner.h"
#include "platform/Cancellation.h"

namespace harbor {

// Plain text replies of the web file manager.
class UHTTPDataResponse : public HTTPDataResponse {
 public:
  using HTTPDataResponse::HTTPDataResponse;
  std::map<std::string, std::string> httpHeaders() override {
    return {{"Content-Type", "text/plain"}};
  }
};

// The web file manager: the URL path is a folder or file below Documents,
// the query's `type` the action. Every path stays below its root, and
// locked folders guard everything below them until the browser session
// (its guid) has logged in.
class UHTTPConnection : public HTTPConnection {
 public:
  static constexpr std::uint64_t kMaxFormBody = 1024 * 1024;

  UHTTPConnection(std::shared_ptr<AsyncSocket> socket, std::shared_ptr<const HTTPConfig> config);
  ~UHTTPConnection() override;

  bool supportsMethod(const std::string& method, const std::string& path) override;
  int checkRequestHead() override;
  void prepareForBodyWithSize(std::uint64_t contentLength) override;
  void processBodyData(std::string_view data) override;
  void finishBody() override;
  std::shared_ptr<HTTPResponse> httpResponseForMethod(const std::string& method,
                                                      const std::string& uri) override;
  std::vector<std::string> directoryIndexFileNames() override;
  std::string preprocessResponse(HTTPMessage& response) override;
  void die() override;

  // Backslash, tab, line feed, double quote, carriage return and single
  // quote escaped, in that order.
  static std::string jsonCharFilter(std::string_view text);
  static std::string title() { return "Harbor"; }

 protected:
  // Subclass points of the list reply.
  virtual void appendSettingsToOutPut(std::string&) {}
  virtual void loadOther(std::string&) {}
  virtual bool isShowFileExtension() { return true; }
  virtual std::shared_ptr<HTTPResponse> checkOtherActionForMethod(const std::string&,
                                                                  const std::string&) {
    return nullptr;
  }

 private:
  std::string query(const std::string& key) const;
  std::string documentsRoot() const;
  std::shared_ptr<HTTPResponse> indexPage();
  std::shared_ptr<HTTPResponse> textResponse(std::string text);
  std::shared_ptr<HTTPResponse> fileResponse(const std::string& path, bool download);

  // Passwords and logins; paths are Documents-relative ("/" the root).
  std::string getCurrentPassword(const std::string& relative);
  bool isSameWithGetList(const std::string& relative);
  // Whether every locked folder from the root down to `relative` has been
  // opened by this session.
  bool isPathUnlocked(const std::string& relative);
  std::vector<std::string> getPasswordsFiles(const std::vector<std::string>& paths);

  std::string actionList();
  std::string getCurrentResonse(int isSecret, int isSame, const std::string& detail,
                                const std::string& dir);
  std::string showStatus();
  void loadCurrentFileListToOutPut(std::string& out);
  std::vector<std::string> loadCurrentFileList(const std::string& folder);
  std::string getURLPath(const std::string& name, const std::string& type) const;
  std::string iconurl(const std::string& path, bool isdir);

  std::optional<std::vector<std::string>> bodyNames(bool decodeTwice);
  std::shared_ptr<HTTPResponse> getDeleteResponse();
  std::shared_ptr<HTTPResponse> getCreateDirResponse();
  std::shared_ptr<HTTPResponse> getZipResponse();
  std::shared_ptr<HTTPResponse> getLockedItemsResponse(const std::vector<std::string>& paths);
  void startZip(const std::vector<std::string>& files);
  void cancelZip();

  // Uploads.
  bool createFile(const std::string& name, std::string_view data);
  void appendToFile(std::string_view data);
  void finishUploadFile();
  void discardUpload();

  std::string type_;
  std::map<std::string, std::optional<std::string>> queryParams_;
  std::string _guid;
  std::string relativePath_;  // decoded, "/" at the root, no trailing "/"
  std::string folderPath_;    // Documents + relativePath_
  std::string realPath_;      // folderPath_ with links resolved
  bool pathValid_ = false;
  bool isDownload_ = false;
  bool isFormBody_ = false;
  bool formTooLarge_ = false;
  std::string body_;

  bool isUpload_ = false;
  bool uploadAllowed_ = false;
  bool uploadIsAjax_ = false;
  bool uploadStarted_ = false;
  std::unique_ptr<UploadLineScanner> scanner_;
  std::string uploadFolder_;  // this upload's own folder under the temporary one
  std::string fullpath_;
  int fileHandle_ = -1;

  std::mutex zipMutex_;
  std::shared_ptr<std::atomic<bool>> zipRunning_;
};

}  // namespace harbor
