#include "outcome.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include <boost/property_tree/json_parser.hpp>

#include "fed_command.h"
#include "layout/layout.h"

namespace {

/// Sends a stream to `buffer` for as long as it lives.
class Redirection {
 public:
  Redirection(std::ostream* stream, std::streambuf* buffer)
      : stream_(stream), saved_(stream->rdbuf(buffer)) {}
  ~Redirection() { stream_->rdbuf(saved_); }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  std::ostream* stream_;
  std::streambuf* saved_;
};

/// Makes `call` and notes how it ends.
void Call(const std::function<int()>& call, Outcome* outcome) {
  try {
    outcome->status = call();
  } catch (const boost::property_tree::json_parser_error& error) {
    outcome->thrown = std::string("json_parser_error ") + error.what();
  } catch (const std::out_of_range& error) {
    const std::string what = error.what();
    outcome->thrown = "out_of_range " + what.substr(0, what.find(": "));
  }
}

/// `text` from the byte at `from` on, on one line: bytes that show nothing as "\xNN".
std::string Readable(std::string_view text, std::size_t from) {
  constexpr std::size_t kShown = 200;  // bytes
  std::string readable;
  for (const char c : text.substr(std::min(from, text.size()), kShown)) {
    if (c >= ' ' && c <= '~') {
      readable += c;
    } else {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned char>(c));
      readable += escape.data();
    }
  }
  return readable;
}

}  // namespace

void Expect(bool holds, std::string_view what) {
  if (!holds) {
    // Not on std::cerr, which may be sent elsewhere.
    std::fprintf(stderr, "CHECK FAILED: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
  }
}

void ExpectText(std::string_view what, std::string_view actual, std::string_view expected) {
  if (actual == expected) {
    return;
  }
  std::size_t same = 0;
  while (same < std::min(actual.size(), expected.size()) && actual[same] == expected[same]) {
    ++same;
  }
  const std::size_t from = same - std::min<std::size_t>(same, 40);
  std::ostringstream report;
  report << what << " differs at byte " << same << "\n  from byte " << from << " on, of "
         << actual.size() << " and " << expected.size()
         << " bytes\n  actual:   " << Readable(actual, from)
         << "\n  expected: " << Readable(expected, from);
  Expect(false, report.view());
}

Outcome Run(const std::function<int()>& call) {
  Outcome outcome;
  std::stringbuf out;
  std::stringbuf err;
  {
    const Redirection redirect_out(&std::cout, &out);
    const Redirection redirect_err(&std::cerr, &err);
    Call(call, &outcome);
  }
  outcome.out = out.view();
  outcome.err = err.view();
  return outcome;
}

Outcome RunFed(const Input& input, std::string_view output, const std::function<int()>& call) {
  FedCommand command(output, input.read_size());
  verbose = input.trace_level();
  Outcome outcome = Run(call);
  Expect(verbose == input.trace_level(), "the level of traces stays");
  outcome.steps = command.steps();
  return outcome;
}

void ExpectOutcome(const Outcome& actual, const Outcome& expected) {
  ExpectText("the exception", actual.thrown, expected.thrown);
  ExpectText("standard error", actual.err, expected.err);
  ExpectText("the status", std::to_string(actual.status), std::to_string(expected.status));
  ExpectText("standard output", actual.out, expected.out);
  ExpectText("the list of steps", actual.steps, expected.steps);
  ExpectText("what is filled in", actual.results, expected.results);
}
