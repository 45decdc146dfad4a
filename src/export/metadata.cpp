#include "export/metadata.h"

#include <stdio.h>
#include <unistd.h>

#include <cstddef>
#include <iostream>
#include <locale>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "host/command_output.h"
#include "layout/layout.h"

std::string UndoublePercents(std::string_view line) {
  constexpr std::string_view kDoubled = "%%";
  std::string text;
  text.reserve(line.size());
  for (std::size_t at = line.find(kDoubled); at != std::string_view::npos;
       at = line.find(kDoubled)) {
    text += line.substr(0, at + 1);
    line.remove_prefix(at + kDoubled.size());
  }
  return text += line;
}

int FetchMetadata(const std::string& backup_id, const std::string& path,
                  boost::property_tree::ptree* metadata) {
  std::FILE* const file = fopen(path.c_str(), "wt");
  if (file == nullptr) {
    std::cerr << "fopen() failed. can't create file " << path << '\n';
    return 1;
  }
  CommandOutput output(path_qvmeta + " -json -backupid " + backup_id);
  if (!output.started()) {
    std::cerr << "run command qvmeta failed.\n";
    fclose(file);
    return 1;
  }
  while (output.ReadLine()) {
    // The product prints for printf: each of its lines is a format without arguments, in which a
    // percent sign stands doubled. Nothing else in a line is taken for a conversion.
    const std::string text = UndoublePercents(output.line());
    fwrite(text.data(), 1, text.size(), file);
  }
  output.Pclose();
  // A file that could not be written whole is no JSON document any more, which the reader reports.
  fclose(file);

  boost::property_tree::read_json(path, *metadata, std::locale());
  unlink(path.c_str());
  return 0;
}
