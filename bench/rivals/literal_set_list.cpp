// literal_set_list COMMAND COUNT FILE: the set list as one would write it down from its
// description. The records have strings of their own, a sorted map holds copies of them, the sets
// themselves are sorted, and the document is a tree.

#include <stdio.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace {

struct Image {
  std::string backup_id;
  std::string size;
  std::string last_field;
  std::string policy;
  std::string schedule;
  std::string client;
  std::int64_t backup_time = 0;  // seconds
  std::int32_t files = 0;        // 0 marks a parent image
};

struct Set {
  std::string policy;
  std::string client;
  std::string schedule;
  std::string backup_id;
  std::int64_t create_time = 0;   // seconds
  std::uint64_t backup_size = 0;  // bytes
  std::vector<std::string> image_ids;
};

std::array<char, std::size_t{4} * 1024 * 1024> line;

/// Ends the field at `field` and the blanks behind it. Returns where the next one begins.
char* Cut(char* field) {
  while (*field != ' ' && *field != '\0') {
    ++field;
  }
  while (*field == ' ') {
    *field++ = '\0';
  }
  return field;
}

/// The record of a whole row with an id.
Image ImageFrom(char* row) {
  constexpr std::size_t kSecondColumnWidth = 20;
  Image image;
  char* next = Cut(row);
  image.backup_id = row;
  const std::size_t underscore = image.backup_id.find('_');
  image.client = image.backup_id.substr(0, underscore);
  image.backup_time = std::atol(image.backup_id.substr(underscore + 1).c_str());
  next += kSecondColumnWidth;
  while (*next == ' ') {
    *next++ = '\0';
  }
  char* field = std::exchange(next, Cut(next));
  image.files = static_cast<std::int32_t>(std::atol(field));
  field = std::exchange(next, Cut(next));
  image.size = field;
  field = std::exchange(next, Cut(next));
  image.schedule = field;
  field = std::exchange(next, Cut(next));
  image.policy = field;
  while (*next != '\0') {
    ++next;
  }
  *--next = '\0';
  while (next[-1] != ' ' && next[-1] != '\0') {
    --next;
  }
  image.last_field = next;
  return image;
}

std::vector<Image> ReadImages(const char* command) {
  std::vector<Image> images;
  bool is_header = false;
  bool is_in_block = false;
  FILE* const listing = popen(command, "r");
  while (listing != nullptr &&
         fgets(line.data(), static_cast<int>(line.size()), listing) != nullptr) {
    if (line[0] == '\n') {
      is_header = true;
    } else if (std::exchange(is_header, false)) {
      is_in_block = true;
    } else if (is_in_block) {
      images.push_back(ImageFrom(line.data()));
    }
  }
  if (listing != nullptr) {
    pclose(listing);
  }
  return images;
}

std::uint64_t BytesFrom(std::string size) {
  constexpr std::array<std::pair<char, double>, 5> kUnits = {
      {{'K', 0x1p10}, {'M', 0x1p20}, {'G', 0x1p30}, {'T', 0x1p40}, {'P', 0x1p50}}};
  for (const auto& [unit, multiplier] : kUnits) {
    if (!size.empty() && size.back() == unit) {
      size.pop_back();
      return static_cast<std::uint64_t>(std::strtod(size.c_str(), nullptr) * multiplier);
    }
  }
  return 0;
}

void DescribeBy(const Image& image, Set* set) {
  set->policy = image.policy;
  set->client = image.client;
  set->schedule = image.schedule;
  set->backup_id = image.backup_id;
  set->create_time = image.backup_time;
}

void AddSetsOf(const std::vector<Image>& series, std::vector<Set>* sets) {
  Set set;
  bool has_parent = false;
  for (const Image& image : series) {
    if (image.files != 0) {
      set.image_ids.push_back(image.backup_id);
      set.backup_size += BytesFrom(image.size);
      continue;
    }
    has_parent = true;
    if (!set.image_ids.empty()) {
      DescribeBy(image, &set);
      sets->push_back(set);
    }
    set = Set();
  }
  if (has_parent) {
    return;
  }
  for (const Image& image : series) {
    DescribeBy(image, &set);
    set.image_ids = {image.backup_id};
    sets->push_back(set);
  }
}

std::vector<Set> SetsOf(const std::vector<Image>& images) {
  std::map<std::string, std::vector<Image>> series_by_tag;
  for (const Image& image : images) {
    series_by_tag[image.client + ":" + image.policy + ":" + image.schedule].push_back(image);
  }
  std::vector<Set> sets;
  for (const auto& [tag, series] : series_by_tag) {
    AddSetsOf(series, &sets);
  }
  return sets;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): whatever is wrong ends it
int main(int argc, char** argv) {
  using boost::property_tree::ptree;

  if (argc != 4) {
    return 1;
  }
  std::vector<Set> sets = SetsOf(ReadImages(argv[1]));
  std::sort(sets.begin(), sets.end(),
            [](const Set& a, const Set& b) { return a.create_time < b.create_time; });
  const long count = std::atol(argv[2]);
  long written = 0;
  ptree array;
  for (; !sets.empty(); sets.pop_back()) {
    const Set& set = sets.back();
    ptree element;
    element.put("BackupCreateTime", set.create_time);
    element.put("BackupSize", set.backup_size);
    array.push_back(std::make_pair("", element));
    if (++written == count) {
      break;
    }
  }
  ptree root;
  root.push_back(std::make_pair("backup_sets", array));
  boost::property_tree::write_json(argv[3], root, std::locale(), true);
  return 0;
}
