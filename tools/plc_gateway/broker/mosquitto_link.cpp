// libmosquitto in a loop of libuv.
//
// libmosquitto calls back from within its own functions, where it must not be destroyed: what it says becomes an event,
// taken when it has returned.
#include "tools/plc_gateway/broker/mosquitto_link.h"

#include <fcntl.h>
#include <mqtt_protocol.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/plc_gateway/broker/failure_text.h"

namespace plc_gateway {
namespace {

constexpr int kPacketsAtOnce = 100;
constexpr int kSecondsToConnect = 3;  // of TCP to one address
constexpr int kRefusedSubscription = 128;
constexpr uint64_t kSecondMs = 1000;

// libmosquitto pings no more often.
int keep_alive_s(const BrokerOptions& options) { return std::max(static_cast<int>(options.keep_alive_s), 5); }

// Brokers of MQTT 5 keep to themselves what is longer than this; the session's end with the connection is the default.
// The call that takes properties waits for TCP. With a keep-alive that it refuses it takes the properties alone, and
// the call that does not wait sends them.
void limit_messages(mosquitto* mosq) {
  mosquitto_property* properties = nullptr;
  mosquitto_property_add_int32(&properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, kMostMessageFromBroker);
  mosquitto_connect_bind_v5(mosq, "localhost", 1, 1, nullptr, properties);
  mosquitto_property_free_all(&properties);
}

}  // namespace

MosquittoLink::MosquittoLink(uv_loop_t* loop, const BrokerOptions& options, std::function<void()> turned)
    : loop_(loop), options_(options), turned_(std::move(turned)) {}

MosquittoLink::~MosquittoLink() {
  poll_.reset();
  mosq_.reset();
  if (socket_ >= 0) close(socket_);
}

// ---------------------------------------------------------------------------------------------------- the beginning

std::string MosquittoLink::open(const std::string& address, const Message& will, const std::string& password) {
  mosq_.reset(mosquitto_new(options_.client_id.c_str(), true, this));
  if (!mosq_) return "libmosquitto has no memory for a connection";
  if (std::string problem = set_up(will, password); !problem.empty()) return problem;
  errno = 0;
  const int result = mosquitto_connect_async(mosq_.get(), address.c_str(), options_.port, keep_alive_s(options_));
  if (result != MOSQ_ERR_SUCCESS) return reason_of(result);
  early_error_ = errno;
  return watch() ? std::string() : "no descriptor to watch the broker's connection with";
}

std::string MosquittoLink::set_up(const Message& will, const std::string& password) {
  mosquitto* mosq = mosq_.get();
  mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, options_.mqtt5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
  mosquitto_int_option(mosq, MOSQ_OPT_TCP_NODELAY, 1);
  // Nothing waits for an acknowledgment, so that messages go out in the order in which they were given.
  mosquitto_max_inflight_messages_set(mosq, 0);
  mosquitto_connect_v5_callback_set(mosq, on_connect);
  mosquitto_disconnect_v5_callback_set(mosq, on_disconnect);
  mosquitto_publish_v5_callback_set(mosq, on_publish);
  mosquitto_subscribe_v5_callback_set(mosq, on_subscribe);
  mosquitto_message_v5_callback_set(mosq, on_message);
  mosquitto_log_callback_set(mosq, on_log);
  const int set = mosquitto_will_set(mosq, will.topic.c_str(), static_cast<int>(will.payload.size()),
                                     will.payload.data(), will.qos, will.retained);
  if (set != MOSQ_ERR_SUCCESS) return std::string("the will was not taken: ") + mosquitto_strerror(set);
  if (!options_.username.empty()) {
    mosquitto_username_pw_set(mosq, options_.username.c_str(),
                              options_.password_file.empty() ? nullptr : password.c_str());
  }
  if (options_.mqtt5) limit_messages(mosq);
  return options_.tls ? set_up_tls() : std::string();
}

std::string MosquittoLink::set_up_tls() {
  tls_ = std::make_unique<TlsContext>(options_);
  if (!tls_->problem().empty()) return tls_->problem();
  mosquitto_int_option(mosq_.get(), MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
  mosquitto_void_option(mosq_.get(), MOSQ_OPT_SSL_CTX, tls_->get());
  return {};
}

bool MosquittoLink::watch() {
  socket_ = fcntl(mosquitto_socket(mosq_.get()), F_DUPFD_CLOEXEC, 0);
  if (socket_ < 0) return false;
  timer_ = make_timer(loop_, this);
  uv_timer_start(
      timer_.get(), [](uv_timer_t* timer) { static_cast<MosquittoLink*>(timer->data)->second(); }, kSecondMs,
      kSecondMs);
  poll_.reset(new uv_poll_t);
  uv_poll_init(loop_, poll_.get(), socket_);
  poll_->data = this;
  look();
  return true;
}

// ---------------------------------------------------------------------------------------------------- turns

// What is watched for: an answer always, room to send when something waits, or when TCP is not connected yet.
void MosquittoLink::look() {
  if (lost_ || !poll_) return;
  const int wanted = UV_READABLE | (!on_wire_ || mosquitto_want_write(mosq_.get()) ? UV_WRITABLE : 0);
  if (wanted == watched_) return;
  watched_ = wanted;
  uv_poll_start(poll_.get(), wanted, [](uv_poll_t* poll, int status, int events) {
    static_cast<MosquittoLink*>(poll->data)->turn(status, events);
  });
}

// A failure is told once, and TLS may have been told already when it tried to begin: then there is no peer all the
// same.
bool MosquittoLink::check_connected() {
  int error = 0;
  socklen_t length = sizeof error;
  getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length);
  sockaddr_storage peer{};
  socklen_t peer_length = sizeof peer;
  if (error == 0 && getpeername(socket_, reinterpret_cast<sockaddr*>(&peer), &peer_length) != 0) {
    error = early_error_ != 0 ? early_error_ : errno;
  }
  if (error != 0) lose(socket_failure(options_, error));
  on_wire_ = error == 0;
  return on_wire_;
}

void MosquittoLink::turn(int status, int events) {
  if (!lost_ && (on_wire_ || check_connected())) {
    errno = 0;
    if (status < 0 || (events & UV_READABLE) != 0) after(mosquitto_loop_read(mosq_.get(), kPacketsAtOnce));
    if (!lost_ && mosquitto_want_write(mosq_.get())) after(mosquitto_loop_write(mosq_.get(), kPacketsAtOnce));
  }
  if (!lost_ && status < 0) lose(socket_failure(options_, ECONNRESET));  // libuv watches it no more
  look();
  const std::function<void()> turned = turned_;
  turned();  // the last: this may be gone behind it
}

void MosquittoLink::second() {
  ++seconds_;
  if (!lost_) {
    if (on_wire_) {
      after(mosquitto_loop_misc(mosq_.get()));
    } else if (seconds_ >= kSecondsToConnect) {
      lose(socket_failure(options_, ETIMEDOUT));
    }
  }
  look();
  const std::function<void()> turned = turned_;
  turned();
}

void MosquittoLink::after(int result) {
  if (result != MOSQ_ERR_SUCCESS) lose(reason_of(result), !refusal_.empty());
}

std::string MosquittoLink::reason_of(int result) const {
  const int error = errno;
  if (!refusal_.empty()) return refusal_;
  if (tls_ && tls_->certificate_error() != 0) return certificate_failure(options_, tls_->certificate_error());
  if (tls_ && !greeted_) return handshake_failure(options_, tls_->alert(), last_line_);
  if (result == MOSQ_ERR_KEEPALIVE) return "the broker is silent: it does not answer to a ping";
  if (result == MOSQ_ERR_PROTOCOL || result == MOSQ_ERR_MALFORMED_PACKET) {
    return broker_place(options_) + " does not speak MQTT as a broker should: see the url's port";
  }
  if (result == MOSQ_ERR_ERRNO && error != 0) return socket_failure(options_, error);
  // libmosquitto calls an end within a packet an error of the system, which knows of none.
  if (result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO) {
    return greeted_ ? hang_up_text(options_)
                    : "the broker closed the connection before it answered: see its log, and the url's port";
  }
  return std::string("the connection failed: ") + mosquitto_strerror(result);
}

void MosquittoLink::lose(std::string reason, bool refused) {
  if (lost_) return;
  lost_ = true;
  if (poll_) uv_poll_stop(poll_.get());
  if (timer_) uv_timer_stop(timer_.get());
  LinkEvent event;
  event.reason = std::move(reason);
  event.refused = refused;
  push(std::move(event));
}

void MosquittoLink::push(LinkEvent event) { events_.push_back(std::move(event)); }

std::optional<LinkEvent> MosquittoLink::next_event() {
  if (events_.empty()) return std::nullopt;
  LinkEvent event = std::move(events_.front());
  events_.pop_front();
  return event;
}

// ---------------------------------------------------------------------------------------------------- what is sent

bool MosquittoLink::subscribe(const std::vector<std::string>& filters) {
  std::vector<char*> list;
  list.reserve(filters.size());
  for (const std::string& filter : filters) list.push_back(const_cast<char*>(filter.c_str()));
  const int result = mosquitto_subscribe_multiple(mosq_.get(), &subscription_, static_cast<int>(list.size()),
                                                  list.data(), 1, 0, nullptr);
  look();
  return result == MOSQ_ERR_SUCCESS;
}

std::optional<int> MosquittoLink::publish(const Message& message) {
  if (lost_) return std::nullopt;
  int id = 0;
  const int result =
      mosquitto_publish(mosq_.get(), &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
                        message.payload.data(), message.qos, message.retained);
  look();
  if (result != MOSQ_ERR_SUCCESS) return std::nullopt;
  if (message.qos > 0) unacknowledged_.set(static_cast<uint16_t>(id));
  return id;
}

void MosquittoLink::finish() {
  if (lost_) return;
  // By MQTT 5 the standard wants the will published all the same; by 3.1.1 there is no such word.
  const int reason = options_.mqtt5 ? MQTT_RC_DISCONNECT_WITH_WILL_MSG : MQTT_RC_NORMAL_DISCONNECTION;
  if (mosquitto_disconnect_v5(mosq_.get(), reason, nullptr) != MOSQ_ERR_SUCCESS) lose({});
  look();
}

// ---------------------------------------------------------------------------------------------------- what comes back

void MosquittoLink::on_connect(mosquitto* mosq, void* self, int code, int, const mosquitto_property* properties) {
  auto& link = *static_cast<MosquittoLink*>(self);
  if (code != 0) {
    link.refusal_ = connack_failure(link.options_, code);
    return;
  }
  // libmosquitto takes any number of them, and a broker that sends them without end would cost a processor.
  if (link.greeted_) return link.lose(second_greeting_text(link.options_), true);
  link.greeted_ = true;
  uint32_t most_bytes = 0;
  mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &most_bytes, false);
  if (most_bytes != 0) link.most_message_bytes_ = most_bytes;
  uint8_t most_qos = 1;
  mosquitto_property_read_byte(properties, MQTT_PROP_MAXIMUM_QOS, &most_qos, false);
  if (most_qos == 0) return link.lose(qos_failure(), true);
  mosquitto_log_callback_set(mosq, nullptr);  // it would have every message told
  LinkEvent event;
  event.kind = LinkEvent::Kind::kConnected;
  link.push(std::move(event));
}

