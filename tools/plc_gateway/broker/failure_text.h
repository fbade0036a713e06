// Why there is no broker, as sentences that say what to do.
#pragma once

#include <string>

#include "tools/plc_gateway/broker/broker_options.h"

namespace plc_gateway {

// Of a connection of TCP that did not come about, or ended; the number is the system's.
std::string socket_failure(const BrokerOptions& options, int error);

// Of a name that has no address, or none now; the number is libuv's.
std::string resolver_failure(const BrokerOptions& options, int error);

// The code of a CONNACK of MQTT 3.1.1 (1 to 5) or 5 (from 128).
std::string connack_failure(const BrokerOptions& options, int code);

// Of a second CONNACK on one connection.
std::string second_greeting_text(const BrokerOptions& options);

// Of a broker whose greatest QoS is 0.
std::string qos_failure();

// The code of a PUBACK of MQTT 5 that acknowledges nothing. By 3.1.1 a broker cannot say so.
std::string publish_failure(int code);

// Of a session that ended without a word, as those do by MQTT 3.1.1 when another client comes with the same id.
std::string hang_up_text(const BrokerOptions& options);

// The code of a DISCONNECT of MQTT 5 that the broker sent.
std::string goodbye_text(int code);

// The broker's certificate: the number is OpenSSL's.
std::string certificate_failure(const BrokerOptions& options, long error);

// A handshake that failed otherwise: what the broker said of it (the alert of TLS, empty when it said nothing), and a
// line of libmosquitto's about it, if there is one.
std::string handshake_failure(const BrokerOptions& options, const std::string& alert, const std::string& line);

}  // namespace plc_gateway
