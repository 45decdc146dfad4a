#include "catalogue.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <iostream>

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 6> kClients = {
    "alpha", "db.prod.example", "FILER-7", "backup01", "x", "mail.example"};
constexpr std::array<std::string_view, 5> kPolicies = {"Daily", "Weekly-FS", "ora.prod",
                                                       "Mail+Calendar", "P1"};
constexpr std::array<std::string_view, 4> kSchedules = {"full", "incr", "diff-1", "user.backup"};
constexpr std::array<std::string_view, 12> kFolders = {
    "/home/alice/Documents",
    "/home/bob/My Pictures/2020 summer",
    "/srv/share/projects/quarterly \"final\"",
    "/var/lib/mail/queue",
    "/opt/C\\Windows-style\\path",
    "/srv/share/B\xC3\xBCro/\xC3\x9C"
    "bersicht",
    "/srv/latin1/caf\xE9/men\xFC",
    "/etc",
    "/home/carol/it's here",
    "/usr/share/doc/some-package-with-a-long-name/examples/and/more/examples",
    "/data/100% done",
    "/data/a&b;c|d <e>"};
constexpr std::array<std::string_view, 5> kUsers = {"root", "alice", "bob", "carol", "www-data"};
constexpr std::array<std::string_view, 6> kSuffixes = {".txt", ".jpg", ".dat", "", ".tar.gz", " "};

// Nothing here has a blank or a newline, which no row could carry. A client that ends in an
// underscore and something else is cut there by whoever looks for it.
constexpr std::array<std::string_view, 24> kOddClients = {"archive.json",
                                                          "..",
                                                          ".hidden",
                                                          "%",
                                                          "a/b",
                                                          "a/../../b",
                                                          "/etc/passwd",
                                                          "-rf",
                                                          "--help",
                                                          "it's",
                                                          "\"quoted\"",
                                                          "$(touch${IFS}run-by-a-name)",
                                                          "`touch${IFS}run-by-a-name`",
                                                          "a&b;c|d<e>f",
                                                          "*",
                                                          "~root",
                                                          "back\\slash\\",
                                                          "tab\there",
                                                          "bell\a\x7F\x1B[31m",
                                                          "B\xC3\xBCro",
                                                          "caf\xE9-\xFF\xC3",
                                                          "my_host.example",
                                                          "UPPER",
                                                          "upper"};
constexpr std::array<std::string_view, 5> kOddPolicies = {"../../sets", "$HOME", "'", "P:1:full",
                                                          "\xE9t\xE9"};
constexpr std::array<std::string_view, 4> kOddSchedules = {"..", "full;touch${IFS}run-by-a-name",
                                                           "\"", "%2e"};
constexpr std::size_t kLongName = 240;  // bytes; with "_" and a time, an id of 251

/// The `index`th of `names`, with a number behind it from the second round on.
template <class Array>
std::string Numbered(const Array& names, std::int64_t index) {
  const auto count = static_cast<std::int64_t>(names.size());
  const std::string name(names[static_cast<std::size_t>(index % count)]);
  return index < count ? name : name + "-" + std::to_string(index / count);
}

/// Whether each byte above 0x7F is a part of a character of two bytes, the only ones of the names.
bool IsUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte >= 0xC2 && byte <= 0xDF && at + 1 < text.size() && (text[at + 1] & 0xC0) == 0x80) {
      ++at;
    } else if (byte >= 0x80) {
      return false;
    }
  }
  return true;
}

/// `text` in a JSON string of the product, which prints it for printf: a percent sign stands
/// doubled. Of a text that is no UTF-8, which no JSON may hold, each byte above 0x7F is a question
/// mark.
std::string Escaped(std::string_view text) {
  const bool is_utf8 = IsUtf8(text);
  std::string escaped;
  for (char c : text) {
    if (!is_utf8 && static_cast<unsigned char>(c) >= 0x80) {
      c = '?';
    }
    if (c == '"' || c == '\\') {
      escaped += '\\';
    }
    if (static_cast<unsigned char>(c) < 0x20) {
      constexpr std::string_view kDigits = "0123456789abcdef";
      escaped += "\\u00";
      escaped += kDigits[static_cast<unsigned char>(c) / 16];
      escaped += kDigits[static_cast<unsigned char>(c) % 16];
    } else {
      escaped += c == '%' ? "%%" : std::string(1, c);
    }
  }
  return escaped;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 1, width), ' ');
  return text;
}

