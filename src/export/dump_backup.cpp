#include "export/dump_backup.h"

#include <iostream>

#include <boost/property_tree/ptree.hpp>

#include "export/catalogue_file.h"
#include "export/file_entries.h"
#include "export/json_document.h"
#include "export/metadata.h"
#include "export/output_path.h"

int dump_backup(const std::string& backup_id, const std::string& output_dir) {
  if (backup_id.find('_') == std::string::npos) {
    std::cerr << "wrong backup_id, no '_' found.\n";
    return 1;
  }
  const std::string catalogue_directory = CatalogueDirectory(backup_id);

  boost::property_tree::ptree root;
  const std::string metadata_directory = output_dir.empty() ? "/tmp" : output_dir;
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
  status = ReadFileEntries(catalogue_directory + "/" + catalogue_file_name, &entries);
  if (status != 0) {
    return status;
  }
  WriteDocument(
      &root, "fentries", [&entries](std::ostream& out) { entries.WriteArray(out); },
      output_dir.empty() ? "" : OutputPath(output_dir, backup_id + ".json"));
  return 0;
}
