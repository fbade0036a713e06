// Variables of a controller by name: connect, read, write, without knowing numbers, offsets or frames.
//
//   plc_client::Options options;
//   options.address = "192.168.0.10";
//   options.tags = {"tags/"};
//   plc_client::Controller press(options);
//   const plc_client::Reading speed = press.read("Motor.Speed");
//   if (speed.ok()) std::printf("%d\n", speed.value.as<int>());
//
// Mistakes of the program (a name that no tag file has, a value of another type) are exceptions, thrown before anything
// is sent. The result reports what goes wrong in the world (no answer, a refusal). A value that was not read has no
// value: no zero and no earlier one takes its place.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

// Marks what the shared library exports.
#define PLC_CLIENT_API __attribute__((visibility("default")))
// Marks what it keeps to itself.
#define PLC_CLIENT_PRIVATE __attribute__((visibility("hidden")))

namespace plc_client {

// A time of the system's clock.
using TimePoint = std::chrono::system_clock::time_point;

// ---------------------------------------------------------------------------------------------------- mistakes

// The base of all exceptions: what() is a sentence that names the thing and the remedy.
class PLC_CLIENT_API Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~Error() override;
};

// No tag file declares the name, or several do, or its subscripts cannot be read.
class PLC_CLIENT_API UnknownVariable : public Error {
 public:
  using Error::Error;
  // With the sentence and the names that are near.
  UnknownVariable(const std::string& what, std::vector<std::string> near) : Error(what), near_(std::move(near)) {}
  ~UnknownVariable() override;
  // Declared names that are spelt almost like it, the nearest first, or members of the structure that it is; at most
  // five.
  const std::vector<std::string>& near() const { return near_; }

 private:
  std::vector<std::string> near_;
};

// A value or subscripts of another type or shape than the variable's, or a value asked for as another type than it has.
class PLC_CLIENT_API TypeMismatch : public Error {
 public:
  using Error::Error;
  ~TypeMismatch() override;
};

// A value outside the range of its type, a subscript outside its bounds, or a text that is too long for its string.
class PLC_CLIENT_API OutOfRange : public Error {
 public:
  using Error::Error;
  ~OutOfRange() override;
};

// connect() could not connect.
class PLC_CLIENT_API ConnectionFailed : public Error {
 public:
  using Error::Error;
  ~ConnectionFailed() override;
};

// ---------------------------------------------------------------------------------------------------- values

// What the elements of a value are.
enum class Kind : uint8_t {
  kNone,      // no value
  kBool,      // BOOL
  kSigned,    // SINT, INT, DINT, LINT
  kUnsigned,  // USINT, UINT, UDINT, ULINT
  kWord,      // BYTE, WORD, DWORD, LWORD: unsigned, shown in hexadecimal
  kReal,      // REAL (32 bits), LREAL (64 bits)
  kText,      // STRING: bytes as the controller has them, up to the first zero byte
  kBytes,     // what dates and times would be: their readings have no value
};

// A value: one element, or an array of up to three dimensions, the last subscript fastest.
class PLC_CLIENT_API Value {
 public:
  // No value.
  Value() = default;

  // What its elements are.
  Kind kind() const { return kind_; }
  // Whether there is a value.
  bool has_value() const { return kind_ != Kind::kNone; }
  // Of one element: 1, 8, 16, 32 or 64; 0 for text and bytes.
  unsigned bits() const { return bits_; }
  // Lengths of the dimensions; empty for a single element, a text, bytes.
  const std::vector<size_t>& shape() const { return shape_; }
  // Whether it has dimensions.
  bool is_array() const { return !shape_.empty(); }
  // Elements; 1 for a text and for bytes, 0 without a value.
  size_t size() const { return kind_ == Kind::kText || kind_ == Kind::kBytes ? 1 : elements_.size(); }

  // An element as bool, an integer type, float, double or std::string. Throws TypeMismatch when the value is of another
  // kind, OutOfRange when T cannot hold it, Error when there is no value or no such element. Integers are given as
  // double too, when double can represent them exactly; float takes a REAL only. std::string takes text and bytes only.
  template <typename T>
  T as(size_t element = 0) const;