std::string RightAligned(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

/// "Sun Sep 13 2020", the day of `time` in UTC.
std::string DayOf(std::int64_t time) {
  std::array<char, 32> text{};
  const std::time_t seconds = time;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return {text.data(), std::strftime(text.data(), text.size(), "%a %b %d %Y", &parts)};
}

void WriteEntries(const fs::path& path, const Image& image, bool header, Random* random) {
  Writer out(path);
  if (header) {
    out << "num\tlen\tplen\tdlen\tblknum\tii\traw_sz\tGB\tdev_num\tpath\tdata\n";
  }
  std::int64_t block = 1;
  std::string_view folder;
  for (std::int64_t number = 1; number <= image.files; ++number) {
    if (number % 32 == 1) {
      folder = random->OneOf(kFolders);
    }
    const std::int64_t bytes = random->Below(1000000);
    const std::string_view user = random->OneOf(kUsers);
    const std::string_view suffix = random->OneOf(kSuffixes);
    out << number << "\t" << bytes << "\t" << std::int64_t{40} + number % 60 << "\t"
        << std::int64_t{90} << "\t" << block << "\t1\t0\t0\t64768\t" << folder << "/file-" << number
        << suffix << "\t33188 " << user << " users " << bytes << " " << image.time - bytes << " "
        << image.time - bytes / 2 << " " << image.time << " 0 0 0 " << block << " 64768 1 "
        << number * 7 << "\n";
    block += bytes / 512 + 1;
  }
}

void WriteMetadata(const fs::path& path, const Image& image, Random* random) {
  Writer out(path);
  // The product prints this for printf, so a percent sign stands doubled.
  out << "{\n"
      << "  \"backup_id\": \"" << Escaped(image.Id()) << "\",\n"
      << "  \"client\": \"" << Escaped(image.client) << "\",\n"
      << "  \"policy\": {\"name\": \"" << Escaped(image.policy) << "\", \"active\": true},\n"
      << "  \"schedule\": \"" << Escaped(image.schedule) << "\",\n"
      << "  \"backup_time\": " << image.time << ",\n"
      << "  \"files\": " << image.files << ",\n"
      << "  \"compression\": \"" << random->Below(100) << "%%\",\n"
      << "  \"comment\": \"quotes \\\" and \\\\ and \\/, caf\\u00e9,\\nsecond line\",\n"
      << "  \"expires\": null,\n"
      << "  \"copies\": [\n"
      << "    {\"number\": 1, \"media\": [\"MED" << random->Below(997) << "\", \"MED"
      << random->Below(997) << "\"], \"ratio\": -1.5e-3},\n"
      << "    {\"number\": 2, \"media\": []}\n"
      << "  ]\n"
      << "}\n";
}

}  // namespace

std::int64_t Random::Below(std::int64_t bound) {
  state_ += 0x9E3779B97F4A7C15U;
  std::uint64_t z = state_;
  z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
  return static_cast<std::int64_t>((z ^ (z >> 31U)) % static_cast<std::uint64_t>(bound));
}

std::string Names::Client(std::int64_t index) const {
  if (odd_ && index == static_cast<std::int64_t>(kOddClients.size())) {
    std::string name(kLongName, 'L');
    return name;
  }
  return odd_ ? Numbered(kOddClients, index) : Numbered(kClients, index);
}

std::string Names::Policy(std::int64_t index) const {
  return odd_ ? Numbered(kOddPolicies, index) : Numbered(kPolicies, index);
}

std::string Names::Schedule(std::int64_t index) const {
  return odd_ ? Numbered(kOddSchedules, index) : Numbered(kSchedules, index);
}

std::string Image::CatalogueFile() const {
  std::string name = policy + "_" + std::to_string(time) + "_" + schedule + ".f";
  std::replace(name.begin(), name.end(), '/', '-');
  return name;
}

const std::string_view kListingHeader =
    "Backupid                     Date                    Files    Size Schedule     Policy       "
    "   Keep Copies Media   Catalogue file\n";

std::string ListingRow(const Image& image, std::int64_t number) {
  constexpr std::size_t kDateWidth = 20;  // readers know the width of this column
  return Padded(image.Id(), 29) + Padded(DayOf(image.time), kDateWidth) +
         RightAligned(std::to_string(image.files), 9) + " " + RightAligned(image.size, 7) + " " +
         Padded(image.schedule, 13) + Padded(image.policy, 13) + RightAligned("1 month", 9) +
         "      1 " + Padded("MED" + std::to_string(number % 997), 8) + image.CatalogueFile() +
         "\n";
}

std::string RandomSize(Random* random) {
  constexpr std::string_view kUnits = "KKKKKMMMMMMMMGGGGGGTP";
  const char unit = kUnits[static_cast<std::size_t>(random->Below(kUnits.size()))];
  std::string size = std::to_string(1 + random->Below(unit == 'T' || unit == 'P' ? 3 : 999));
  if (random->Below(2) != 0) {
    size += '.';
    size += std::to_string(random->Below(10));
  }
  size += unit;
  return size;
}

Writer::Writer(const fs::path& path) : path_(path), file_(path, std::ios::binary) {
  buffer_.reserve(kPiece + 4096);
}

Writer::~Writer() {
  file_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  file_.flush();
  if (!file_) {
    std::cerr << "make_catalogue: can't write " << path_.string() << '\n';
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): there is one thread
  }
}

Writer& Writer::operator<<(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kPiece) {
    file_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
  }
  return *this;
}

Writer& Writer::operator<<(std::int64_t number) {
  std::array<char, 24> digits{};
  const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  return *this << std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

void WriteImage(const fs::path& root, const Image& image, bool header, Random* random) {
  // As who reads it finds it: a client ends at the first underscore, also one that has another, and
  // a name that looks like a path is put behind the others as it is.
  const std::string id = image.Id();
  const std::size_t underscore = id.find('_');
  const std::string time = id.substr(underscore + 1);
  const fs::path folder =
      root.string() + "/db/images/" + id.substr(0, underscore) + "/" + time.substr(0, 4) + "000000";
  fs::create_directories(folder);
  WriteEntries(folder / image.CatalogueFile(), image, header, random);
  WriteMetadata(folder / (time + ".meta"), image, random);
  Writer(folder / (time + ".id")) << "Backupid: " << id << "\n"
                                  << "Policy: " << image.policy << "  Schedule: " << image.schedule
                                  << "\n"
                                  << "Catalogue file: " << image.CatalogueFile() << "\n";
}
