// document: "{" NL metadata-line* "    \"fentries\": " entries "}" NL
// entries:  "\"\"" NL | "[" NL entry ("," NL entry)* NL "    ]" NL
// entry:    "        {" NL field{11} "        }"
// field:    12 blanks "\"" key "\": \"" value "\"" ","? NL        with a comma but for the last
//
// A metadata-line begins with four blanks. The metadata may have a "fentries" of their own, with
// anything in it: the last one counts.

#include "archive/document.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr std::string_view kMemberIndent = "    ";
constexpr std::string_view kNoEntries = "    \"fentries\": \"\"";
constexpr std::string_view kArrayOpen = "    \"fentries\": [";
constexpr std::string_view kArrayClose = "    ]";
constexpr std::string_view kEntryOpen = "        {";
constexpr std::string_view kEntryClose = "        }";
constexpr std::array<std::string_view, 11> kFields = {
    "            \"filenum\": \"",
    "            \"length\": \"",
    "            \"plength\": \"",
    "            \"dlength\": \"",
    "            \"blknum\": \"",
    "            \"in_image\": \"",
    "            \"raw_partition_sz\": \"",
    "            \"gigabytes\": \"",
    "            \"device_num\": \"",
    "            \"path\": \"",
    "            \"data\": \"",
};
constexpr std::size_t kHeadSize = 64;  // bytes, more than any text above
constexpr std::size_t kTailSize = 2;

/// What the line of the field at `position` ends with.
constexpr std::string_view FieldEnd(std::size_t position) {
  return position + 1 < kFields.size() ? "\"," : "\"";
}

/// Moves *at behind `text`. Returns false when something else stands there, or too little.
bool Skip(std::string_view text, const char** at, const char* end) {
  if (static_cast<std::size_t>(end - *at) < text.size() ||
      std::memcmp(*at, text.data(), text.size()) != 0) {
    return false;
  }
  *at += text.size();
  return true;
}

/// The first newline in [at, end), or `end`. Values are short: what is found in the first block
/// takes no call.
const char* FindNewline(const char* at, const char* end) {
  for (; end - at >= static_cast<std::ptrdiff_t>(sizeof(__m128i)); at += sizeof(__m128i)) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const auto newlines =
        static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8('\n'))));
    if (newlines != 0) {
      return at + std::countr_zero(newlines);
    }
  }
  return std::find(at, end, '\n');
}

/// Moves *at behind the line of the field kPosition. Returns false when that is not there.
template <std::size_t kPosition>
bool SkipField(const char** at, const char* end) {
  constexpr std::string_view kEnd = FieldEnd(kPosition);
  if (!Skip(kFields[kPosition], at, end)) {
    return false;
  }
  const char* const newline = FindNewline(*at, end);
  if (newline == end || static_cast<std::size_t>(newline - *at) < kEnd.size() ||
      std::memcmp(newline - kEnd.size(), kEnd.data(), kEnd.size()) != 0) {
    return false;
  }
  *at = newline + 1;
  return true;
}

/// Moves *at behind an entry that another one follows. Returns false, with *at anywhere, when that
/// is not there.
bool SkipEntry(const char** at, const char* end) {
  return Skip("        {\n", at,
              end)&& [&]<std::size_t... kPositions>(std::index_sequence<kPositions...>) {
    return (SkipField<kPositions>(at, end) && ...);
  }
  (std::make_index_sequence<kFields.size()>()) && Skip("        },\n", at, end);
}

}  // namespace

void EntryCounter::Take(std::string_view piece) {
  const char* at = piece.data();
  const char* const end = at + piece.size();
  while (at < end) {
    const bool is_line_begun = kept_size_ > 0;
    if (!is_line_begun && expect_ == Expect::kEntryOpen) {
      at = TakeWholeEntries(at, end);
    }
    const char* const newline = FindNewline(at, end);
    const std::string_view part(at, static_cast<std::size_t>(newline - at));
    if (newline == end) {
      KeepPart(part);
      return;
    }
    if (is_line_begun) {
      KeepPart(part);
      TakeKeptLine();
    } else {
      TakeLine({part, part, part.size()});
    }
    at = newline + 1;
  }
}

/// What is most of a document, without looking at each line by itself. Returns where it ended.
const char* EntryCounter::TakeWholeEntries(const char* begin, const char* end) {
  const char* done = begin;
  for (const char* at = begin; SkipEntry(&at, end); done = at) {
    ++entries_;
  }
  offset_ += static_cast<std::uint64_t>(done - begin);
  return done;
}

void EntryCounter::KeepPart(std::string_view part) {
  head_ += part.substr(0, kHeadSize - std::min(kHeadSize, head_.size()));
  tail_ += part.substr(part.size() - std::min(kTailSize, part.size()));
  tail_.erase(0, tail_.size() - std::min(kTailSize, tail_.size()));
  kept_size_ += part.size();
}

void EntryCounter::TakeKeptLine() {
  TakeLine({head_, tail_, kept_size_});
  head_.clear();
  tail_.clear();
  kept_size_ = 0;
}

void EntryCounter::TakeLine(const Line& line) {
  switch (expect_) {
    case Expect::kRootOpen:
      expect_ = line.head == "{" ? Expect::kMember : Fail();
      break;
    case Expect::kMember:
      expect_ = TakeMember(line);
      break;
    case Expect::kRootClose:
      expect_ = line.head == "}" ? Expect::kNothing : Fail();
      break;
    case Expect::kNothing:
      expect_ = Fail();
      break;
    case Expect::kFailed:
      break;
    default:
      expect_ = TakeEntryLine(line);
  }
  offset_ += line.size + 1;
}

EntryCounter::Expect EntryCounter::Fail() {
  wrong_at_ = wrong_at_.value_or(offset_);
  return Expect::kFailed;
}

EntryCounter::Expect EntryCounter::TakeMember(const Line& line) {
  const bool is_array = line.head == kArrayOpen;
  if (is_array || line.head == kNoEntries) {
    entries_ = 0;
    wrong_at_.reset();
    return is_array ? Expect::kEntryOpen : Expect::kRootClose;
  }
  return line.head.starts_with(kMemberIndent) ? Expect::kMember : Fail();
}

EntryCounter::Expect EntryCounter::TakeEntryLine(const Line& line) {
  if (expect_ == Expect::kEntryOpen && line.head == kEntryOpen) {
    field_ = 0;
    return Expect::kField;
  }
  if (expect_ == Expect::kField && line.head.starts_with(kFields[field_]) &&
      line.size >= kFields[field_].size() + FieldEnd(field_).size() &&
      line.tail.ends_with(FieldEnd(field_))) {
    return ++field_ < kFields.size() ? Expect::kField : Expect::kEntryClose;
  }
  if (expect_ == Expect::kEntryClose && line.head.starts_with(kEntryClose)) {
    ++entries_;
    const std::string_view rest = line.head.substr(kEntryClose.size());
    if (rest == "," || rest.empty()) {
      return rest.empty() ? Expect::kArrayClose : Expect::kEntryOpen;
    }
  }
  if (expect_ == Expect::kArrayClose && line.head == kArrayClose) {
    return Expect::kRootClose;
  }
  // This "fentries" may belong to the metadata. If it is the last one, this is what was wrong.
  wrong_at_ = offset_;
  return Expect::kMember;
}

std::optional<std::uint64_t> EntryCounter::Finish(std::string* error) const {
  if (expect_ == Expect::kNothing && kept_size_ == 0) {
    return entries_;
  }
  *error = "no document: wrong at byte " + std::to_string(wrong_at_.value_or(offset_));
  return std::nullopt;
}