  // All elements, the last subscript fastest. Throws as as() does.
  template <typename T>
  std::vector<T> as_vector() const;

  // The bits of an element, zeros above its width. Throws Error.
  uint64_t raw(size_t element = 0) const;

  // For people: 120, 0x00FF, 1.5, true, [1, 2], "text". "" without a value.
  std::string to_string() const;

  // Same kind, width, shape and elements; REALs by their bits.
  bool operator==(const Value& other) const;
  // Not the same by ==.
  bool operator!=(const Value& other) const { return !(*this == other); }

 private:
  friend struct ValueAccess;

  template <typename T>
  static constexpr const char* integer_name() {
    constexpr const char* kNames[2][4] = {{"uint8_t", "uint16_t", "uint32_t", "uint64_t"},
                                          {"int8_t", "int16_t", "int32_t", "int64_t"}};
    return kNames[std::is_signed_v<T> ? 1 : 0][sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3];
  }
  template <typename T>
  T integer_as(size_t element) const;
  [[noreturn]] void refuse(const char* wanted) const;
  [[noreturn]] void refuse_range(const char* wanted, size_t element) const;
  int64_t signed_at(size_t element) const;
  double real_at(size_t element) const;
  double number_at(size_t element) const;
  const std::string& text_or_bytes() const;

  Kind kind_ = Kind::kNone;
  uint16_t type_code_ = 0;
  uint8_t bits_ = 0;
  std::vector<size_t> shape_;
  std::vector<uint64_t> elements_;
  std::string text_;
};

// A value to be written. It is made of what the program has at hand: a bool, a number, a text, a list of them or lists
// of lists.
class PLC_CLIENT_API Input {
 public:
  // What it was made of.
  enum class Form : uint8_t { kBool, kSigned, kUnsigned, kReal, kText, kBytes, kList };

  // A bool or a number.
  template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
  Input(T number) {  // NOLINT(google-explicit-constructor): write("Speed", 5) is what it is for
    if constexpr (std::is_same_v<T, bool>) {
      form_ = Form::kBool;
      bits_ = number ? 1 : 0;
    } else if constexpr (std::is_floating_point_v<T>) {
      form_ = Form::kReal;
      real_ = narrowed(static_cast<long double>(number));
    } else {
      form_ = std::is_signed_v<T> ? Form::kSigned : Form::kUnsigned;
      bits_ = static_cast<uint64_t>(static_cast<int64_t>(number));
    }
  }
  // A text.
  Input(std::string text) : form_(Form::kText), text_(std::move(text)) {}  // NOLINT(google-explicit-constructor)
  // The same.
  Input(std::string_view text) : Input(std::string(text)) {}  // NOLINT(google-explicit-constructor)
  // The same.
  Input(const char* text) : Input(std::string(text)) {}  // NOLINT(google-explicit-constructor)
  // An array, or a part of one.
  template <typename T>
  Input(const std::vector<T>& list) : form_(Form::kList) {  // NOLINT(google-explicit-constructor)
    for (const auto& element : list) items_.emplace_back(static_cast<T>(element));
  }
  // An array of arrays, or of values of several forms.
  Input(std::vector<Input> list)  // NOLINT(google-explicit-constructor)
      : form_(Form::kList), items_(std::move(list)) {}
  // The bytes of a text that may hold any byte but zero.
  static Input bytes(std::string bytes);

  // What it was made of; bits(), real(), text() and items() have the value of the form that they are for.
  Form form() const { return form_; }
  // Of a bool, a signed or an unsigned number.
  uint64_t bits() const { return bits_; }
  // Of a real number.
  double real() const { return real_; }
  // Of a text or bytes.
  const std::string& text() const { return text_; }
  // Of a list.
  const std::vector<Input>& items() const { return items_; }

