#include "archive/catalogue.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "archive/record.h"
#include "archive/worker.h"
#include "catalog/backup_sets.h"
#include "catalog/image_list.h"
#include "host/command_output.h"

namespace {

const std::string kCommand = "qvroll";

void Send(const std::string& failure, const std::vector<BackupImage>& images, int results) {
  RecordWriter writer;
  writer.Put(failure);
  writer.Put(std::uint64_t{images.size()});
  for (const BackupImage& image : images) {
    for (const std::string_view text : {image.backup_id, image.size, image.last_field, image.policy,
                                        image.schedule, image.client}) {
      writer.Put(text);
    }
    writer.Put(static_cast<std::uint64_t>(image.backup_time));
    writer.Put(static_cast<std::uint64_t>(image.files));
  }
  WriteAll(results, writer.text());
}

/// The work of a process: runs the listing and sends what it was.
void SendListing(const Age& timeout, int results) {
  std::vector<BackupImage> images;
  int status = 0;
  const auto tell_silence = [&] { Send(SilenceOf(kCommand, timeout), {}, results); };
  const std::string message =
      RunUnits(timeout, tell_silence, [&] { status = GetBackupImageList("", "", &images); });
  Send(status != 0 ? message : FailureOf(kCommand, CommandOutput::last_status()), images, results);
}

/// What the process sent. Returns nothing when it did not come so far.
std::optional<Listing> Received(const std::string& results) {
  Listing listing;
  listing.text = std::make_unique<const std::string>(results);
  RecordReader reader(*listing.text);
  listing.failure = reader.Text();
  for (std::uint64_t left = reader.Number(); left > 0; --left) {
    BackupImage& image = listing.images.emplace_back();
    for (std::string_view* const text : {&image.backup_id, &image.size, &image.last_field,
                                         &image.policy, &image.schedule, &image.client}) {
      *text = reader.Text();
    }
    image.backup_time = static_cast<std::int64_t>(reader.Number());
    image.files = static_cast<std::int32_t>(reader.Number());
  }
  return reader.is_whole() ? std::optional(std::move(listing)) : std::nullopt;
}

}  // namespace

Listing ListCatalogue(const Age& timeout, Signals* signals) {
  ChildProcess process([&](int results) { SendListing(timeout, results); });
  while (process.Read() && signals->Received() == 0) {
    WaitForAny({&process}, *signals);
  }
  std::optional<Listing> listing = Received(process.results());
  if (!listing) {
    return {
        .failure = FailureOf("the worker", process.End()), .images = {}, .sets = {}, .text = {}};
  }
  if (listing->failure.empty()) {
    process.Wait();
    AssembleBackupSets(listing->images, &listing->sets);
  }
  return *std::move(listing);
}
