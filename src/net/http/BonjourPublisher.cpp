#include "net/http/BonjourPublisher.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/thread-watch.h>
#include <unistd.h>

#include <mutex>

#include "platform/Log.h"

namespace harbor {

struct BonjourPublisher::State {
  AvahiThreadedPoll* poll = nullptr;
  AvahiClient* client = nullptr;
  AvahiEntryGroup* group = nullptr;
  std::string name;
  std::string type;
  std::uint16_t port = 0;
  std::map<std::string, std::string> txt;
  mutable std::mutex mutex;  // guards name for readers off the poll thread

  void createServices();
};

namespace {

void groupCallback(AvahiEntryGroup* g, AvahiEntryGroupState state, void* userdata) {
  auto* s = static_cast<BonjourPublisher::State*>(userdata);
  if (state == AVAHI_ENTRY_GROUP_COLLISION) {
    char* alt = avahi_alternative_service_name(s->name.c_str());
    {
      std::lock_guard lock(s->mutex);
      s->name = alt;
    }
    avahi_free(alt);
    avahi_entry_group_reset(g);
    s->createServices();
  } else if (state == AVAHI_ENTRY_GROUP_FAILURE) {
    HB_LOG("BonjourPublisher",
           std::string("publishing failed: ") + avahi_strerror(avahi_client_errno(s->client)));
  }
}

void clientCallback(AvahiClient* c, AvahiClientState state, void* userdata) {
  auto* s = static_cast<BonjourPublisher::State*>(userdata);
  s->client = c;
  if (state == AVAHI_CLIENT_S_RUNNING) {
    s->createServices();
  } else if (state == AVAHI_CLIENT_S_COLLISION || state == AVAHI_CLIENT_S_REGISTERING) {
    if (s->group) avahi_entry_group_reset(s->group);
  }
}

}  // namespace

void BonjourPublisher::State::createServices() {
  if (!group) group = avahi_entry_group_new(client, groupCallback, this);
  if (!group) return;
  if (!avahi_entry_group_is_empty(group)) return;
  AvahiStringList* list = nullptr;
  for (const auto& [k, v] : txt) list = avahi_string_list_add_pair(list, k.c_str(), v.c_str());
  std::string serviceType = type;
  while (!serviceType.empty() && serviceType.back() == '.') serviceType.pop_back();
  int err = avahi_entry_group_add_service_strlst(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                 AvahiPublishFlags(0), name.c_str(),
                                                 serviceType.c_str(), nullptr, nullptr, port, list);
  avahi_string_list_free(list);
  if (err == AVAHI_ERR_COLLISION) {
    char* alt = avahi_alternative_service_name(name.c_str());
    {
      std::lock_guard lock(mutex);
      name = alt;
    }
    avahi_free(alt);
    avahi_entry_group_reset(group);
    createServices();
    return;
  }
  if (err < 0) {
    HB_LOG("BonjourPublisher", std::string("cannot add the service: ") + avahi_strerror(err));
    return;
  }
  avahi_entry_group_commit(group);
}

BonjourPublisher::BonjourPublisher() : state_(std::make_unique<State>()) {}

BonjourPublisher::~BonjourPublisher() {
  unpublish();
}

bool BonjourPublisher::publish(const std::string& name, const std::string& type, std::uint16_t port,
                               const std::map<std::string, std::string>& txt) {
  unpublish();
  state_->name = name;
  if (state_->name.empty()) {
    char host[256] = {0};
    ::gethostname(host, sizeof host - 1);
    state_->name = std::string("Harbor on ") + host;
  }
  state_->type = type;
  state_->port = port;
  state_->txt = txt;
  state_->poll = avahi_threaded_poll_new();
  if (!state_->poll) return false;
  int err = 0;
  state_->client = avahi_client_new(avahi_threaded_poll_get(state_->poll), AvahiClientFlags(0),
                                    clientCallback, state_.get(), &err);
  if (!state_->client) {
    // No daemon: sharing works without being announced.
    if (state_->client) avahi_client_free(state_->client);
    avahi_threaded_poll_free(state_->poll);
    state_->client = nullptr;
    state_->group = nullptr;
    state_->poll = nullptr;
    return false;
  }
  avahi_threaded_poll_start(state_->poll);
  return true;
}

void BonjourPublisher::unpublish() {
  if (!state_->poll) return;
  avahi_threaded_poll_stop(state_->poll);
  if (state_->client) avahi_client_free(state_->client);  // frees the group too
  avahi_threaded_poll_free(state_->poll);
  state_->client = nullptr;
  state_->group = nullptr;
  state_->poll = nullptr;
}

std::string BonjourPublisher::publishedName() const {
  std::lock_guard lock(state_->mutex);
  return state_->poll ? state_->name : std::string();
}

}  // namespace harbor
