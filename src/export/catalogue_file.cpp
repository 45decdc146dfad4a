// What the product prints of one image:
//
//   output: line line third
//   third:  anything SP name NL

#include "export/catalogue_file.h"

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string_view>

#include "host/command_output.h"
#include "layout/layout.h"

std::string CatalogueDirectory(const std::string& backup_id) {
  // The first '_', even where a host name holds one: the catalogue is laid out that way.
  const std::size_t underscore = backup_id.find('_');
  std::string bucket = "0000000000";
  const std::string time_part = backup_id.substr(underscore + 1);
  for (std::size_t i = 0; i < 4; ++i) {
    bucket[i] = time_part.at(i);
  }
  return path_vkx_db_images + "/" + backup_id.substr(0, underscore) + "/" + bucket;
}

int FindCatalogueFile(const std::string& backup_id, std::string* name) {
  CommandOutput output(path_qvroll + " -id " + backup_id);
  if (!output.started()) {
    std::cerr << "run command qvroll failed.\n";
    return 1;
  }
  std::uint64_t line_count = 0;
  while (output.ReadLine()) {
    ++line_count;
    if (line_count != 3) {
      continue;
    }
    const std::string_view line = output.line();
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string_view::npos) {
      // The stream is given up in the middle. Pinned by CatalogueFile.ThirdLineWithoutABlankFails.
      output.Fclose();
      std::cerr << "parse output of qvroll failed.\n";
      return 1;
    }
    *name = line.substr(blank + 1);
    // The newline. Without one the name loses its last character: consumers know it that way.
    // Pinned by CatalogueFile.MissingNewlineCostsTheLastCharacter.
    name->erase(name->length() - 1, 1);
  }
  output.Pclose();
  if (line_count != 3) {
    // Consumers match on this text, spelling included.
    std::cerr << "parse output of qvrolle failed. output lines is not the same as expected.\n";
    return 1;
  }
  return 0;
}