 private:
  Form form_ = Form::kSigned;
  uint64_t bits_ = 0;
  // What no double holds would become infinite, or 0.
  static double narrowed(long double number) {
    const long double size = number < 0 ? -number : number;
    const auto largest = static_cast<long double>(std::numeric_limits<double>::max());
    const bool is_large = size > largest && size <= std::numeric_limits<long double>::max();
    const bool is_small = size > 0 && !is_large && static_cast<double>(size) <= 0;
    if (!is_large && !is_small) return static_cast<double>(number);
    throw OutOfRange("a long double is beyond the range of double, the widest type that variables have");
  }
  double real_ = 0;
  std::string text_;
  std::vector<Input> items_;
};

// ---------------------------------------------------------------------------------------------------- results

// How far a value can be trusted.
enum class Quality : uint8_t {
  kGood,       // the guarded build had the controller's own, whole reply
  kUnguarded,  // the contract build returned 0, which it does for any reply
  kBad,        // no value
};

// What happened.
enum class Reason : uint8_t {
  kNone,          // nothing went wrong
  kRefused,       // the controller refused the name or the request
  kIncomplete,    // its reply lacks names or values
  kNoAnswer,      // nothing came in time, or only a part
  kLost,          // the connection ended
  kNoConnection,  // there was no connection
  kForeign,       // what came was no reply to this request
  kImpossible,    // nothing was sent: neither tag file nor driver can ask for it
  kDifferent,     // read back different from what was sent
  kFailed,        // the driver gave no reason
  kNotTried,      // its turn did not come
};
// How many reasons there are.
constexpr size_t kReasons = 11;

// "no-answer": the word that every form of output has for it; "" for kNone.
PLC_CLIENT_API const char* reason_word(Reason reason);

// What went wrong with a variable or a connection.
struct Problem {
  Reason reason = Reason::kNone;  // what happened
  std::string text;               // one sentence; empty when nothing went wrong
  std::string advice;             // what to try; may be empty
};

// The result of reading one variable.
struct Reading {
  std::string name;                 // with its scope, and the subscripts as they were asked for
  std::string type;                 // as declared: "INT", "INT[0..9]", "STRING(20)"
  Value value;                      // none unless ok()
  Quality quality = Quality::kBad;  // how far the value can be trusted
  Problem error;                    // why there is no value; its reason is kNone when there is one
  TimePoint time{};                 // when its exchange ended, or when it was found not to be possible
  // Whether there is a value.
  bool ok() const { return quality != Quality::kBad; }
};

// Whether a write reads the variable back and compares.
enum class Verify : uint8_t { kNone, kReadBack };

// What became of a write.
enum class Outcome : uint8_t {
  kDone,     // the controller acknowledged it; with kReadBack it was read back the same. With the contract build it may
             // have refused it: that build reports no failure then
  kNotDone,  // nothing of it was written
  kUnknown,  // nobody knows what the controller has now: a part may have been written, or all. Or it was acknowledged,
             // but could not be read back, or was not the same
};

// The result of writing one variable.
struct WriteResult {
  std::string name;                     // with its scope, and the subscripts as they were written
  std::string type;                     // as declared: "INT", "INT[0..9]", "STRING(20)"
  Outcome outcome = Outcome::kNotDone;  // what became of it
  bool verified = false;                // read back the same
  Problem error;                        // why it is not done; its reason is kNone when it is
  TimePoint time{};                     // when its exchange ended
  // Whether the driver reported no failure and, with kReadBack, read the same value back.
  bool ok() const { return outcome == Outcome::kDone; }
};

// ---------------------------------------------------------------------------------------------------- declarations

// A line of a tag file.
struct Declaration {
  // The subscripts of a dimension.
  struct Range {
    int32_t low = 0;   // the lowest
    int32_t high = 0;  // the highest
  };
  std::string name;                // with its scope: "Motor.Speed", "Main/Step"
  std::string type;                // "INT", "INT[0..9,1..3]", "STRING(20)"
  Kind kind = Kind::kNone;         // what its elements are
  unsigned bits = 0;               // of one element; 0 for text and bytes
  std::vector<Range> ranges;       // of an array, the first subscript first
  size_t length = 0;               // of a string, in bytes
  std::string scope;               // the program that owns it; empty for a global variable
  std::string device;              // where it is placed: "DM", "EM", ...; empty when nowhere
  std::string file;                // the tag file that declares it
  uint32_t line = 0;               // from 1; 0 when the file has changed since it was loaded
  uint16_t area = 0;               // of its tag file
  std::optional<uint32_t> number;  // by which a host asks for it
  std::string unreachable;         // why no request can ask for it; empty when one can
};

