// The names of client/ that the program uses, as its own.
#pragma once

namespace plc_client::core {}

namespace plc_host {

using namespace plc_client::core;

}  // namespace plc_host
