// The little of HTTP that a page for one person needs.
#include "tools/plc_sim/page/http.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace plc_sim {
namespace {

constexpr std::string_view kOwnHeader = "x-plc-sim";

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  return out;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return upper >= 'A' && upper <= 'F' ? upper - 'A' + 10 : -1;
}

std::string decode_percent(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool is_code =
        text[i] == '%' && i + 2 < text.size() && hex_digit(text[i + 1]) >= 0 && hex_digit(text[i + 2]) >= 0;
    if (is_code) {
      out += static_cast<char>(hex_digit(text[i + 1]) * 16 + hex_digit(text[i + 2]));
      i += 2;
    } else {
      out += text[i] == '+' ? ' ' : text[i];
    }
  }
  return out;
}

std::string_view next_line(std::string_view& rest) {
  const size_t end = std::min(rest.find("\r\n"), rest.size());
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 2, rest.size()));
  return line;
}

void parse_target(std::string_view line, HttpRequest& request) {
  const size_t first = line.find(' ');
  const size_t second = line.find(' ', first + 1);
  if (first == std::string_view::npos || second == std::string_view::npos) {
    return;
  }
  const std::string_view target = line.substr(first + 1, second - first - 1);
  const size_t question = std::min(target.find('?'), target.size());
  request.method = line.substr(0, first);
  request.path = target.substr(0, question);
  request.query = decode_percent(target.substr(std::min(question + 1, target.size())));
}

const char* reason_of(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    default:
      return "Method Not Allowed";
  }
}

}  // namespace

std::optional<HttpRequest> parse_http_request(const std::string& received) {
  const size_t head_end = received.find("\r\n\r\n");
  if (head_end == std::string::npos) {
    return received.size() > kMaxHttpRequestBytes ? std::optional<HttpRequest>(HttpRequest{}) : std::nullopt;
  }
  HttpRequest request;
  std::string_view rest = std::string_view(received).substr(0, head_end);
  parse_target(next_line(rest), request);
  size_t length = 0;
  while (!rest.empty()) {
    const std::string_view line = next_line(rest);
    const size_t colon = std::min(line.find(':'), line.size());
    const std::string name = lower(line.substr(0, colon));
    if (name == kOwnHeader) {
      request.has_own_header = true;
    } else if (name == "content-length") {
      const size_t start = std::min(line.find_first_not_of(' ', colon + 1), line.size());
      std::from_chars(line.data() + start, line.data() + line.size(), length);
    }
  }
  if (length > kMaxHttpRequestBytes) {
    return HttpRequest{};
  }
  const size_t body_at = head_end + 4;
  if (received.size() < body_at + length) {
    return std::nullopt;
  }
  request.body = received.substr(body_at, length);
  return request;
}

std::string format_http_answer(const HttpAnswer& answer) {
  return "HTTP/1.1 " + std::to_string(answer.status) + " " + reason_of(answer.status) +
         "\r\nContent-Type: " + answer.type + "\r\nContent-Length: " + std::to_string(answer.body.size()) +
         "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\nConnection: close\r\n\r\n" + answer.body;
}

}  // namespace plc_sim
