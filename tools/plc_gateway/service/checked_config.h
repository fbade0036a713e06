// A configuration with all that a run would find wrong with it at its start.
#pragma once

#include <string>

#include "tools/plc_gateway/broker/broker_options.h"
#include "tools/plc_gateway/config/config.h"

namespace plc_gateway {

// As load_config, and the files of TLS were taken and the broker's name was looked up, as a connect does it.
ConfigResult load_checked_config(const std::string& file);

// What a connection to the broker needs of the configuration.
BrokerOptions broker_options(const Config& config);

}  // namespace plc_gateway
