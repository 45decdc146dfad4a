#ifndef QUILLMERE_ARCHIVE_STATUS_H_
#define QUILLMERE_ARCHIVE_STATUS_H_

/// Exit statuses of quillmere-archive. One that was ended by a signal gives 128 and the signal.
enum Status : int {
  kAllIsWell = 0,
  kFound = 1,  ///< an image failed or stays, or metrics, or something was found that should not be
  kWrongArguments = 2,
  kNoListing = 3,      ///< and nothing was changed
  kArchiveFailed = 4,  ///< missing, foreign, newer, or it can't be read or written
  kLocked = 75,        ///< another sync or prune works on the archive
  kSignalled = 128,
};

#endif  // QUILLMERE_ARCHIVE_STATUS_H_
