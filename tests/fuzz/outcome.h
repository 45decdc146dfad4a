#ifndef QUILLMERE_TESTS_FUZZ_OUTCOME_H_
#define QUILLMERE_TESTS_FUZZ_OUTCOME_H_

#include <functional>
#include <string>
#include <string_view>

#include "input.h"

// The checks of the targets. One that fails ends the process with abort, after a report on standard
// error, so that a fuzzer keeps the input.

/// Checks that `holds`; `what` says what should be.
void Expect(bool holds, std::string_view what);

/// Checks that two texts are the same bytes. `what` names them.
void ExpectText(std::string_view what, std::string_view actual, std::string_view expected);

/// All that a caller sees of a call.
struct Outcome {
  int status = 0;       ///< what it returned; 0 when it threw
  std::string thrown;   ///< empty, or the kind of the exception, a blank and its text
  std::string out;      ///< standard output
  std::string err;      ///< standard error
  std::string steps;    ///< as FedCommand has them
  std::string results;  ///< what it filled in, as the text that the target makes of it

  [[nodiscard]] bool succeeded() const { return status == 0 && thrown.empty(); }
};

/// Makes `call`. Of the exceptions, those that the product's headers announce are caught:
/// json_parser_error, with all of its text, and out_of_range, with its text up to a colon and a
/// blank.
Outcome Run(const std::function<int()>& call);

/// Makes `call` at the level of traces of `input`, with `output` as what its command prints.
Outcome RunFed(const Input& input, std::string_view output, const std::function<int()>& call);

/// Checks all parts.
void ExpectOutcome(const Outcome& actual, const Outcome& expected);

#endif  // QUILLMERE_TESTS_FUZZ_OUTCOME_H_
