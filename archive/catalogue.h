#ifndef QUILLMERE_ARCHIVE_CATALOGUE_H_
#define QUILLMERE_ARCHIVE_CATALOGUE_H_

#include <memory>
#include <string>
#include <vector>

#include "archive/child_process.h"
#include "archive/units.h"
#include "catalog/records.h"

/// What the product lists: every image, and the sets that they make.
struct Listing {
  std::string failure;  ///< why there is none; empty when there is
  std::vector<BackupImage> images;
  std::vector<BackupSet> sets;
  std::unique_ptr<const std::string> text;  ///< what the images and sets refer to
};

/// Runs the catalogue listing, in a process of its own. A signal ends it, with a failure.
Listing ListCatalogue(const Age& timeout, Signals* signals);

#endif  // QUILLMERE_ARCHIVE_CATALOGUE_H_
