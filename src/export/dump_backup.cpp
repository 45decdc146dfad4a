#include "export/dump_backup.h"

#include <cstddef>
#include <iostream>

#include <boost/property_tree/ptree.hpp>

#include "export/catalogue_file.h"
#include "export/file_entries.h"
#include "export/image_document.h"
#include "export/metadata.h"
#include "export/output_path.h"
#include "layout/layout.h"

namespace {

/// The directory of a client's catalogue files that were written in the same 10^6 seconds. Throws
/// std::out_of_range when `time_part` is shorter than four characters.
std::string BucketDirectoryName(const std::string& time_part) {
  std::string bucket = "0000000000";
  for (std::size_t i = 0; i < 4; ++i) {
    bucket[i] = time_part.at(i);
  }
  return bucket;
}

}  // namespace

int dump_backup(const std::string& backup_id, const std::string& output_dir) {
  // The first '_', even where a host name holds one: the catalogue is searched that way.
  const std::size_t underscore = backup_id.find('_');
  if (underscore == std::string::npos) {
    std::cerr << "wrong backup_id, no '_' found.\n";
    return 1;
  }
  const std::string client = backup_id.substr(0, underscore);
  const std::string bucket = BucketDirectoryName(backup_id.substr(underscore + 1));

  boost::property_tree::ptree root;
  const char* const metadata_directory = output_dir.empty() ? "/tmp" : output_dir.c_str();
  int status =
      FetchMetadata(backup_id, OutputPath(metadata_directory, backup_id + ".qvmeta.json"), &root);
  if (status != 0) {
    return status;
  }
  std::string catalogue_file_name;
  status = FindCatalogueFile(backup_id, &catalogue_file_name);
  if (status != 0) {
    return status;
  }
  FileEntryTable entries;
  status = ReadFileEntries(
      path_vkx_db_images + "/" + client + "/" + bucket + "/" + catalogue_file_name, &entries);
  if (status != 0) {
    return status;
  }
  if (output_dir.empty()) {
    WriteImageDocument(&root, entries);
  } else {
    WriteImageDocument(&root, entries, OutputPath(output_dir, backup_id + ".json"));
  }
  return 0;
}
