// Whether the head of a request can be read in two ways, by the page and by what stands between it and the visitor.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace plc_sim {

class HeadCheck {
 public:
  // With the path and the query as they came.
  explicit HeadCheck(std::string_view target);

  // One more line of the head.
  void add(std::string_view name);

  // What the visitor is told of it; empty for a head with one meaning.
  const std::string& problem() const { return problem_; }

 private:
  void refuse(const std::string& advice);

  std::set<std::string> names_;  // that came, of lines that may come once
  std::string problem_;
};

}  // namespace plc_sim
