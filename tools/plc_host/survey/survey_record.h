// All that a survey found out, as it was measured; reports and profiles are made of it alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace plc_host::survey {

// A step that was not made, or not to its end, says why; a figure that was not measured has no value.
struct Step {
  enum class State { kNotDone, kPartly, kDone };
  State state = State::kNotDone;
  std::string why;  // "interrupted", "--write names no variable"; "" when done
};

// A request and its reply in survey.pcapng, shown as evidence.
struct Frame {
  std::string title;  // "reply to resolve: sequence number 0 in place of 17"
  size_t packet = 0;  // number of the request's first packet in survey.pcapng, from 1
  std::vector<uint8_t> request;
  std::vector<uint8_t> reply;
  bool is_refusal = false;   // its status is that of what it refuses
  bool breaks_rule = false;  // that it is evidence for
};

// Of one kind of request with one number of names.
struct Times {
  std::string kind;  // "connect", "directory start", "directory", "resolve", "read", "write", "masked write", "bit"
  uint32_t names = 1;
  std::vector<double> ms;             // from the request to the last byte of its reply, in the order measured
  std::vector<double> first_ms = {};  // the same to its first byte
  uint64_t silent = 0;                // requests that had no answer while the survey waited
  uint64_t lost = 0;                  // requests whose connection ended in place of an answer
  uint64_t damaged = 0;               // requests that got bytes in place of an answer: no wait was over
};

// Requests of these sizes that had no answer, though the controller takes as many names and values.
struct Unanswered {
  uint64_t silent = 0;
  uint64_t lost = 0;
  uint64_t damaged = 0;
  uint64_t all() const { return silent + lost + damaged; }
};

struct Spread {
  double p50 = 0;
  double p99 = 0;
  double largest = 0;
};

// Of values in any order; all 0 of none.
Spread spread_of(std::vector<double> values);

// How replies of one size arrived.
struct Split {
  size_t reply_bytes = 0;
  std::map<std::vector<size_t>, uint32_t> pieces;  // sizes of the pieces -> how often
  std::vector<double> gap_ms = {};                 // between a piece and the next
};

// What a controller does with what it need not take.
enum class Reaction { kNotTried, kAnswered, kRefused, kClosed, kSilent };

// "not tried", "accepted and answered", "refused", "accepted, then closed", "accepted, never answered"
const char* reaction_words(Reaction reaction);

struct Link {
  Step step;
  std::string host;
  uint32_t address = 0;
  uint16_t port = 0;
  std::string name_problem;
  uint32_t connects_tried = 0;
  std::vector<double> connect_ms;
  std::vector<std::string> connect_failures;
  std::optional<int> segment_bytes;  // of the connection: TCP_MAXSEG
  uint16_t closed_port_number = 0;   // the port behind the controller's own
  std::string closed_port;           // "refused", "not tried: --gentle"
  std::string second_connection;
  std::string half_closed;
  Reaction one_more = Reaction::kNotTried;   // what the first connection beyond the limit got
  std::optional<uint32_t> most_connections;  // the limit met, of at most connections_tried
  uint32_t connections_tried = 0;            // at a time
  std::optional<bool> is_answered_when_half_closed;
};

struct ProgramFinding {
  enum class State { kFound, kMissing, kNotKnown, kCut, kPrefix, kUndeclared };
  std::string scope;
  uint8_t number = 0;
  State state = State::kFound;
  std::string other;      // the directory's name that this one begins with, or the name that it is a prefix of
  size_t beginnings = 0;  // names of the directory that this one begins with, where none is the whole of it
  size_t namesakes = 0;   // of these: programs that are called like the first one
};

struct Programs {
  Step step;
  std::vector<ProgramFinding> findings;
  std::vector<std::string> directory;
  std::optional<size_t> announced;  // by the directory's own count, which is one byte
  size_t reply_bytes = 0;           // of the directory
  uint64_t changes = 0;             // of the directory, from one connect to the next
};

