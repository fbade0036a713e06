// Asks the client library what a list of variables costs, and makes the lists as long as one call allows.
#include "tools/plc_gateway/controller/pieces.h"

#include <algorithm>
#include <map>
#include <utility>

namespace plc_gateway {
namespace {

constexpr size_t kExchangesPerCall = 2;  // names, then values

class Cutter {
 public:
  Cutter(const plc_client::Controller& controller, const std::vector<Variable>& variables)
      : controller_(controller), variables_(variables) {}

  std::vector<Piece> cut();

 private:
  using Indices = std::vector<uint32_t>;

  void cut_group(size_t group, const Indices& members);
  void cut_scope(size_t group, const Indices& members);
  bool can_share(uint32_t variable);
  bool fits(const Indices& members, size_t first, size_t count) const;
  size_t longest(const Indices& members, size_t first) const;
  void add(size_t group, Indices variables) { pieces_.push_back({group, std::move(variables)}); }

  const plc_client::Controller& controller_;
  const std::vector<Variable>& variables_;
  std::map<std::pair<std::string, std::vector<size_t>>, bool> can_share_;  // by type and shape
  std::vector<Piece> pieces_;
  size_t guess_ = 1;  // how many variables the last piece took: the next one takes about as many
};

std::string scope_of(const std::string& name) {
  const size_t slash = name.find('/');
  return slash == std::string::npos ? std::string() : name.substr(0, slash);
}

// Whether a call can read the variable together with another one of its kind.
bool Cutter::can_share(uint32_t variable) {
  const Variable& described = variables_[variable];
  const auto [known, is_new] = can_share_.try_emplace({described.declared_type, described.shape}, false);
  if (is_new) {
    known->second = controller_.plan({described.name, described.name}).exchanges() <= kExchangesPerCall;
  }
  return known->second;
}

bool Cutter::fits(const Indices& members, size_t first, size_t count) const {
  Piece piece;
  const auto start = members.begin() + static_cast<std::ptrdiff_t>(first);
  piece.variables.assign(start, start + static_cast<std::ptrdiff_t>(count));
  return controller_.plan(names_of(piece, variables_)).exchanges() <= kExchangesPerCall;
}

// How many of the members from `first` on one call reads, 1 at least. It is looked for in growing steps around the
// guess, and then by halves.
size_t Cutter::longest(const Indices& members, size_t first) const {
  const size_t most = members.size() - first;
  size_t good = 1;
  size_t bad = most + 1;
  size_t step = 1;
  for (size_t count = std::min(std::max(guess_, size_t{2}), most); good < count && count < bad; step *= 2) {
    if (fits(members, first, count)) {
      good = count;
      count = std::min(count + step, most);
    } else {
      bad = count;
      count -= std::min(step, count - good);
    }
  }
  while (bad - good > 1) {
    const size_t middle = good + (bad - good) / 2;
    (fits(members, first, middle) ? good : bad) = middle;
  }
  return good;
}

void Cutter::cut_scope(size_t group, const Indices& members) {
  Indices shared;
  for (const uint32_t variable : members) {
    if (can_share(variable)) {
      shared.push_back(variable);
    } else {
      add(group, {variable});
    }
  }
  for (size_t first = 0; first < shared.size(); first += guess_) {
    guess_ = longest(shared, first);
    const auto start = shared.begin() + static_cast<std::ptrdiff_t>(first);
    add(group, Indices(start, start + static_cast<std::ptrdiff_t>(guess_)));
  }
}

void Cutter::cut_group(size_t group, const Indices& members) {
  std::map<std::string, Indices> scopes;
  for (const uint32_t variable : members) scopes[scope_of(variables_[variable].name)].push_back(variable);
  const size_t before = pieces_.size();
  for (const auto& [scope, inside] : scopes) cut_scope(group, inside);
  std::sort(pieces_.begin() + static_cast<std::ptrdiff_t>(before), pieces_.end(),
            [](const Piece& a, const Piece& b) { return a.variables.front() < b.variables.front(); });
}

std::vector<Piece> Cutter::cut() {
  std::map<size_t, Indices> groups;
  for (uint32_t i = 0; i < variables_.size(); ++i) groups[variables_[i].group].push_back(i);
  for (const auto& [group, members] : groups) cut_group(group, members);
  return std::move(pieces_);
}

}  // namespace

std::vector<Piece> cut_into_pieces(const plc_client::Controller& controller, const std::vector<Variable>& variables) {
  return Cutter(controller, variables).cut();
}

std::vector<std::string> names_of(const Piece& piece, const std::vector<Variable>& variables) {
  std::vector<std::string> names;
  names.reserve(piece.variables.size());
  for (const uint32_t variable : piece.variables) names.push_back(variables[variable].name);
  return names;
}

}  // namespace plc_gateway
