// Makes a catalogue for the stand-in host product from a seed. The same seed and options give the
// same bytes on every machine.

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Options {
  std::string root;
  std::uint64_t seed = 1;
  std::int64_t clients = 3;
  std::int64_t policies = 2;
  std::int64_t schedules = 2;
  std::int64_t images = 60;   ///< rows of the listing, parent images included
  std::int64_t entries = -1;  ///< per image; below 0: a few, another number for each image
  std::int64_t set = -1;      ///< at least 0: one set of so many images and its parent instead
  bool listing_only = false;  ///< no image can be exported
  bool parents = true;
  bool header = true;
};

constexpr std::string_view kUsage =
    "usage: make_catalogue --root DIR [--seed N] [--clients N] [--policies N] [--schedules N]\n"
    "                      [--images N | --set N] [--entries N] [--listing-only] [--no-parents]\n"
    "                      [--no-header]\n";

/// SplitMix64: small, and the same everywhere, which the library's distributions are not.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  /// A number from 0 to `bound` - 1.
  std::int64_t Below(std::int64_t bound) {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return static_cast<std::int64_t>((z ^ (z >> 31U)) % static_cast<std::uint64_t>(bound));
  }

  template <class Array>
  std::string_view OneOf(const Array& choices) {
    return choices[static_cast<std::size_t>(Below(static_cast<std::int64_t>(choices.size())))];
  }

 private:
  std::uint64_t state_;
};

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

/// The `index`th of `names`, with a number behind it from the second round on.
template <class Array>
std::string Numbered(const Array& names, std::int64_t index) {
  const auto count = static_cast<std::int64_t>(names.size());
  const std::string name(names[static_cast<std::size_t>(index % count)]);
  return index < count ? name : name + "-" + std::to_string(index / count);
}

/// What one image is, as far as the listing tells.
struct Image {
  std::string client;
  std::string policy;
  std::string schedule;
  std::int64_t time = 0;   // seconds
  std::int64_t files = 0;  // 0 for a parent image
  std::string size;

  [[nodiscard]] std::string Id() const { return client + "_" + std::to_string(time); }
  [[nodiscard]] std::string CatalogueFile() const {
    return policy + "_" + std::to_string(time) + "_" + schedule + ".f";
  }
};

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

constexpr std::string_view kListingHeader =
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
  const std::string whole = std::to_string(1 + random->Below(unit == 'T' || unit == 'P' ? 3 : 999));
  const std::string fraction = random->Below(2) == 0 ? "" : "." + std::to_string(random->Below(10));
  return whole + fraction + unit;
}

/// Text that goes to a file in large pieces. Ends the program when the file can't be written.
class Writer {
 public:
  explicit Writer(const fs::path& path) : path_(path), file_(path, std::ios::binary) {
    buffer_.reserve(kPiece + 4096);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    file_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    file_.flush();
    if (!file_) {
      std::cerr << "make_catalogue: can't write " << path_.string() << '\n';
      std::exit(1);  // NOLINT(concurrency-mt-unsafe): there is one thread
    }
  }

  Writer& operator<<(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kPiece) {
      file_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
      buffer_.clear();
    }
    return *this;
  }

  Writer& operator<<(std::int64_t number) {
    std::array<char, 24> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return *this << std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()));
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;  // bytes

  fs::path path_;
  std::ofstream file_;
  std::string buffer_;
};

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
      << "  \"backup_id\": \"" << image.Id() << "\",\n"
      << "  \"client\": \"" << image.client << "\",\n"
      << "  \"policy\": {\"name\": \"" << image.policy << "\", \"active\": true},\n"
      << "  \"schedule\": \"" << image.schedule << "\",\n"
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

/// What the catalogue holds of `image` beside its row.
void WriteImage(const Options& options, const Image& image, Random* random) {
  const std::string time = std::to_string(image.time);
  const fs::path folder =
      fs::path(options.root) / "db" / "images" / image.client / (time.substr(0, 4) + "000000");
  fs::create_directories(folder);
  WriteEntries(folder / image.CatalogueFile(), image, options.header, random);
  WriteMetadata(folder / (time + ".meta"), image, random);
  Writer(folder / (time + ".id")) << "Backupid: " << image.Id() << "\n"
                                  << "Policy: " << image.policy << "  Schedule: " << image.schedule
                                  << "\n"
                                  << "Catalogue file: " << image.CatalogueFile() << "\n";
}

/// One client's images of one policy and schedule.
struct Series {
  std::string policy;
  std::string schedule;
  bool has_parents = false;
  std::int64_t open_images = 0;  // since the last parent image
};

std::vector<Series> MakeSeries(const Options& options, Random* random) {
  std::vector<Series> all;
  for (std::int64_t policy = 0; policy < options.policies; ++policy) {
    for (std::int64_t schedule = 0; schedule < options.schedules; ++schedule) {
      all.push_back({.policy = Numbered(kPolicies, policy),
                     .schedule = Numbered(kSchedules, schedule),
                     .has_parents = options.parents && random->Below(4) != 0,
                     .open_images = 0});
    }
  }
  // One series with parents at least, so that every catalogue shows what a set is.
  all.front().has_parents = options.parents;
  return all;
}

/// Writes the catalogue row by row: the images of a client stand together, in the order of time.
class Generator {
 public:
  explicit Generator(const Options& options)
      : options_(options), random_(options.seed), listing_(fs::path(options.root) / "db/listing") {}

