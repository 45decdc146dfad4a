#ifndef QUILLMERE_TESTS_FUZZ_PLAIN_TEXT_H_
#define QUILLMERE_TESTS_FUZZ_PLAIN_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "input.h"
#include "outcome.h"

// The rules that several models share, in their plainest form: a byte at a time, whatever it takes.

/// What each read of `output` makes of it. A read ends behind a newline, after `read_size` - 1
/// bytes or at the end; its text ends at the first zero byte.
std::vector<std::string> TextsRead(std::string_view output, std::size_t read_size);

/// What the system library's atol makes of `text`.
std::int64_t PlainAtol(std::string_view text);

/// The low 32 bits of a number.
std::int32_t Low32(std::int64_t number);

/// What a call shows that has only started `command`: its trace and its first step.
Outcome PlainStart(const Input& input, const std::string& command);

#endif  // QUILLMERE_TESTS_FUZZ_PLAIN_TEXT_H_
