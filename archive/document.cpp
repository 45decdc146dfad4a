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
#include <bit>
#include <cstring>

#include "archive/text_search.h"

const std::array<std::string_view, kFieldCount> kFieldNames = {
    "filenum",          "length",    "plength",    "dlength", "blknum", "in_image",
    "raw_partition_sz", "gigabytes", "device_num", "path",    "data"};

namespace {

constexpr std::string_view kArrayBegin = "[\n";
constexpr std::string_view kMemberIndent = "    ";
constexpr std::string_view kNoEntries = "    \"fentries\": \"\"";
constexpr std::string_view kArrayOpen = "    \"fentries\": [";
constexpr std::string_view kArrayCloseLine = "    ]";
constexpr std::array<std::string_view, kFieldCount> kFieldStarts = {
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
  return position + 1 < kFieldCount ? "\"," : "\"";
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

/// Cuts the line of the field kPosition, and moves *at behind it. Returns false when that is not
/// there.
template <std::size_t kPosition>
bool CutField(const char** at, const char* end, RawEntry* entry) {
  constexpr std::string_view kEnd = FieldEnd(kPosition);
  if (!Skip(kFieldStarts[kPosition], at, end)) {
    return false;
  }
  const char* const newline = FindNewline(*at, end);
  if (newline == end || static_cast<std::size_t>(newline - *at) < kEnd.size() ||
      std::memcmp(newline - kEnd.size(), kEnd.data(), kEnd.size()) != 0) {
    return false;
  }
  entry->values[kPosition] = {*at, static_cast<std::size_t>(newline - *at) - kEnd.size()};
  *at = newline + 1;
  return true;
}

template <std::size_t... kPositions>
bool CutFields(std::index_sequence<kPositions...> /*positions*/, const char** at, const char* end,
               RawEntry* entry) {
  return (CutField<kPositions>(at, end, entry) && ...);
}

/// Cuts an entry up to its closing brace.
bool CutOpenEntry(const char** at, const char* end, RawEntry* entry) {
  return Skip("        {\n", at, end) &&
         CutFields(std::make_index_sequence<kFieldCount>(), at, end, entry) &&
         Skip(kEntryCloseStart, at, end);
}

}  // namespace

bool CutEntry(const char** at, const char* end, RawEntry* entry) {
  return CutOpenEntry(at, end, entry) && (Skip(",\n", at, end) || Skip("\n", at, end));
}

void LastEntries::Take(std::string_view piece) {
  constexpr std::string_view kMember = "\n    \"fentries\": ";
  constexpr std::size_t kKept = kMember.size() - 1;
  const auto search = [&](std::string_view text, std::uint64_t offset) {
    std::size_t at = 0;
    while ((at = FindText(text, kMember, at)) != std::string_view::npos) {
      at += kMember.size();
      begin_ = offset + at + kArrayBegin.size();
    }
  };
  const std::size_t kept = kept_.size();
  kept_ += piece.substr(0, kKept);  // It may stand where two pieces meet.
  search(kept_, offset_ - kept);
  search(piece, offset_);
  offset_ += piece.size();
  if (piece.size() > kKept) {
    kept_ = piece.substr(piece.size() - kKept);
  }
  kept_.erase(0, kept_.size() - std::min(kKept, kept_.size()));
}

void DocumentParser::Parse(std::string_view piece) {
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
const char* DocumentParser::TakeWholeEntries(const char* begin, const char* end) {
  const char* done = begin;
  RawEntry entry{.offset = 0, .entries_begin = entries_begin_, .values = {}};
  for (const char* at = begin; CutOpenEntry(&at, end, &entry) && Skip(",\n", &at, end); done = at) {
    entry.offset = offset_ + static_cast<std::uint64_t>(done - begin);
    Give(entry);
  }
  offset_ += static_cast<std::uint64_t>(done - begin);
  return done;
}

void DocumentParser::Give(const RawEntry& entry) {
  ++entries_;
  if (gives_) {
    take_(entry);
  }
}

void DocumentParser::KeepPart(std::string_view part) {
  const std::size_t most = expect_ == Expect::kField ? kLongestEntry : kHeadSize;
  head_ += part.substr(0, most - std::min(most, head_.size()));
  tail_ += part.substr(part.size() - std::min(kTailSize, part.size()));
  tail_.erase(0, tail_.size() - std::min(kTailSize, tail_.size()));
  kept_size_ += part.size();
}

void DocumentParser::TakeKeptLine() {
  TakeLine({head_, tail_, kept_size_});
  head_.clear();
  tail_.clear();
  kept_size_ = 0;
}

void DocumentParser::TakeLine(const Line& line) {
  switch (expect_) {
    case Expect::kRootOpen:
      expect_ = line.head == "{" ? Expect::kMember : Fail();
      break;
    case Expect::kMember:
      expect_ = TakeMember(line);
      break;
    case Expect::kRootClose:
      expect_ = line.head == "}" ? Expect::kNothing : TakeOther(line);
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

DocumentParser::Expect DocumentParser::Fail() {
  wrong_at_ = wrong_at_.value_or(offset_);
  return Expect::kFailed;
}

DocumentParser::Expect DocumentParser::TakeMember(const Line& line) {
  const bool is_array = line.head == kArrayOpen;
  if (is_array || line.head == kNoEntries) {
    has_given_others_ = has_given_others_ || (gives_ && entries_ > 0);
    entries_ = 0;
    entries_begin_ = is_array ? offset_ + line.size + 1 : 0;
    gives_ = take_ && only_from_.value_or(entries_begin_) == entries_begin_;
    entries_end_ = 0;
    wrong_at_.reset();
    return is_array ? Expect::kEntryOpen : Expect::kRootClose;
  }
  return line.head.starts_with(kMemberIndent) ? Expect::kMember : Fail();
}

DocumentParser::Expect DocumentParser::TakeEntryLine(const Line& line) {
  if (expect_ == Expect::kEntryOpen && line.head == kEntryOpenLine) {
    field_ = 0;
    entry_offset_ = offset_;
    entry_size_ = 0;
    return Expect::kField;
  }
  if (expect_ == Expect::kField && TakeField(line)) {
    return ++field_ < kFieldCount ? Expect::kField : Expect::kEntryClose;
  }
  if (expect_ == Expect::kEntryClose && line.head.starts_with(kEntryCloseStart)) {
    const std::string_view rest = line.head.substr(kEntryCloseStart.size());
    if (rest == "," || rest.empty()) {
      FinishEntry();
      return rest.empty() ? Expect::kArrayClose : Expect::kEntryOpen;
    }
  }
  if (expect_ == Expect::kArrayClose && line.head == kArrayCloseLine) {
    entries_end_ = offset_;
    return Expect::kRootClose;
  }
  return TakeOther(line);
}

/// This "fentries" may belong to the metadata. If it is the last one, this is what was wrong.
DocumentParser::Expect DocumentParser::TakeOther(const Line& line) {
  wrong_at_ = offset_;
  return TakeMember(line);
}

bool DocumentParser::TakeField(const Line& line) {
  const std::string_view start = kFieldStarts[field_];
  const std::string_view end = FieldEnd(field_);
  if (!line.head.starts_with(start) || line.size < start.size() + end.size() ||
      !line.tail.ends_with(end)) {
    return false;
  }
  entry_size_ += line.size;
  if (entry_size_ > kLongestEntry) {
    return false;
  }
  values_[field_] = line.head.substr(start.size(), line.size - start.size() - end.size());
  return true;
}

void DocumentParser::FinishEntry() {
  RawEntry entry{.offset = entry_offset_, .entries_begin = entries_begin_, .values = {}};
  std::copy(values_.begin(), values_.end(), entry.values.begin());
  Give(entry);
}

std::optional<std::uint64_t> DocumentParser::Finish(std::string* error) const {
  if (expect_ == Expect::kNothing && kept_size_ == 0) {
    return entries_;
  }
  *error = "no document: wrong at byte " + std::to_string(wrong_at_.value_or(offset_));
  return std::nullopt;
}
