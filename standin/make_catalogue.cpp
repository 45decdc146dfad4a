// Makes a catalogue for the stand-in host product from a seed. The same seed and options give the
// same bytes on every machine.

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue.h"

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
  std::int64_t nights = -1;   ///< at least 0: every client's images of so many nights instead
  bool newest_first =
      false;  ///< with nights: in the listing, a night stands before the one before it
  bool odd_names = false;
  bool listing_only = false;  ///< no image can be exported
  bool parents = true;
  bool header = true;
};

constexpr std::string_view kUsage =
    "usage: make_catalogue --root DIR [--seed N] [--clients N] [--policies N] [--schedules N]\n"
    "                      [--images N | --set N | --nights N [--newest-first]] [--entries N]\n"
    "                      [--odd-names] [--listing-only] [--no-parents] [--no-header]\n";

constexpr std::int64_t kFirstTime = 1500000000;

/// One client's images of one policy and schedule.
struct Series {
  std::string policy;
  std::string schedule;
  bool has_parents = false;
  std::int64_t open_images = 0;  // since the last parent image
};

std::vector<Series> MakeSeries(const Options& options, Random* random) {
  const Names names(options.odd_names);
  std::vector<Series> all;
  for (std::int64_t policy = 0; policy < options.policies; ++policy) {
    for (std::int64_t schedule = 0; schedule < options.schedules; ++schedule) {
      all.push_back({.policy = names.Policy(policy),
                     .schedule = names.Schedule(schedule),
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
      : options_(options),
        names_(options.odd_names),
        random_(options.seed),
        listing_(fs::path(options.root) / "db/listing") {}

  void Run() {
    for (std::int64_t client = 0; client < options_.clients; ++client) {
      const std::int64_t images = options_.images / options_.clients +
                                  (client < options_.images % options_.clients ? 1 : 0);
      if (images > 0) {
        AddClient(names_.Client(client), images);
      }
    }
  }

  void RunOneSet() {
    Image image{.client = names_.Client(0),
                .policy = names_.Policy(0),
                .schedule = names_.Schedule(0),
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
      WriteImage(options_.root, *image, options_.header, &random_);
    }
  }

  const Options& options_;
  Names names_;
  Random random_;
  Writer listing_;
  std::int64_t rows_ = 0;
};

/// Writes a catalogue as it grows: in every night, each client has a backup of each policy, which
/// is a full one once a week. What is known of an image depends on the seed and the image alone, so
/// a catalogue of more nights holds that of fewer.
class Nights {
 public:
  explicit Nights(const Options& options)
      : options_(options),
        names_(options.odd_names),
        listing_(fs::path(options.root) / "db/listing") {}

  /// Returns the number of rows.
  std::int64_t Run() {
    for (std::int64_t client = 0; client < options_.clients; ++client) {
      AddClient(client);
    }
    return count_;
  }

 private:
  static constexpr std::int64_t kDay = 86400;    // seconds
  static constexpr std::int64_t kHour = 3600;    // seconds
  static constexpr std::int64_t kMinute = 60;    // seconds
  static constexpr std::int64_t kFullEvery = 7;  // nights

  void AddClient(std::int64_t client) {
    rows_.clear();
    for (std::int64_t night = 0; night < options_.nights; ++night) {
      for (std::int64_t policy = 0; policy < options_.policies; ++policy) {
        AddNight(client, night, policy);
      }
    }
    if (options_.newest_first) {
      std::reverse(rows_.begin(), rows_.end());
    }
    listing_ << "\n" << kListingHeader;
    for (const std::string& row : rows_) {
      listing_ << row;
    }
    count_ += static_cast<std::int64_t>(rows_.size());
  }

  void AddNight(std::int64_t client, std::int64_t night, std::int64_t policy) {
    const std::int64_t start = kFirstTime + night * kDay + policy * kHour + client * kMinute;
    Image image{.client = names_.Client(client),
                .policy = names_.Policy(policy),
                .schedule = names_.Schedule((night + policy) % kFullEvery == 0 ? 0 : 1),
                .time = start,
                .files = 0,
                .size = ""};
    // The third of the policies does without parent images. Where they are listed behind the images
    // of their night, they are the job that began first.
    const bool has_parent = options_.parents && policy % 3 != 2;
    if (has_parent && options_.newest_first) {
      AddImage(image);
    }
    const std::int64_t images = 1 + (night + client) % 2;
    for (std::int64_t number = 1; number <= images; ++number) {
      image.time = start + number * kMinute;
      image.files = 1;
      AddImage(image);
    }
    if (has_parent && !options_.newest_first) {
      image.time = start + kHour / 2;
      image.files = 0;
      AddImage(image);
    }
  }

  /// Adds `image`, which has all but its size; one that has files gets their number as well.
  void AddImage(Image image) {
    std::uint64_t seed = options_.seed;
    for (const char c : image.Id()) {
      seed = seed * 0x100000001B3U ^ static_cast<unsigned char>(c);
    }
    Random random(seed);
    image.size = RandomSize(&random);
    if (image.files != 0) {
      image.files = options_.entries >= 0 ? options_.entries : 3 + random.Below(38);
    }
    rows_.push_back(ListingRow(image, random.Below(997)));
    if (!options_.listing_only) {
      WriteImage(options_.root, image, options_.header, &random);
    }
  }

  const Options& options_;
  Names names_;
  Writer listing_;
  std::vector<std::string> rows_;  // of one client
  std::int64_t count_ = 0;
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

constexpr std::array<option, 15> kLongOptions = {{{"root", required_argument, nullptr, 0},
                                                  {"seed", required_argument, nullptr, 0},
                                                  {"clients", required_argument, nullptr, 0},
                                                  {"policies", required_argument, nullptr, 0},
                                                  {"schedules", required_argument, nullptr, 0},
                                                  {"images", required_argument, nullptr, 0},
                                                  {"entries", required_argument, nullptr, 0},
                                                  {"set", required_argument, nullptr, 0},
                                                  {"nights", required_argument, nullptr, 0},
                                                  {"newest-first", no_argument, nullptr, 0},
                                                  {"odd-names", no_argument, nullptr, 0},
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
  } else if (name == "newest-first") {
    options->newest_first = true;
  } else if (name == "odd-names") {
    options->odd_names = true;
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
                           : name == "nights"    ? options->nights
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
    std::int64_t rows = options.images;
    if (options.nights >= 0) {
      rows = Nights(options).Run();
    } else if (options.set >= 0) {
      Generator(options).RunOneSet();
      rows = options.set + 1;
    } else {
      Generator(options).Run();
    }
    std::cout << "rows=" << rows << '\n';
  } catch (const fs::filesystem_error& failure) {
    std::cerr << "make_catalogue: " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
