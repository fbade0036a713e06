// The page and what it asks for: values, counts, faults, and commands.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tools/plc_sim/controller/faults.h"
#include "tools/plc_sim/controller/tally.h"
#include "tools/plc_sim/page/web_request.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

// What the head of the page names.
struct PageHead {
  std::string listening;           // where hosts connect to
  std::vector<std::string> files;  // the tag files
  std::string replay;              // the capture that is answered from; empty for tag files
};

class WebPage {
 public:
  // `run_command` takes a line of the console and gives its answer.
  WebPage(const VariableStore& store, const FaultBook& faults, const Tally& tally,
          std::function<std::string(const std::string&)> run_command)
      : store_(store), faults_(faults), tally_(tally), run_command_(std::move(run_command)) {}

  void set_head(PageHead head) { head_ = std::move(head); }

  // GET / is the page, GET /page.css and /page.js what it is made of besides, GET /state?PART the variables whose name
  // contains PART with counts and faults, POST /command takes a set or fault command. Commands need a header that pages
  // of other origins cannot send unasked.
  WebAnswer answer(const WebRequest& request) const;

 private:
  std::string state(const std::string& part) const;
  WebAnswer command(const WebRequest& request) const;

  const VariableStore& store_;
  const FaultBook& faults_;
  const Tally& tally_;
  std::function<std::string(const std::string&)> run_command_;
  PageHead head_;
};

}  // namespace plc_sim
