#include "catalog/list_backups.h"

#include <cstring>
#include <iostream>

#include "host/command_output.h"
#include "layout/layout.h"

int list_backups(const std::string& policy, const std::string& client,
                 const std::string& schedule) {
  std::string command = path_qvroll;
  if (!client.empty()) {
    command += " -client " + client;
  }
  if (!policy.empty()) {
    command += " -policy " + policy;
  }
  if (!schedule.empty()) {
    command += " -sched " + schedule;
  }
  // Every line is the product here, so none is echoed a second time.
  CommandOutput output(command, CommandOutput::Echo::kNever);
  if (!output.started()) {
    std::cerr << "run command qvroll failed.\n";
    return 1;
  }
  std::memset(line_buf, 0, kLineBufSize);
  while (output.ReadLine()) {
    std::cout << output.line();
  }
  output.Pclose();
  return 0;
}
