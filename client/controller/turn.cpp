// Refuses the uses that would wait for ever, or take the replies of another process.
#include "client/controller/turn.h"

#include "client/plc_client.h"

namespace plc_client {

Turn::Turn(Turns& turns) : turns_(turns) {
  if (turns.is_copy()) {
    throw Error("the controller belongs to process " + std::to_string(turns.process) +
                ", from which this one was forked, and shares its connection: make a Controller of its own in the "
                "child");
  }
  if (turns.user == std::this_thread::get_id()) {
    throw Error(
        "a function that a controller calls, log or on_state, may not use this controller, which waits for it: note "
        "what there is to do, and do it after the call");
  }
  turns.in_use.lock();
  turns.user = std::this_thread::get_id();
}

Turn::~Turn() {
  turns_.user = std::thread::id();
  turns_.in_use.unlock();
}

}  // namespace plc_client
