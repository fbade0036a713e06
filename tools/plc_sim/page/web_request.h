// What a visitor of the page asks for, and the answer.
#pragma once

#include <optional>
#include <string>

namespace plc_sim {

constexpr int kHttpOk = 200;
constexpr int kHttpBadRequest = 400;
constexpr int kHttpForbidden = 403;
constexpr int kHttpNotFound = 404;
constexpr int kHttpWrongMethod = 405;
constexpr int kHttpTooLarge = 413;

struct WebRequest {
  std::string method;
  std::string path;                       // without the query
  std::string query;                      // behind the '?', decoded
  std::optional<std::string> host;        // the name under which the visitor looked for the page, with its port
  std::optional<std::string> origin;      // the page that asks; browsers name it
  std::optional<std::string> fetch_site;  // how near the page that asks is to this one, as browsers say it
  std::string reached_at;                 // the address of this machine that the visitor connected to
  bool has_own_header = false;            // the header that only the page's own script sends
  std::string body;
};

struct WebAnswer {
  int status = kHttpOk;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
  std::string allowed_method;  // with status 405
};

inline WebAnswer plain_answer(int status, const std::string& text) {
  WebAnswer answer;
  answer.status = status;
  answer.body = text;
  return answer;
}

}  // namespace plc_sim
