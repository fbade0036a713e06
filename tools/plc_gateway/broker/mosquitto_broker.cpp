// Addresses of the broker, one connection at a time, and events from the loop alone.
#include "tools/plc_gateway/broker/mosquitto_broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "tools/plc_gateway/broker/failure_text.h"
#include "tools/plc_gateway/broker/password.h"

namespace plc_gateway {
namespace {

constexpr uint64_t kGoodbyeMs = 1000;

// In the order in which they are to be tried, the first one last.
std::vector<std::string> addresses_of(const addrinfo* list) {
  std::vector<std::string> addresses;
  for (; list != nullptr; list = list->ai_next) {
    char text[INET6_ADDRSTRLEN] = "";
    if (list->ai_family == AF_INET) {
      uv_ip4_name(reinterpret_cast<const sockaddr_in*>(list->ai_addr), text, sizeof text);
    } else if (list->ai_family == AF_INET6) {
      uv_ip6_name(reinterpret_cast<const sockaddr_in6*>(list->ai_addr), text, sizeof text);
    }
    if (text[0] != '\0') addresses.emplace_back(text);
  }
  std::reverse(addresses.begin(), addresses.end());
  return addresses;
}

}  // namespace

MosquittoBroker::MosquittoBroker(uv_loop_t* loop, BrokerOptions options, BrokerEvents events)
    : loop_(loop),
      options_(std::move(options)),
      events_(std::move(events)),
      soon_(make_timer(loop, this)),
      leave_by_(make_timer(loop, this)) {
  static std::once_flag once;
  std::call_once(once, [] { mosquitto_lib_init(); });
}

MosquittoBroker::~MosquittoBroker() {
  if (lookup_ != nullptr) {
    lookup_->owner = nullptr;
    uv_cancel(reinterpret_cast<uv_req_t*>(&lookup_->request));
  }
}

// ---------------------------------------------------------------------------------------------------- the beginning

void MosquittoBroker::connect(const Message& will) {
  drop();
  sent_connect_ = false;
  will_ = will;
  wanted_ = true;
  if (!leaving_) begin();
}

void MosquittoBroker::begin() {
  if (!options_.password_file.empty()) {
    const std::string problem = read_password(options_.password_file, &password_);
    if (!problem.empty()) {
      fail_soon(problem);
      return;
    }
  }
  resolve();
}

// In a thread of libuv's: a name server that does not answer must not stand in the way of what is read.
void MosquittoBroker::resolve() {
  if (lookup_ != nullptr) return;  // the last one is not answered yet: its answer serves
  auto lookup = std::make_unique<Lookup>();
  lookup->owner = this;
  lookup->request.data = lookup.get();
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  const int problem = uv_getaddrinfo(loop_, &lookup->request, on_resolved, options_.host.c_str(), nullptr, &hints);
  if (problem != 0) {
    fail_soon(resolver_failure(options_, problem));
    return;
  }
  lookup_ = lookup.release();  // on_resolved deletes it
}

void MosquittoBroker::on_resolved(uv_getaddrinfo_t* request, int status, addrinfo* list) {
  const std::unique_ptr<Lookup> lookup(static_cast<Lookup*>(request->data));
  std::vector<std::string> addresses = addresses_of(list);
  uv_freeaddrinfo(list);
  MosquittoBroker* owner = lookup->owner;
  if (owner == nullptr) return;
  owner->lookup_ = nullptr;
  if (!owner->wanted_) return;
  owner->addresses_ = std::move(addresses);
  owner->failure_ = resolver_failure(owner->options_, status != 0 ? status : UV_EAI_NODATA);
  owner->try_next();
}

void MosquittoBroker::try_next() {
  while (!addresses_.empty()) {
    const std::string address = std::move(addresses_.back());
    addresses_.pop_back();
    link_ = std::make_unique<MosquittoLink>(loop_, options_, [this] { turn(); });
    failure_ = link_->open(address, will_, password_);
    if (failure_.empty()) return;
    link_.reset();
  }
  fail();
}

void MosquittoBroker::fail_soon(std::string reason) {
  failure_ = std::move(reason);
  const auto tell = [](uv_timer_t* timer) { static_cast<MosquittoBroker*>(timer->data)->fail(); };
  uv_timer_start(soon_.get(), tell, 0, 0);
}

void MosquittoBroker::fail() {
  const std::string reason = std::exchange(failure_, {});  // the listener may connect again, and fail
  drop();
  events_.disconnected(reason);
}

// ---------------------------------------------------------------------------------------------------- the end

void MosquittoBroker::drop() {
  wanted_ = false;
  uv_timer_stop(soon_.get());
  addresses_.clear();
  end_link();
}

void MosquittoBroker::end_link() {
  if (!link_) return;
  sent_connect_ |= link_->sent_connect();
  dropped_before_ += link_->dropped_messages();
  link_.reset();
}

void MosquittoBroker::disconnect() {
  std::unique_ptr<MosquittoLink> link = std::move(link_);
  drop();
  if (!link) return;
  dropped_before_ += link->dropped_messages();
  link->finish();
  if (link->finished()) return;
  leaving_ = std::move(link);
  const auto end = [](uv_timer_t* timer) { static_cast<MosquittoBroker*>(timer->data)->end_leaving(); };
  uv_timer_start(leave_by_.get(), end, kGoodbyeMs, 0);
}

void MosquittoBroker::end_leaving() {
  uv_timer_stop(leave_by_.get());
  leaving_.reset();
  if (wanted_) begin();
}

// ---------------------------------------------------------------------------------------------------- while it lasts

bool MosquittoBroker::subscribe(const std::vector<std::string>& filters) { return link_ && link_->subscribe(filters); }

std::optional<int> MosquittoBroker::publish(const Message& message) {
  return link_ ? link_->publish(message) : std::nullopt;
}

std::optional<size_t> MosquittoBroker::most_message_bytes() const {
  return link_ ? link_->most_message_bytes() : std::nullopt;
}

uint64_t MosquittoBroker::dropped_messages() const { return dropped_before_ + (link_ ? link_->dropped_messages() : 0); }

// What comes of an event may end the connection, and with it all events behind.
void MosquittoBroker::turn() {
  if (leaving_ && leaving_->finished()) end_leaving();
  while (link_) {
    std::optional<LinkEvent> event = link_->next_event();
    if (!event) return;
    hand_on(*event);
  }
}

void MosquittoBroker::hand_on(LinkEvent& event) {
  switch (event.kind) {
    case LinkEvent::Kind::kConnected:
      addresses_.clear();
      events_.connected();
      return;
    case LinkEvent::Kind::kSubscribed:
      events_.subscribed(event.ok);
      return;
    case LinkEvent::Kind::kAcknowledged:
      events_.acknowledged(event.id);
      return;
    case LinkEvent::Kind::kMessage:
      events_.message(event.message);
      return;
    case LinkEvent::Kind::kTooLong:
      events_.too_long(event.message.topic, event.bytes);
      return;
    case LinkEvent::Kind::kLost:
      break;
  }
  failure_ = std::move(event.reason);
  if (event.refused) addresses_.clear();
  end_link();
  try_next();
}

}  // namespace plc_gateway