  void Run() {
    for (std::int64_t client = 0; client < options_.clients; ++client) {
      const std::int64_t images = options_.images / options_.clients +
                                  (client < options_.images % options_.clients ? 1 : 0);
      if (images > 0) {
        AddClient(Numbered(kClients, client), images);
      }
    }
  }

  void RunOneSet() {
    Image image{.client = Numbered(kClients, 0),
                .policy = Numbered(kPolicies, 0),
                .schedule = Numbered(kSchedules, 0),
                .time = kFirstTime,
                .files = 0,
                .size = ""};
    listing_ << "\n" << kListingHeader;
    for (std::int64_t i = 0; i < options_.set; ++i) {
      AddImage(&image, false);
    }
    AddImage(&image, true);
    std::cout << "set_time=" << image.time << "\nset_client=" << image.client << '\n';
  }

 private:
  static constexpr std::int64_t kFirstTime = 1500000000;

  void AddClient(const std::string& client, std::int64_t images) {
    std::vector<Series> all = MakeSeries(options_, &random_);
    Image image;
    image.client = client;
    image.time = kFirstTime + random_.Below(100000);
    listing_ << "\n" << kListingHeader;
    for (std::int64_t i = 0; i < images; ++i) {
      Series& series =
          all[static_cast<std::size_t>(random_.Below(static_cast<std::int64_t>(all.size())))];
      const bool is_parent = series.has_parents && series.open_images > random_.Below(6);
      series.open_images = is_parent ? 0 : series.open_images + 1;
      image.policy = series.policy;
      image.schedule = series.schedule;
      AddImage(&image, is_parent);
    }
  }

  /// Adds *image, which has all but its time, its number of files and its size.
  void AddImage(Image* image, bool is_parent) {
    image->time += 1 + random_.Below(options_.listing_only ? 300 : 40000);
    image->size = RandomSize(&random_);
    image->files = options_.entries >= 0 ? options_.entries : 3 + random_.Below(38);
    if (is_parent) {
      image->files = 0;
    }
    listing_ << ListingRow(*image, rows_);
    if (rows_++ == 0) {
      std::cout << "first_id=" << image->Id() << '\n';
    }
    if (!options_.listing_only) {
      WriteImage(options_, *image, &random_);
    }
  }

  const Options& options_;
  Random random_;
  Writer listing_;
  std::int64_t rows_ = 0;
};

/// `text` as a number, or the end of the program.
std::int64_t Number(std::string_view option, std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) {
    std::cerr << "make_catalogue: --" << option << " takes a whole number, not \"" << text
              << "\"\n";
    std::exit(1);  // NOLINT(concurrency-mt-unsafe)
  }
  return number;
}

constexpr std::array<option, 12> kLongOptions = {{{"root", required_argument, nullptr, 0},
                                                  {"seed", required_argument, nullptr, 0},
                                                  {"clients", required_argument, nullptr, 0},
                                                  {"policies", required_argument, nullptr, 0},
                                                  {"schedules", required_argument, nullptr, 0},
                                                  {"images", required_argument, nullptr, 0},
                                                  {"entries", required_argument, nullptr, 0},
                                                  {"set", required_argument, nullptr, 0},
                                                  {"listing-only", no_argument, nullptr, 0},
                                                  {"no-parents", no_argument, nullptr, 0},
                                                  {"no-header", no_argument, nullptr, 0},
                                                  {nullptr, 0, nullptr, 0}}};

void Store(std::string_view name, const char* value, Options* options) {
  if (name == "root") {
    options->root = value;
  } else if (name == "seed") {
    options->seed = static_cast<std::uint64_t>(Number(name, value));
  } else if (name == "listing-only") {
    options->listing_only = true;
  } else if (name == "no-parents") {
    options->parents = false;
  } else if (name == "no-header") {
    options->header = false;
  } else {
    std::int64_t& number = name == "clients"     ? options->clients
                           : name == "policies"  ? options->policies
                           : name == "schedules" ? options->schedules
                           : name == "images"    ? options->images
                           : name == "entries"   ? options->entries
                                                 : options->set;
    number = Number(name, value);
  }
}

Options ParseOptions(int argc, char** argv) {
  Options options;
  int index = 0;
  int found = 0;
  while ((found = getopt_long(argc, argv, "", kLongOptions.data(), &index)) == 0) {
    Store(kLongOptions[static_cast<std::size_t>(index)].name, optarg, &options);
  }
  const bool has_series = options.clients > 0 && options.policies > 0 && options.schedules > 0;
  if (found != -1 || optind != argc || options.root.empty() || !has_series) {
    std::cerr << kUsage;
    std::exit(1);  // NOLINT(concurrency-mt-unsafe)
  }
  return options;
}

/// Puts the three commands, which are built beside this program, into the root.
void CopyCommands(const fs::path& root) {
  const fs::path built = fs::read_symlink("/proc/self/exe").parent_path() / "product";
  fs::create_directories(root);
  fs::copy(built, root, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = ParseOptions(argc, argv);
  std::error_code error;
  fs::remove_all(fs::path(options.root) / "db", error);
  try {
    CopyCommands(options.root);
    fs::create_directories(fs::path(options.root) / "db" / "images");
    Generator generator(options);
    if (options.set >= 0) {
      generator.RunOneSet();
    } else {
      generator.Run();
    }
    std::cout << "rows=" << (options.set >= 0 ? options.set + 1 : options.images) << '\n';
  } catch (const fs::filesystem_error& failure) {
    std::cerr << "make_catalogue: " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
