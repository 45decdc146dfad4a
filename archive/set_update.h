#ifndef QUILLMERE_ARCHIVE_SET_UPDATE_H_
#define QUILLMERE_ARCHIVE_SET_UPDATE_H_

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "archive/progress.h"
#include "archive/store.h"
#include "catalog/records.h"

/// Brings the set files of the series of `sets`, which have to be all that the product lists of
/// them, up to date: writes those that changed and whose members are among `images`, and removes
/// those whose members are in others now. A set with a member among those that were `pruned` waits
/// for nothing. Images are named as ImageNameOf has it. Adds to *counts. What fails of a series is
/// told to `complain`. Returns false when anything did.
bool UpdateSets(const Store& store, const std::vector<const BackupSet*>& sets,
                const std::unordered_set<std::string>& images,
                const std::unordered_set<std::string>& pruned, const Store::Complain& complain,
                SyncCounts* counts);

#endif  // QUILLMERE_ARCHIVE_SET_UPDATE_H_
