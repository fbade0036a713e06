// Which replies the driver may take for which requests, told exactly.
//
// The driver matches replies by their order alone, and TCP keeps the order. So a connection is in step from its
// beginning until the controller does something wrong to a reply, and again from the first request behind that which
// is answered by its own reply: whatever was sent for earlier requests lies in front of that reply and is used up. In
// step, every request must be answered by its own reply, and every value must be right. Out of step a request is
// answered by what was sent for earlier ones; each drain must then have taken what waited, up to its 512 bytes.
#ifndef TESTS_FAULTS_REPLY_ORDER_H
#define TESTS_FAULTS_REPLY_ORDER_H

#include <array>
#include <cstdint>
#include <string>

#include "faults/exchange_tap.h"

namespace plc_test {

class ReplyOrder {
 public:
  // From here on the controller may do wrong to any reply.
  void faults_begin() { has_faults_ = true; }
  // The controller does no wrong to replies of requests that are sent from here on. Those before may still be late.
  void faults_end();

  void begin_call();
  void observe(const Exchange& exchange);

  bool is_in_step() const { return is_in_step_ && !has_faults_; }

  // Of the call since begin_call:
  // it made exchanges of its own, and each exchange was in step and answered by its own reply
  bool call_was_in_step() const { return call_exchanges_ > 0 && call_in_step_; }
  // a write carried what another request's reply said
  bool call_wrote_astray() const { return wrote_astray_; }
  // what the driver's buffer holds: each reply over the last
  const Bytes& call_replies() const { return replies_; }

  // Empty while everything that was seen is allowed.
  const std::string& error() const { return error_; }

  struct Figures {
    unsigned long in_step = 0;              // exchanges that had to be answered by their own reply
    unsigned long out_of_step = 0;          // exchanges behind faults that were not
    std::array<unsigned long, 4> behind{};  // of those: answered by the reply to the request one, two, three before;
                                            // first: by other bytes
    unsigned long longest = 0;              // exchanges out of step in a row, without a fault among them
    unsigned long astray = 0;               // writes that carried what another request's reply said
    unsigned long unanswered = 0;           // exchanges in step without a reply: the machine was too slow
    unsigned long closed = 0;               // exchanges in step that found the connection closed
  };
  const Figures& figures() const { return figures_; }

 private:
  void fail(const Exchange& exchange, const char* what);
  void check_drain(const Exchange& exchange);
  void take_step(const Exchange& exchange);
  void count_out_of_step(const Exchange& exchange);
  void keep_reply(const Exchange& exchange);

  bool has_faults_ = false;
  bool is_in_step_ = true;
  unsigned long connection_ = 0;
  unsigned long in_a_row_ = 0;
  unsigned call_exchanges_ = 0;
  bool call_in_step_ = true;
  bool call_is_own_ = true;
  bool wrote_astray_ = false;
  Bytes replies_;
  std::string error_;
  Figures figures_;
};

}  // namespace plc_test

#endif