struct VariableFinding {
  enum class State { kGood, kRefused, kNotNamed, kDifferent, kNotByDriver, kNotCompared, kShort, kLong, kNotTried };
  std::string name;      // with its program before it
  std::string own_name;  // without
  std::string program;   // "" of a global one
  std::string element;   // that was asked for: the last one of an array, "[9]"
  std::string type;
  uint64_t names = 1;  // that a host asks for to read all of it
  std::string file;
  uint32_t line = 0;
  std::optional<uint16_t> area;  // that the file's name says
  State state = State::kNotTried;
  std::string why;               // "read singly 12, in a batch 13"
  std::vector<uint8_t> refusal;  // the reply that refused it
  uint16_t status = 0;           // of that reply
  std::vector<std::string> near;
  std::string value;                // as plc-host read shows it; "" unless is_read()
  bool has_no_value = false;        // it is answered, and plc-host read shows nothing of it: why
  bool may_go_on = false;           // a text that fills its declared length: only the driver reads what may follow
  bool is_compared = false;         // the driver gave a value for it too
  bool is_other_by_driver = false;  // the driver gave another value, or none
  bool is_other_in_batch = false;   // each time, than singly
  size_t name_reply_bytes = 0;      // of the replies to its name and its value, each asked for alone
  size_t value_reply_bytes = 0;
  bool is_named = false;    // its name was answered
  bool changes = false;     // by itself: two values were seen, read the same way
  bool is_batched = false;  // it was read in a batch too, and compared
};

inline constexpr char kNoValueShown[] = "plc-host read shows no value: ";

// Answered as declared, with a value that plc-host read shows.
bool is_read(const VariableFinding& finding);

// It has fewer names than it counts, or as many as it can count: other programs may be there too.
bool is_directory_partial(const Programs& programs);

struct Variables {
  Step step;
  uint64_t declared = 0;  // findings are there once the controller was asked
  std::vector<VariableFinding> findings;
  std::string compared_with;      // the driver's build whose values were compared; "" where none was called
  std::string lacking_build;      // "guarded", "contract": that is not installed here; "" where both are
  std::string not_compared;       // why the comparison was not made to its end; "" where it was
  uint64_t to_compare = 0;        // that the survey has read
  uint64_t compared = 0;          // that the driver gave a value for
  uint64_t misread = 0;           // of these: another value than the controller's
  uint64_t unread_by_driver = 0;  // that it gave no value for, each time that it was asked
};

// Those that answered, and that the driver cannot be asked for.
std::vector<std::string> names_not_compared(const Variables& variables);

struct RefusedForOnce {
  uint64_t refused = 0;
  uint64_t asked = 0;
  uint64_t ever = 0;  // refused, whether or not the same was answered another time
};

// Of all replies of the survey.
struct HeadCounts {
  struct Field {
    uint64_t right = 0;
    uint64_t zero = 0;
    uint64_t other = 0;
  };
  struct Status {
    uint16_t status = 0;
    std::string request;  // "resolve", "resolve, refused"
    uint64_t count = 0;
    Frame first;
  };
  Step step;
  uint64_t replies = 0;
  Field length;
  Field complement;
  Field sequence;
  Field request_class;
  Field command;
  std::vector<Status> statuses;
  uint64_t values_exact = 0;
  uint64_t values_longer = 0;
  uint64_t values_behind_end = 0;  // of those that are longer: behind the end that the head says
  uint64_t values_shorter = 0;
  uint64_t names_shorter = 0;  // replies to names that lack a part of them, and refuse nothing
  // Refused, of those asked; the very same was answered another time.
  RefusedForOnce names_refused_for_once;
  RefusedForOnce reads_refused_for_once;
  uint64_t replies_unanswered = 0;
  uint64_t foreign = 0;     // whole frames that answer none of the survey's requests; no replies
  uint64_t unfinished = 0;  // replies that did not come to their end, where most do; their requests had no whole answer
  uint64_t headless = 0;    // of these: bytes whose head does not say their end, and no more came
  uint64_t cut_off = 0;     // of these: their connection ended
  uint64_t late() const { return unfinished - headless - cut_off; }  // the wait was over
  uint64_t refusals_untold = 0;  // names refused in the form of an answer, or answered though nobody has them
  uint64_t spoken = 0;           // replies that only a controller gives
  uint64_t unspoken = 0;         // the request's own bytes, or heads that are none of its reply
  uint64_t bytes_unasked = 0;    // that came behind replies, immediately or later, and are no frame
  std::optional<uint32_t> bytes_behind_values;  // where every value reply has as many, and this is no variable's own
  std::optional<uint16_t> status_done;          // that of most answers that refuse nothing
  std::optional<uint16_t> refusal_status;       // of refused names, once three in a row are alike
  std::optional<bool> is_refusal_full;          // it has a record for each name
  std::optional<uint16_t> directory_status;     // of one without its programs
  uint64_t directories = 0;                     // replies
  uint64_t directories_refused = 0;             // of these, with that status
  uint64_t with_more_behind = 0;                // replies that these bytes came behind
};