// A broker's own goodbye comes here alone; everything else is the result of the function that is calling too.
void MosquittoLink::on_disconnect(mosquitto*, void* self, int code, const mosquitto_property*) {
  auto& link = *static_cast<MosquittoLink*>(self);
  if (code >= MQTT_RC_UNSPECIFIED) link.lose(link.refusal_.empty() ? goodbye_text(code) : link.refusal_, true);
  if (code == MOSQ_ERR_SUCCESS) link.lose({});  // our own goodbye is sent
}

void MosquittoLink::on_publish(mosquitto*, void* self, int id, int code, const mosquitto_property*) {
  auto& link = *static_cast<MosquittoLink*>(self);
  const auto number = static_cast<uint16_t>(id);
  if (!link.unacknowledged_.test(number)) return;
  link.unacknowledged_.reset(number);
  if (code >= MQTT_RC_UNSPECIFIED) {
    link.lose(publish_failure(code), true);
    return;
  }
  LinkEvent event;
  event.kind = LinkEvent::Kind::kAcknowledged;
  event.id = id;
  link.push(std::move(event));
}

void MosquittoLink::on_subscribe(mosquitto*, void* self, int id, int count, const int* granted,
                                 const mosquitto_property*) {
  auto& link = *static_cast<MosquittoLink*>(self);
  if (id != link.subscription_) return;
  LinkEvent event;
  event.kind = LinkEvent::Kind::kSubscribed;
  for (int i = 0; i < count; ++i) event.ok = event.ok && granted[i] < kRefusedSubscription;
  link.push(std::move(event));
}

void MosquittoLink::on_message(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property*) {
  auto& link = *static_cast<MosquittoLink*>(self);
  if (static_cast<size_t>(message->payloadlen) > kMostMessageFromBroker) {
    ++link.dropped_messages_;
    LinkEvent dropped;
    dropped.kind = LinkEvent::Kind::kTooLong;
    dropped.message.topic = message->topic;
    dropped.bytes = static_cast<size_t>(message->payloadlen);
    link.push(std::move(dropped));
    return;
  }
  LinkEvent event;
  event.kind = LinkEvent::Kind::kMessage;
  event.message.topic = message->topic;
  event.message.payload.assign(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen));
  event.message.qos = message->qos;
  event.message.retained = message->retain;
  link.push(std::move(event));
}

void MosquittoLink::on_log(mosquitto*, void* self, int level, const char* line) {
  if ((level & MOSQ_LOG_ERR) != 0) static_cast<MosquittoLink*>(self)->last_line_ = line;
}

}  // namespace plc_gateway
