// Sentences about brokers that cannot be reached.
#include "tools/plc_gateway/broker/failure_text.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netdb.h>
#include <openssl/x509.h>
#include <uv.h>

#include <cerrno>
#include <cstring>

#include "base/text.h"

namespace plc_gateway {
namespace {

bool holds(const std::string& line, const char* word) { return line.find(word) != std::string::npos; }

std::string authority_text(const BrokerOptions& options) {
  return options.ca_file.empty()
             ? "the authorities that this system trusts: set ca_file to the broker's own"
             : plc_base::quoted(options.ca_file) + " (ca_file): put the certificate of its authority there";
}

}  // namespace

std::string broker_place(const BrokerOptions& options) {
  const bool has_colons = options.host.find(':') != std::string::npos;
  return (has_colons ? "[" + options.host + "]" : options.host) + ":" + std::to_string(options.port);
}

std::string socket_failure(const BrokerOptions& options, int error) {
  const std::string place = broker_place(options);
  switch (error) {
    case ECONNREFUSED:
      return "connection refused: nothing listens on " + place + ": start the broker, or see the url's host and port";
    case ETIMEDOUT:
      return place + " does not answer: it is switched off, or a firewall drops what is sent to it";
    case EHOSTUNREACH:
    case ENETUNREACH:
      return "there is no way to " + place + ": see the network's cables and routes";
    case ECONNRESET:
    case EPIPE:
      return std::string("the broker reset the connection: see its log") +
             (options.tls ? ", and whether this port is the one for TLS" : "");
    default:
      return "no connection to " + place + ": " + std::strerror(error);
  }
}

std::string resolver_failure(const BrokerOptions& options, int error) {
  const std::string name = plc_base::quoted(options.host);
  if (error == UV_EAI_AGAIN) return "the name server does not answer when asked for " + name;
  if (error == UV_EAI_NONAME || error == UV_EAI_NODATA) {
    return "no address is known of " + name + ": see the broker's url for its spelling";
  }
  return "no address of " + name + ": " + uv_strerror(error);
}

std::string connack_failure(const BrokerOptions& options, int code) {
  switch (code) {
    case CONNACK_REFUSED_BAD_USERNAME_PASSWORD:
    case CONNACK_REFUSED_NOT_AUTHORIZED:
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
    case MQTT_RC_NOT_AUTHORIZED:
      if (!options.username.empty() && options.password_file.empty()) {
        return "not authorised: the broker does not take this user name without a password: set password_file";
      }
      return options.username.empty()
                 ? "not authorised: the broker wants a user name and a password: set username and password_file"
                 : "not authorised: the broker does not take this user name with this password: "
                   "see username, password_file and the broker's own list";
    case CONNACK_REFUSED_PROTOCOL_VERSION:
    case MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION:
      return options.mqtt5 ? "the broker does not speak MQTT 5: set mqtt_version = \"3.1.1\""
                           : "the broker does not speak MQTT 3.1.1: set mqtt_version = \"5\"";
    case CONNACK_REFUSED_IDENTIFIER_REJECTED:
    case MQTT_RC_CLIENTID_NOT_VALID:
      return "the broker does not take the client id " + plc_base::quoted(options.client_id);
    case CONNACK_REFUSED_SERVER_UNAVAILABLE:
    case MQTT_RC_SERVER_UNAVAILABLE:
      return "the broker is there and takes no clients now";
    case MQTT_RC_QOS_NOT_SUPPORTED:
      return qos_failure();
    default:
      return std::string("the broker refused the connection: ") +
             (code < MQTT_RC_UNSPECIFIED ? mosquitto_connack_string(code) : mosquitto_reason_string(code));
  }
}

std::string second_greeting_text(const BrokerOptions& options) {
  return broker_place(options) +
         " does not speak MQTT as a broker should: it accepted one connection twice; see the url's port";
}

std::string qos_failure() {
  return "the broker takes no messages of QoS 1, which the gateway's will and fences need: raise its max_qos";
}

std::string publish_failure(int code) {
  return std::string("the broker does not take what is published (") + mosquitto_reason_string(code) +
         "): let this user write the topics of the gateway, in the broker's access list";
}

std::string hang_up_text(const BrokerOptions& options) {
  return "the broker closed the connection: it was ended, or another client came with the id " +
         plc_base::quoted(options.client_id) + " (two gateways of one group and edge node do so in turns)";
}

std::string goodbye_text(int code) {
  if (code == MQTT_RC_SESSION_TAKEN_OVER) {
    return "another client came with this gateway's client id: two gateways must not have the same group and edge node";
  }
  return std::string("the broker ended the connection: ") + mosquitto_reason_string(code);
}

std::string certificate_failure(const BrokerOptions& options, long error) {
  const std::string what = "the certificate of " + broker_place(options);
  switch (error) {
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return what + " is not for " + plc_base::quoted(options.host) + ": the url must have a name that it is for";
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return what + " has expired: renew it, or set this machine's clock";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return what + " is not valid yet: set this machine's clock";
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
      return what + " is not signed by " + authority_text(options);
    default:
      return what + " does not hold: " + X509_verify_cert_error_string(error);
  }
}

std::string handshake_failure(const BrokerOptions& options, const std::string& alert, const std::string& line) {
  const std::string place = broker_place(options);
  if (!alert.empty()) {
    const std::string said = "the broker refused this gateway's certificate (" + alert + "): ";
    return said + (options.cert_file.empty() ? "set cert_file and key_file" : "see cert_file and the broker's log");
  }
  if (holds(line, "wrong version number") || holds(line, "packet length too long")) {
    return place + " speaks no TLS: use mqtt:// or the port that the broker has for TLS";
  }
  if (line.empty() || holds(line, "unexpected eof")) {
    return "no TLS with " + place + ": the broker ended the handshake (does it speak TLS on this port?)";
  }
  return "no TLS with " + place + ": " + line;
}

}  // namespace plc_gateway