// Of replies with another sequence number, where that is an exception: those taken before the rule was known.
uint64_t strays_taken(const HeadCounts& heads);

// Most times that it was asked for.
bool is_directory_refused(const HeadCounts& heads);

// "2 of 22 times"
std::string directory_refusals(const HeadCounts& heads);

// It has another status than 0, and refuses nothing.
bool is_odd_answer(const HeadCounts::Status& status);

// Replies came, and no controller sent them: none has what it was asked for in the form of a reply, and none has a
// length, a complement, a class or a command as replies have, or all are requests sent back or heads that answer
// nothing.
bool is_foreign(const HeadCounts& heads);

inline constexpr char kForeign[] = "what answers there does not speak this protocol";

// Of the guarded build.
struct Verdict {
  enum class Usable { kYes, kWithoutStatus, kWithoutValueEnd, kWithoutBoth, kNotUsable, kUnknown };
  struct Rule {
    std::string rule;
    bool holds = false;
    uint64_t kept = 0;
    uint64_t broken = 0;
    std::vector<Frame> evidence;
    bool is_known = true;  // false where too few replies came to tell
  };
  Usable usable = Usable::kUnknown;
  std::string because;  // one or more sentences
  std::vector<Rule> rules;
};

// Its replies have another length than its type, as far as they are a variable's own.
bool is_unfit(const VariableFinding& finding);

// "one, two and 3 more"
std::string some_names(const std::vector<std::string>& names);

// The guarded build can be used, perhaps without some of its checks.
bool is_usable(Verdict::Usable usable);

// What was found of requests of more and more names, or values.
struct Reach {
  uint32_t asked = 0;     // the last
  uint32_t answered = 0;  // the most
  uint32_t failed = 0;    // the fewest that were not answered; 0: none
  bool is_whole = false;  // as far as a request goes, or to a limit
};

struct Limits {
  Step step;
  std::optional<uint32_t> names_per_request;  // the limit met
  std::optional<uint32_t> values_per_request;
  uint32_t names_tried = 0;  // the most that were answered, or were tried
  uint32_t values_tried = 0;
  Reach names_reach;
  Reach values_reach;
  Reaction reaction = Reaction::kNotTried;  // to more than the limit
  std::string beyond;                       // the same in words, with the status
  std::optional<uint16_t> beyond_status;
};

struct Recommendation {
  std::string setting;  // "driver", "timeout_s", "delay_ms", "batch_names", "poll_ms"
  std::string value;
  std::string because;  // with the figures
};

// "answered up to 32; the survey ended before an answer to 64, and more was not tried": where the search for a limit
// did not come to its end.
std::string reach_text(const Reach& reach);

// A setting that is not recommended, and which data it lacks.
struct LeftOut {
  std::string setting;
  std::string because;
};

struct WriteFinding {
  std::string name;
  std::string type;
  std::string kind;         // "write", "masked write", "set", "reset", "read-modify-write"
  bool is_written = false;  // the request that does it was sent
  // Nothing of what nobody looked at.
  std::optional<bool> acknowledged = {};  // false of a write that was refused, and of one that was not answered
  std::optional<bool> read_back = {};
  std::optional<bool> neighbours_kept = {};
  std::optional<bool> set_back = {};
  std::string why = {};
  std::optional<uint16_t> refusal = {};  // the status of the answer that refused it
  bool keeps_former = false;             // acknowledged, and the former value is still there
  // Why its former value did not come back: "the write that sets it back was refused, status 0005, three times"
  std::string set_back_problem = {};
  bool has_open_neighbours = false;  // read before it, and not all of them again behind it
};

// It was sent, and no answer came: nobody knows whether it was carried out, or will be.
bool is_unanswered(const WriteFinding& finding);

// Nothing that was looked at went wrong.
bool is_good(const WriteFinding& finding);

struct Writes {
  Step step;
  std::vector<WriteFinding> findings;
  std::vector<std::string> not_set_back;             // "Motor.Speed: it was 12"
  std::vector<std::string> neighbours;               // that were compared behind a write
  std::vector<std::string> neighbours_not_compared;  // read before a write, and not again behind it
};

