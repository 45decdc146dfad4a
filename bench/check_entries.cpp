// check_entries COUNT <DOCUMENT: ends with status 0 when DOCUMENT holds COUNT entries of the
// stand-in, each laid out as it has to be, with the numbers that run through them in their places.

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 11> kKeys = {
    "filenum",          "length",    "plength",    "dlength", "blknum", "in_image",
    "raw_partition_sz", "gigabytes", "device_num", "path",    "data"};

std::array<char, std::size_t{1} << 16> line_memory;

/// The next line of standard input, without its newline.
std::string_view NextLine() {
  if (fgets(line_memory.data(), static_cast<int>(line_memory.size()), stdin) == nullptr) {
    return "";
  }
  std::string_view line = line_memory.data();
  line.remove_suffix(line.ends_with('\n') ? 1 : 0);
  return line;
}

/// Takes `front` from *line. Returns false when it does not begin with that.
bool Take(std::string_view front, std::string_view* line) {
  const bool is_there = line->starts_with(front);
  line->remove_prefix(is_there ? front.size() : 0);
  return is_there;
}

/// True when `value`, of the field `key` in the entry `number`, holds that number where it has to.
bool IsOfEntry(unsigned long number, std::string_view key, std::string_view value) {
  if (key == "filenum") {
    return value == std::to_string(number);
  }
  if (key == "path") {
    return value.find("\\/file-" + std::to_string(number)) != std::string_view::npos;
  }
  return key != "data" || value.ends_with(" 64768 1 " + std::to_string(number * 7));
}

bool TakeField(unsigned long number, std::string_view key) {
  std::string_view line = NextLine();
  const std::string_view end = key == kKeys.back() ? "\"" : "\",";
  if (!Take("            \"", &line) || !Take(key, &line) || !Take("\": \"", &line) ||
      !line.ends_with(end)) {
    return false;
  }
  line.remove_suffix(end.size());
  return IsOfEntry(number, key, line);
}

bool TakeEntry(unsigned long number, bool is_last) {
  if (NextLine() != "        {") {
    return false;
  }
  for (const std::string_view key : kKeys) {
    if (!TakeField(number, key)) {
      return false;
    }
  }
  return NextLine() == (is_last ? "        }" : "        },");
}

bool TakeDocument(unsigned long count) {
  std::string_view line;
  do {
    line = NextLine();
  } while (!line.empty() && line != "    \"fentries\": [");
  for (unsigned long number = 1; number <= count; ++number) {
    if (!TakeEntry(number, number == count)) {
      fprintf(stderr, "check_entries: entry %lu is not as it has to be\n", number);
      return false;
    }
  }
  return NextLine() == "    ]" && NextLine() == "}" && getchar() == EOF;
}

}  // namespace

int main(int argc, char** argv) {
  static std::array<char, std::size_t{1} << 20> buffer;
  setvbuf(stdin, buffer.data(), _IOFBF, buffer.size());
  fcntl(STDIN_FILENO, F_SETPIPE_SZ, buffer.size());
  return argc == 2 && TakeDocument(std::strtoul(argv[1], nullptr, 10)) ? 0 : 1;
}
