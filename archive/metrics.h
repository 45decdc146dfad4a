#ifndef QUILLMERE_ARCHIVE_METRICS_H_
#define QUILLMERE_ARCHIVE_METRICS_H_

#include <cstdint>
#include <string>

#include "archive/progress.h"
#include "archive/store.h"

/// How a sync went.
struct LastRun {
  std::string archive;     ///< path, as it was given
  int status = 0;          ///< exit status
  std::int64_t ended = 0;  ///< seconds
  double duration = 0;     ///< seconds
  SyncCounts counts;
};

/// Replaces `file`, in one step, by what the node exporter of Prometheus reads: how `run` went,
/// when a sync of that archive last succeeded, for which the former file is asked, and what `store`
/// holds, unless that is null. What can't be read or written is told to `complain`. Returns the
/// status of the run; kFound when it was kAllIsWell and anything had to be told.
int WriteMetrics(const std::string& file, LastRun run, const Store* store,
                 const Store::Complain& complain);

#endif  // QUILLMERE_ARCHIVE_METRICS_H_