struct Endurance {
  struct Slice {
    int64_t from_ms = 0;
    double p50 = 0;
    double p99 = 0;
    double largest = 0;
    uint64_t rounds = 0;
    uint64_t losses = 0;
  };
  Step step;
  double hours_asked = 0;
  uint32_t period_ms = 0;
  uint64_t rounds = 0;
  uint64_t losses = 0;
  uint64_t lost_values = 0;   // variables that lost rounds did not read
  double longest_gap_ms = 0;  // around losses: from the end of one whole round to that of the next one
  uint64_t left_out = 0;      // turns at which no round was begun, because another one was not over
  uint64_t slow = 0;          // rounds that took longer than the period
  std::vector<Slice> slices;
  double drift_ms = 0;  // of the last round's begin behind its turn
};

struct SurveyRecord {
  std::string made;  // UTC, ISO 8601
  std::string version;
  std::string driver_build;
  std::vector<std::string> tag_files;
  std::string command;
  double took_s = 0;
  uint32_t wait_ms = 0;  // for each answer
  uint32_t rate = 0;     // requests a second at most
  bool is_whole = false;
  std::string ended;            // why it is not: "interrupted", "the controller no longer answers"
  std::string capture_problem;  // survey.pcapng was cut: why
  Link link;
  Programs programs;
  Variables variables;
  HeadCounts heads;
  Verdict verdict;
  Step times_step;
  std::vector<Times> times;
  std::vector<Split> splits;
  Limits limits;
  Writes writes;
  Endurance endurance;
  std::vector<Recommendation> recommendations;
  std::vector<LeftOut> left_out;
  std::string driver_lines;
  std::vector<std::string> messages;  // told on standard error, beside the findings
};

// The guarded build refuses its variables: the directory has several beginnings of its name, and not the whole.
bool is_ambiguous(const ProgramFinding& finding);

// The controller treats one connection more than it takes as it treated those that failed.
bool explains_failures(const Link& link);

// "3 variables have another value in a batch than singly, each time: ..."; "" where none has.
std::string batches_fault(const Variables& variables);

// The guarded build did not read a tenth or more of the variables that the survey read, each time that it tried.
bool fails_guarded_build(const Variables& variables);

// The build that hosts are to use is not installed here, so that none was tried; "" where it is.
std::string lacking_note(const SurveyRecord& record);

// What requests without an answer had: "no answer", "no whole answer" where a part of some came.
const char* no_answer_words(const SurveyRecord& record);

// Requests that a limit does not explain.
Unanswered unanswered_of(const SurveyRecord& record);

// Requests that were the first on one connection more than the controller serves.
uint64_t at_limit_of_connections(const SurveyRecord& record);

// Of replies that came in pieces, not just once: the size that most pieces have which another one follows. Nothing
// where most replies that are longer came whole.
std::optional<size_t> usual_piece_bytes(const SurveyRecord& record);

inline constexpr char kNeitherBuild[] = "Neither installed build reads this controller: ";

// Of replies that came in pieces smaller than a segment, not just once: the smallest that another one follows. The
// contract build takes the first piece for the whole reply.
std::optional<size_t> first_piece_bytes(const SurveyRecord& record);

// "replies come in pieces of 30 bytes", "5 of 98 replies came in pieces, the smallest first one of 30 bytes"; "" where
// there is no such piece.
std::string pieces_words(const SurveyRecord& record);

// The same as the beginning of a sentence, with what the contract build makes of it.
std::string pieces_sentence(const SurveyRecord& record);

// Names that the contract build can ask for at a time where replies come in pieces: the reply to so many is one piece.
// Nothing where replies come whole.
std::optional<uint32_t> names_in_a_piece(const SurveyRecord& record);

// Why the contract build cannot stand in for the guarded one, "replies come in pieces of 30 bytes"; "" where it can, or
// where the guarded one can be used.
std::string contract_problem(const SurveyRecord& record);

// The same whether or not the guarded one can be used: a program may load the contract build all the same.
std::string contract_fault(const SurveyRecord& record);

// Hosts take the contract build: the guarded one cannot be used as it is usually built.
bool takes_contract_build(const SurveyRecord& record);

// How many names the contract build may be asked for where replies come in pieces, after a blank; "" where they are
// whole.
std::string pieces_warning(const SurveyRecord& record);

// What the contract build may do to reads and writes, where hosts take it, or that neither build reads this controller;
// "" where hosts take the guarded one.
std::string contract_warning(const SurveyRecord& record);

}  // namespace plc_host::survey