// ---------------------------------------------------------------------------------------------------- connection

// How a connection is, and what went over it so far.
struct State {
  bool connected = false;            // whether there is one
  TimePoint since{};                 // of the last change of connected
  Problem last_error;                // of the last call that failed
  TimePoint last_error_time{};       // when that call ended
  uint64_t connects = 0;             // connections that were made
  uint64_t calls = 0;                // of the driver
  uint64_t exchanges = 0;            // requests with their replies, of calls that succeeded
  uint64_t failures[kReasons] = {};  // calls that failed, by Reason
  uint64_t drops = 0;                // late replies that the guarded build threw away
};

// What a controller is made with.
struct Options {
  std::string address;             // "192.168.0.10", or a name that the system resolves
  uint16_t port = 8500;            // 1 to 65535
  std::vector<std::string> tags;   // folders, of which every PLC<address>_<area>.csv is taken, or files of any name
  uint16_t area = 0;               // of files that are named themselves
  std::string driver = "guarded";  // "guarded", "contract", or the path of a library
  uint32_t reply_timeout_s = 2;    // for each reply, 1 to 86400
  uint32_t delay_ms = 0;           // before each call, for controllers that need a rest
  // After a failed connect nothing is tried for so long; twice as long after each further one, up to longest_pause.
  std::chrono::milliseconds first_pause{100};
  // The longest pause between two tries to connect.
  std::chrono::milliseconds longest_pause{10000};
  // Receives each line of the driver, without its newline. Called by the thread that uses the controller, which is
  // locked meanwhile: what it calls of the controller throws Error. It must not throw itself.
  std::function<void(const std::string& line)> log;
  // Called at each change of State::connected, under the conditions of log.
  std::function<void(const State& state)> on_state;
  // A file with what was learnt of the controller; empty: none. It sets reply_timeout_s, delay_ms and driver if they
  // have their defaults, and how many names are asked for at a time. Where it has
  // something to say of the driver, log receives Controller::driver_remark().
  std::string profile;
};

class Controller;

// A list of variables with the exchanges that read it, made once and used again and again without allocation. It
// belongs to the controller that made it, which must outlive its use. One that was moved away throws Error.
class PLC_CLIENT_API Plan {
 public:
  Plan(Plan&&) noexcept;
  Plan& operator=(Plan&&) noexcept;
  ~Plan();
  // In the order asked. What the last read of the plan delivered; before the first one nothing is ok().
  const std::vector<Reading>& readings() const;
  // Requests with their replies that a read takes, without those of the connect.
  size_t exchanges() const;

 private:
  friend class Controller;
  struct PLC_CLIENT_PRIVATE Body;
  explicit Plan(std::unique_ptr<Body> body);
  PLC_CLIENT_PRIVATE Body& body() const;
  std::unique_ptr<Body> body_;
};

// One controller, with a driver of its own. Several threads may use it: one at a time does, the others wait. Different
// controllers are independent of each other. In a forked process its uses throw Error.
class PLC_CLIENT_API Controller {
 public:
  // Loads the driver and the tag files; connects when first used. Throws Error: no such address, folder, file, driver.
  // The first use, and the one after close(), throw Error when a tag file has changed since: make a new Controller.
  explicit Controller(const Options& options);
  // Closes the connection. No other thread may be using it.
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  // Connects now, whatever pause there is. Throws ConnectionFailed.
  void connect();
  // Closes the connection; the next use connects again.
  void close();
  // How the connection is, and what went over it so far.
  State state() const;

