#include <signal.h>

#include <iostream>
#include <memory>
#include <string>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "net/share/WiFiShare.h"
#include "platform/Directories.h"
#include "prefs/LoginPasswordUtil.h"

namespace harbor::cli {
namespace {

struct ServeOptions {
  int port = WiFiShare::kDefaultPort;
  int webdavPort = WebDavShare::kDefaultPort;
  bool noWebdav = false;
  std::string bind;
};

std::string hostFor(const std::string& bind) {
  if (!bind.empty() && bind != "0.0.0.0" && bind != "::") return bind;
  std::string a = WiFiShareBase::address();
  return a.empty() ? "127.0.0.1" : a;
}

bool isLoopback(const std::string& bind) {
  return bind == "localhost" || bind == "::1" || bind.rfind("127.", 0) == 0;
}

int runServe(const ServeOptions& opts) {
  (void)FileUtil::documentDirectory();  // made when missing

  // The signals are taken by sigwait below; the server threads inherit the mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  WiFiShare web;
  web.initHttpServer();
  web.webServer()->setPort(static_cast<std::uint16_t>(opts.port));
  web.webServer()->setInterface(opts.bind);
  Error error;
  if (!web.startHttpServer(&error)) {
    return fail("serve", error.message, 2);
  }
  std::unique_ptr<WebDavShare> dav;
  if (!opts.noWebdav) {
    dav = std::make_unique<WebDavShare>();
    dav->initHttpServer();
    dav->webServer()->setPort(static_cast<std::uint16_t>(opts.webdavPort));
    dav->webServer()->setInterface(opts.bind);
    if (!dav->startHttpServer(&error)) {
      web.stopHttpServer();
      return fail("serve", error.message, 2);
    }
  }
  if (dav && !isLoopback(opts.bind) && LoginPasswordUtil::getWifiPassword().empty()) {
    // WebDAV can change and remove files; the web page alone cannot do as much.
    std::cerr << "harbor serve: warning: WebDAV is open to the network without a password; "
                 "anyone who can reach this machine can change or remove files in the document "
                 "root (set a Wi-Fi password, bind to 127.0.0.1 or use --no-webdav)"
              << std::endl;
  }
  std::string host = hostFor(opts.bind);
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  std::cout << "web http://" << host << ":" << web.webServer()->listeningPort() << "/" << std::endl;
  if (dav) {
    std::cout << "webdav http://" << host << ":" << dav->webServer()->listeningPort() << "/"
              << std::endl;
  }

  int signal = 0;
  sigwait(&stopSignals, &signal);
  if (dav) dav->stopHttpServer();
  web.stopHttpServer();
  WiFiShare::removeTempDirectory();
  return 0;
}

void addServeCommand(CLI::App& app, int& exitCode) {
  auto opts = std::make_shared<ServeOptions>();
  CLI::App* cmd = app.add_subcommand(
      "serve", "Share the document root: the web file manager and WebDAV, until stopped");
  cmd->add_option("--port", opts->port, "Web file manager port (0 picks a free one)")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  cmd->add_option("--webdav-port", opts->webdavPort, "WebDAV port (0 picks a free one)")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  cmd->add_flag("--no-webdav", opts->noWebdav, "Serve the web file manager only");
  cmd->add_option("--bind", opts->bind, "Listen on this address only (default: all)")
      ->type_name("ADDR");
  cmd->footer(
      "Stops on SIGINT or SIGTERM. Exit codes: 0 stopped, 1 failure, 2 bad usage or "
      "a port already taken.");
  cmd->callback([opts, &exitCode] { exitCode = runServe(*opts); });
}

}  // namespace

const CommandRegistrar serveCommand(70, addServeCommand);

}  // namespace harbor::cli