  // NAME, NAME[3], NAME[0..4,2], SCOPE/NAME; an array without subscripts means all of its elements. One variable that
  // cannot be read never spoils the others. Throw UnknownVariable, OutOfRange for a subscript outside its bounds,
  // TypeMismatch for subscripts that do not fit the array, before anything is sent.
  Reading read(std::string_view name);
  // Several variables in the fewest exchanges, in the order of the names.
  std::vector<Reading> read(const std::vector<std::string>& names);
  // The same.
  std::vector<Reading> read(std::initializer_list<std::string_view> names);

  // Works out the exchanges that read these variables, for read(Plan&). Throws as read does.
  Plan plan(const std::vector<std::string>& names) const;
  // The plan's own readings, until its next read.
  const std::vector<Reading>& read(Plan& plan);

  // Throw UnknownVariable, TypeMismatch, OutOfRange or Error, before anything is sent: of several writes either all are
  // checked or none is begun. They are made in the order given; one that fails does not keep the others back unless the
  // connection is gone. No write is ever made twice.
  WriteResult write(std::string_view name, const Input& value, Verify verify = Verify::kNone);
  // Several variables, each with its value.
  std::vector<WriteResult> write(const std::vector<std::pair<std::string, Input>>& values,
                                 Verify verify = Verify::kNone);

  // All declared variables, file by file, line by line.
  const std::vector<Declaration>& tags() const;
  // By name, without subscripts. Throws UnknownVariable.
  const Declaration& tag(std::string_view name) const;
  // The declared names that fit a pattern, in the order of the tags. In a pattern, * is any characters, ? is one, and
  // [abc] is one of these. A pattern without them is a name.
  std::vector<std::string> match(const std::string& pattern) const;

  // What the driver calls itself: "1.1.0 guarded".
  const std::string& driver_build() const;
  // Why the guarded build cannot be used by the profile, which driver was taken then, and what to look after. A driver
  // that the program names is kept, and has a remark too. Empty where nothing speaks against the guarded build.
  const std::string& driver_remark() const;

 private:
  struct PLC_CLIENT_PRIVATE Body;
  std::unique_ptr<Body> body_;
};

// ---------------------------------------------------------------------------------------------------- as<T>()

// Whether T can represent the number.
template <typename T>
bool fits_signed(int64_t number) {
  if constexpr (std::is_unsigned_v<T>) {
    return number >= 0 && static_cast<uint64_t>(number) <= std::numeric_limits<T>::max();
  } else {
    return number >= std::numeric_limits<T>::min() && number <= std::numeric_limits<T>::max();
  }
}

template <typename T>
T Value::integer_as(size_t element) const {
  if (kind_ == Kind::kSigned) {
    const int64_t number = signed_at(element);
    if (!fits_signed<T>(number)) refuse_range(integer_name<T>(), element);
    return static_cast<T>(number);
  }
  if (kind_ != Kind::kUnsigned && kind_ != Kind::kWord) refuse("an integer");
  const uint64_t number = raw(element);
  if (number > static_cast<uint64_t>(std::numeric_limits<T>::max())) refuse_range(integer_name<T>(), element);
  return static_cast<T>(number);
}

template <typename T>
T Value::as(size_t element) const {
  if constexpr (std::is_same_v<T, bool>) {
    if (kind_ != Kind::kBool) refuse("bool");
    return raw(element) != 0;
  } else if constexpr (std::is_integral_v<T>) {
    return integer_as<T>(element);
  } else if constexpr (std::is_same_v<T, float>) {
    if (kind_ != Kind::kReal || bits_ != 32) refuse("float");
    return static_cast<float>(real_at(element));
  } else if constexpr (std::is_same_v<T, double>) {
    return number_at(element);
  } else {
    static_assert(std::is_same_v<T, std::string>, "as<T>() gives bool, integers, float, double and std::string");
    return text_or_bytes();
  }
}

template <typename T>
std::vector<T> Value::as_vector() const {
  std::vector<T> all;
  all.reserve(size());
  if (!has_value()) refuse("a value");
  for (size_t i = 0; i < size(); ++i) all.push_back(as<T>(i));
  return all;
}

}  // namespace plc_client
